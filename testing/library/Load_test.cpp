// The real library beside a program that writes. AMPORA_LIBRARY_READS sets how often the file is read in all.
#include "format/include/ampora.hpp"
#include "testing/library/Generation.h"
#include "testing/process/Process.h"
#include "testing/ScratchFolder.h"

#include <array>
#include <cstdlib>
#include <gmock/gmock.h>
#include <map>
#include <numeric>
#include <set>
#include <sstream>
#include <thread>

namespace {

using namespace std::chrono_literals;

constexpr unsigned kReaders = 4;
// A reader pauses after so many reads, or the writer would hardly ever find the file closed by all.
constexpr unsigned kReadsInARow = 16;
constexpr unsigned long kReadsOfASlice = 50'000;
constexpr std::chrono::minutes kLimit = 10min;

// What one thread has seen.
struct Tally {
    std::set<std::uint64_t> generations;
    unsigned long torn = 0;
    std::map<std::int32_t, unsigned long> results;
};

// A file of which every record is of one generation and which has as many as that generation.
bool IsWhole(const ampora::file& file)
{
    return std::all_of(file.begin(), file.end(), [&file](const ampora_record& record) {
        return record.value == file.begin()->value && record.value % testing_support::kGenerationSizes == file.size();
    });
}

void ReadRepeatedly(const std::string& folder, unsigned long reads, Tally* tally)
{
    const auto deadline = std::chrono::steady_clock::now() + kLimit;
    for (unsigned long done = 0; done < reads && std::chrono::steady_clock::now() < deadline;) {
        try {
            const ampora::file file(folder, AMPORA_COMPANY_TOKYO, AMPORA_KIND_ACTUAL_USAGE);
            ++tally->results[AMPORA_OK];
            if (++done % kReadsInARow == 0) {
                std::this_thread::sleep_for(1ms);
            }
            tally->torn += IsWhole(file) ? 0 : 1;
            if (file.size() != 0) {
                tally->generations.insert(file.begin()->value);
            }
        } catch (const ampora::error& error) {
            ++tally->results[error.code()];
        }
    }
}

TEST(LibraryLoad, NeverGivesATornFileBesideAWriter)
{
    const char* const wanted =
        std::getenv("AMPORA_LIBRARY_READS"); // NOLINT(concurrency-mt-unsafe): no other thread yet
    const unsigned long reads = wanted == nullptr ? kReadsOfASlice : std::stoul(wanted);
    const testing_support::CScratchFolder scratch(testing_support::FolderInMemory());
    const std::string folder = scratch.Path().string();
    testing_support::CBackgroundProcess writer({AMPORA_LIBRARY_WRITER, folder}, {}, 60s);

    std::array<Tally, kReaders> tallies;
    std::vector<std::thread> readers;
    readers.reserve(kReaders);
    const auto begin = std::chrono::steady_clock::now();
    for (Tally& tally : tallies) {
        readers.emplace_back(ReadRepeatedly, folder, reads / kReaders, &tally);
    }
    Tally all;
    for (unsigned i = 0; i < kReaders; ++i) {
        readers[i].join();
        all.torn += tallies[i].torn;
        all.generations.merge(tallies[i].generations);
        for (const auto& [result, count] : tallies[i].results) {
            all.results[result] += count;
        }
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;

    writer.CloseInput();
    ASSERT_EQ(writer.WaitForExit(60s), 0);
    unsigned long written = 0;
    unsigned long refused = 0;
    std::istringstream(writer.ReadLine(1s).value_or("")) >> written >> refused;
    std::cout << all.results[AMPORA_OK] << " reads of " << all.generations.size() << " generations in "
              << seconds.count() << " s, " << all.results[AMPORA_ERROR_HELD] << " times held; " << written
              << " writes, " << refused << " refused while it was read\n";

    EXPECT_EQ(all.torn, 0U);
    EXPECT_EQ(all.results[AMPORA_OK], reads / kReaders * kReaders);
    EXPECT_EQ(all.results[AMPORA_OK] + all.results[AMPORA_ERROR_HELD],
              std::accumulate(all.results.begin(), all.results.end(), 0UL,
                              [](unsigned long sum, const auto& result) { return sum + result.second; }))
        << "other results than these";
    EXPECT_GE(written, 20U);
    EXPECT_GE(all.generations.size(), 20U);
}

} // namespace
