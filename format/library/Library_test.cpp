#include "format/Catalogue.h"
#include "format/DataFilePath.h"
#include "format/include/ampora.hpp"
#include "platform/Files.h"
#include "platform/Pause.h"
#include "platform/sim/Machine.h"
#include "platform/Text.h"
#include "platform/Thread.h"
#include "testing/FailingMemory.h"
#include "testing/GoldenDataFile.h"

#include <array>
#include <cstring>
#include <gmock/gmock.h>
#include <type_traits>

namespace {

using platform::sim::Call;
using platform::sim::CMachine;
using testing_support::kGoldenDataFile;

using FilePtr = std::unique_ptr<ampora_file, decltype(&ampora_file_free)>;
using WatchPtr = std::unique_ptr<ampora_watch, decltype(&ampora_watch_free)>;

// A machine with one data file, of Tokyo's actual usage.
class Library : public testing::Test {
protected:
    Library() { PutGolden({}, kGoldenDataFile.size()); }

    // Puts the golden file with one word changed and of this size.
    void PutGolden(std::pair<std::size_t, DWORD> change, std::size_t size)
    {
        std::vector<BYTE> bytes = kGoldenDataFile;
        if (change != std::pair<std::size_t, DWORD>{}) {
            std::memcpy(bytes.data() + change.first, &change.second, sizeof(change.second));
        }
        bytes.resize(size);
        m_machine.PutFile(m_path, {.bytes = std::move(bytes)});
    }
    // The result of reading a file that is refused.
    static int32_t Refusal(int32_t company = AMPORA_COMPANY_TOKYO, uint32_t kind = AMPORA_KIND_ACTUAL_USAGE,
                           const char* folder = nullptr)
    {
        int any = 0;
        auto* file = reinterpret_cast<ampora_file*>(&any); // which the function must set to null
        const int32_t result = ampora_read(folder, company, kind, &file);
        EXPECT_EQ(file, nullptr);
        return result;
    }
    static FilePtr Read()
    {
        ampora_file* file = nullptr;
        EXPECT_EQ(ampora_read(nullptr, AMPORA_COMPANY_TOKYO, AMPORA_KIND_ACTUAL_USAGE, &file), AMPORA_OK);
        return {file, ampora_file_free};
    }
    // A folder that is missing together with the one around it.
    static std::string Missing()
    {
        const CString separator = platform::kPathSeparator;
        return platform::EncodeUtf8(L"none" + separator + L"of" + separator + L"these");
    }
    static WatchPtr OpenWatch()
    {
        ampora_watch* watch = nullptr;
        EXPECT_EQ(ampora_watch_open(nullptr, &watch), AMPORA_OK);
        return {watch, ampora_watch_free};
    }

    CMachine m_machine;
    CString m_path = DataFileIn(DataFolder(), catalogue::kTokyo, catalogue::kActualUsage);
};

TEST_F(Library, KnowsItsVersion) { EXPECT_STREQ(ampora_version(), AMPORA_VERSION); }

TEST_F(Library, HasAnotherTextForEachResult)
{
    std::vector<std::string> texts = {ampora_error_text(-1)};
    for (int32_t result = AMPORA_OK; result <= AMPORA_ERROR_WATCH; ++result) {
        EXPECT_THAT(texts, testing::Not(testing::Contains(ampora_error_text(result))));
        texts.emplace_back(ampora_error_text(result));
    }
    EXPECT_STREQ(ampora_error_text(AMPORA_ERROR_WATCH + 1), "unknown error");
}

TEST_F(Library, KnowsTheCompaniesOfTheCatalogue)
{
    ASSERT_EQ(ampora_company_count(), catalogue::kCompanies.size());
    for (std::uint32_t i = 0; i < ampora_company_count(); ++i) {
        const int32_t company = ampora_company_at(i);
        EXPECT_EQ(company, catalogue::kCompanies[i].siteNumber);
        EXPECT_EQ(ampora_company_name(company), catalogue::kCompanies[i].name.Narrow());
        EXPECT_EQ(ampora_company_key(company), catalogue::kCompanies[i].key.Narrow());
        EXPECT_EQ(ampora_company_of_key(ampora_company_key(company)), company);
    }
}

TEST_F(Library, KnowsTheKindsOfTheCatalogue)
{
    ASSERT_EQ(ampora_kind_count(), catalogue::kKinds.size());
    for (std::uint32_t i = 0; i < ampora_kind_count(); ++i) {
        const uint32_t kind = ampora_kind_at(i);
        EXPECT_EQ(kind, catalogue::kKinds[i].dataType);
        EXPECT_EQ(ampora_kind_name(kind), catalogue::kKinds[i].name.Narrow());
        EXPECT_EQ(ampora_kind_key(kind), catalogue::kKinds[i].element.Narrow());
        EXPECT_EQ(ampora_kind_of_key(ampora_kind_key(kind)), kind);
    }
}

TEST_F(Library, HasNothingOfAnUnknownCompanyOrKind)
{
    EXPECT_EQ(ampora_company_at(5), 0);
    EXPECT_EQ(ampora_company_name(4), nullptr);
    EXPECT_EQ(ampora_company_key(-3), nullptr);
    EXPECT_EQ(ampora_kind_at(5), 0U);
    EXPECT_EQ(ampora_kind_name(3), nullptr);
    EXPECT_EQ(ampora_kind_key(0), nullptr);
    for (const char* key : {"Tokyo", "", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(ampora_company_of_key(key), 0);
        EXPECT_EQ(ampora_kind_of_key(key), 0U);
    }
}

TEST_F(Library, GivesHeaderAndRecords)
{
    const FilePtr file = Read();
    ASSERT_EQ(ampora_file_count(file.get()), 2U);
    const ampora_record* const records = ampora_file_records(file.get());
    EXPECT_EQ(std::memcmp(records, kGoldenDataFile.data() + 32, 2 * sizeof(ampora_record)), 0);
    EXPECT_EQ(ampora_file_newest(file.get()), &records[0]) << "the second record starts an hour earlier";

    ampora_file_info info = {};
    info.size = sizeof(info);
    ASSERT_EQ(ampora_file_get_info(file.get(), &info), AMPORA_OK);
    EXPECT_EQ(info.company, AMPORA_COMPANY_TOKYO);
    EXPECT_EQ(info.kind, static_cast<uint32_t>(AMPORA_KIND_ACTUAL_USAGE));
    EXPECT_EQ(info.count, 2U);
    EXPECT_EQ(std::memcmp(&info.written, kGoldenDataFile.data() + 16, sizeof(info.written)), 0);
}

TEST_F(Library, AFileWithoutRecordsIsNoError)
{
    PutGolden({8, 0}, 32);
    const FilePtr file = Read();
    EXPECT_EQ(ampora_file_count(file.get()), 0U);
    EXPECT_EQ(ampora_file_records(file.get()), nullptr);
    EXPECT_EQ(ampora_file_newest(file.get()), nullptr);
}

TEST_F(Library, RefusesEachDamage)
{
    const struct {
        std::pair<std::size_t, DWORD> change;
        std::size_t size;
        int32_t result;
    } files[] = {
        {{}, 0, AMPORA_ERROR_SHORT},
        {{}, 31, AMPORA_ERROR_SHORT},
        {{0, 0x00020000}, 112, AMPORA_ERROR_VERSION},
        {{4, 16}, 112, AMPORA_ERROR_FOREIGN_KIND},
        {{12, 1}, 112, AMPORA_ERROR_RESERVED},
        {{}, 111, AMPORA_ERROR_TORN},
        {{}, 113, AMPORA_ERROR_TORN},
        {{8, 0xFFFFFFFF}, 112, AMPORA_ERROR_TORN},
    };
    for (const auto& file : files) {
        PutGolden(file.change, file.size);
        EXPECT_EQ(Refusal(), file.result) << file.size << ", " << file.change.first;
    }
}

TEST_F(Library, TellsWhatIsMissing)
{
    EXPECT_EQ(Refusal(AMPORA_COMPANY_KANSAI), AMPORA_ERROR_MISSING);
    EXPECT_EQ(Refusal(4), AMPORA_ERROR_COMPANY);
    EXPECT_EQ(Refusal(AMPORA_COMPANY_TOKYO, 3), AMPORA_ERROR_KIND);
    EXPECT_EQ(Refusal(AMPORA_COMPANY_TOKYO, AMPORA_KIND_ACTUAL_USAGE, "no folder"), AMPORA_ERROR_FOLDER);
    EXPECT_EQ(Refusal(AMPORA_COMPANY_TOKYO, AMPORA_KIND_ACTUAL_USAGE, ""), AMPORA_ERROR_FOLDER);
    m_machine.PutFile(m_path, {.isFolder = true});
    EXPECT_EQ(Refusal(), AMPORA_ERROR_UNREADABLE);
    m_machine.RemoveFile(DataFolder());
    EXPECT_EQ(Refusal(), AMPORA_ERROR_FOLDER);
}

TEST_F(Library, AnUnknownDefaultFolderIsAnError)
{
    m_machine.FailEvery(Call::kGetCommonAppDataFolder, ERROR_PATH_NOT_FOUND);
    size_t needed = 0;
    ampora_watch* watch = nullptr;
    EXPECT_EQ(ampora_default_folder(nullptr, 0, &needed), AMPORA_ERROR_FOLDER);
    EXPECT_EQ(ampora_path(nullptr, AMPORA_COMPANY_TOKYO, AMPORA_KIND_ACTUAL_USAGE, nullptr, 0, &needed),
              AMPORA_ERROR_FOLDER);
    EXPECT_EQ(Refusal(), AMPORA_ERROR_FOLDER);
    EXPECT_EQ(ampora_watch_open(nullptr, &watch), AMPORA_ERROR_FOLDER);
}

TEST_F(Library, TriesAgainWhileAWriterHoldsTheFile)
{
    const platform::SecurityDescriptorPtr security = platform::InitializeDescriptor();
    platform::OutputFilePtr writer = platform::OpenForReplace(m_path, security.get());
    platform::WriteFileBytes(writer, kGoldenDataFile.data(), kGoldenDataFile.size());
    EXPECT_EQ(Refusal(), AMPORA_ERROR_HELD);
    EXPECT_EQ(m_machine.ElapsedMs(), AMPORA_HELD_LIMIT_MS);
    const auto close = [](void* held) -> DWORD {
        platform::Pause(AMPORA_HELD_LIMIT_MS / 2);
        static_cast<platform::OutputFilePtr*>(held)->reset();
        return 0;
    };
    const platform::ThreadPtr thread = platform::StartThread(close, &writer);
    EXPECT_NE(Read(), nullptr);
    EXPECT_EQ(platform::WaitForThread(thread, INFINITE), WAIT_OBJECT_0);
}

TEST_F(Library, WritesPathsIntoBuffersThatAreLargeEnough)
{
    const std::string expected = platform::EncodeUtf8(m_path);
    const auto path = [](char* buffer, std::size_t size, std::size_t* needed) {
        return ampora_path(nullptr, AMPORA_COMPANY_TOKYO, AMPORA_KIND_ACTUAL_USAGE, buffer, size, needed);
    };
    std::size_t needed = 0;
    EXPECT_EQ(path(nullptr, 0, &needed), AMPORA_ERROR_SIZE);
    ASSERT_EQ(needed, expected.size() + 1);
    std::string buffer(needed, '#');
    EXPECT_EQ(path(buffer.data(), needed - 1, nullptr), AMPORA_ERROR_SIZE);
    EXPECT_EQ(buffer, std::string(needed, '#'));
    EXPECT_EQ(path(buffer.data(), needed, nullptr), AMPORA_OK);
    EXPECT_EQ(buffer.c_str(), expected);
    EXPECT_EQ(ampora::path("", AMPORA_COMPANY_TOKYO, AMPORA_KIND_ACTUAL_USAGE), expected);
    EXPECT_EQ(ampora::path("\xE9\x9B\xBB", AMPORA_COMPANY_CHUBU, AMPORA_KIND_PEAK_DEMAND),
              "\xE9\x9B\xBB" + platform::EncodeUtf8(platform::kPathSeparator) + "chubu_00000010.dat");
    EXPECT_EQ(ampora::default_folder(), platform::EncodeUtf8(DataFolder()));
}

TEST_F(Library, RefusesNullArguments)
{
    ampora_file_info info = {};
    info.size = sizeof(info);
    const int32_t results[] = {
        ampora_default_folder(nullptr, 1, nullptr),
        ampora_path(nullptr, AMPORA_COMPANY_TOKYO, AMPORA_KIND_ACTUAL_USAGE, nullptr, 1, nullptr),
        ampora_read(nullptr, AMPORA_COMPANY_TOKYO, AMPORA_KIND_ACTUAL_USAGE, nullptr),
        ampora_file_get_info(nullptr, &info),
        ampora_file_get_info(Read().get(), nullptr),
        ampora_watch_open(nullptr, nullptr),
        ampora_watch_wait(nullptr, 0),
    };
    EXPECT_THAT(results, testing::Each(AMPORA_ERROR_ARGUMENT));
    EXPECT_EQ(ampora_file_count(nullptr), 0U);
    EXPECT_EQ(ampora_file_records(nullptr), nullptr);
    EXPECT_EQ(ampora_file_newest(nullptr), nullptr);
    EXPECT_EQ(ampora_watch_event(nullptr), -1);
    ampora_file_free(nullptr);
    ampora_watch_free(nullptr);
}

TEST_F(Library, TakesTheInfoOfANewerHeaderButNoSmallerOne)
{
    const FilePtr file = Read();
    struct {
        ampora_file_info info;
        uint64_t later;
    } newer = {{sizeof(newer), 0, 0, 0, {}}, ~uint64_t{0}};
    EXPECT_EQ(ampora_file_get_info(file.get(), &newer.info), AMPORA_OK);
    EXPECT_EQ(newer.info.size, sizeof(newer));
    EXPECT_EQ(newer.info.count, 2U);
    EXPECT_EQ(newer.later, 0U);
    for (const uint32_t size : {0U, 31U}) {
        ampora_file_info info = {size, 77, 0, 0, {}};
        EXPECT_EQ(ampora_file_get_info(file.get(), &info), AMPORA_ERROR_SIZE);
        EXPECT_EQ(info.company, 77);
    }
}

TEST_F(Library, WatchTellsOfAChangedFile)
{
    const WatchPtr watch = OpenWatch();
    EXPECT_EQ(ampora_watch_wait(watch.get(), 0), AMPORA_TIMED_OUT);
    EXPECT_EQ(ampora_watch_wait(watch.get(), 30), AMPORA_TIMED_OUT);
    EXPECT_EQ(m_machine.ElapsedMs(), 30);
    PutGolden({}, kGoldenDataFile.size());
    EXPECT_EQ(ampora_watch_wait(watch.get(), -1), AMPORA_OK);
    EXPECT_EQ(ampora_watch_wait(watch.get(), 0), AMPORA_TIMED_OUT);
}

TEST_F(Library, WatchTellsOfItsFailures)
{
    const std::string missing = Missing();
    const struct {
        const char* folder;
        DWORD error; // of the system, 0 for none
        int32_t result;
    } folders[] = {
        {missing.c_str(), 0, AMPORA_ERROR_FOLDER},
        {nullptr, ERROR_FILE_NOT_FOUND, AMPORA_ERROR_FOLDER},
        {nullptr, ERROR_ACCESS_DENIED, AMPORA_ERROR_WATCH},
    };
    for (const auto& [folder, error, result] : folders) {
        if (error != 0) {
            m_machine.FailCall(Call::kOpenFolderWatch, 1, error);
        }
        int any = 0;
        auto* watch = reinterpret_cast<ampora_watch*>(&any);
        EXPECT_EQ(ampora_watch_open(folder, &watch), result);
        EXPECT_EQ(watch, nullptr);
    }
    const WatchPtr watch = OpenWatch();
    m_machine.FailCall(Call::kWaitForFolderChange, 1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(ampora_watch_wait(watch.get(), 0), AMPORA_ERROR_WATCH);
}

// Lets the allocations of a function fail one by one, and looks at what it gives then.
template <class Function>
void ExpectMemoryErrors(Function function)
{
    for (unsigned nth = 1; nth < 100; ++nth) {
        int32_t result = AMPORA_OK;
        bool hasFailed = false;
        {
            const testing_support::CFailingMemory memory(nth);
            result = function();
            hasFailed = memory.HasFailed();
        }
        if (!hasFailed) {
            EXPECT_GT(nth, 1U) << "it allocates nothing";
            return;
        }
        EXPECT_EQ(result, AMPORA_ERROR_MEMORY) << "allocation " << nth;
    }
    ADD_FAILURE() << "no end of allocations";
}

TEST_F(Library, RunningOutOfMemoryIsAnError)
{
    std::array<char, 1000> buffer{};
    ExpectMemoryErrors([&] { return ampora_default_folder(buffer.data(), buffer.size(), nullptr); });
    ExpectMemoryErrors([&] {
        return ampora_path("folder", AMPORA_COMPANY_TOKYO, AMPORA_KIND_ACTUAL_USAGE, buffer.data(), buffer.size(),
                           nullptr);
    });
    ExpectMemoryErrors([] {
        ampora_file* file = nullptr;
        const int32_t result = ampora_read(nullptr, AMPORA_COMPANY_TOKYO, AMPORA_KIND_ACTUAL_USAGE, &file);
        EXPECT_EQ(file != nullptr, result == AMPORA_OK);
        ampora_file_free(file);
        return result;
    });
    ExpectMemoryErrors([] {
        ampora_watch* watch = nullptr;
        const int32_t result = ampora_watch_open(nullptr, &watch);
        EXPECT_EQ(watch != nullptr, result == AMPORA_OK);
        ampora_watch_free(watch);
        return result;
    });
}

TEST_F(Library, CxxObjectsHoldWhatTheyRead)
{
    EXPECT_THAT(ampora::companies(), testing::ElementsAre(3, 2, 5, 6, 9));
    EXPECT_THAT(ampora::kinds(), testing::ElementsAre(1U, 2U, 4U, 8U, 16U));
    ampora::file first(AMPORA_COMPANY_TOKYO, AMPORA_KIND_ACTUAL_USAGE);
    const ampora::file file = std::move(first);
    EXPECT_EQ(file.size(), 2U);
    EXPECT_EQ(std::distance(file.begin(), file.end()), 2);
    EXPECT_EQ(file.newest(), file.begin());
    EXPECT_EQ(file.info().count, 2U);
    static_assert(!std::is_copy_constructible_v<ampora::file> && !std::is_copy_constructible_v<ampora::watch>);

    ampora::watch watch;
    EXPECT_FALSE(watch.wait_for(std::chrono::milliseconds(0)));
    PutGolden({}, kGoldenDataFile.size());
    EXPECT_TRUE(watch.wait_for(std::chrono::hours(1'000'000)));
    EXPECT_EQ(watch.event(), -1) << "the simulated machine has none";
}

TEST_F(Library, ACxxFileWithoutRecordsIsAnEmptyRange)
{
    PutGolden({8, 0}, 32);
    const ampora::file file(AMPORA_COMPANY_TOKYO, AMPORA_KIND_ACTUAL_USAGE);
    EXPECT_EQ(file.begin(), nullptr);
    EXPECT_EQ(file.end(), nullptr);
    EXPECT_EQ(file.newest(), nullptr);
}

TEST_F(Library, CxxErrorsHaveCodeAndText)
{
    try {
        const ampora::file file(AMPORA_COMPANY_KYUSHU, AMPORA_KIND_PEAK_DEMAND);
        FAIL() << "there is no such file";
    } catch (const ampora::error& error) {
        EXPECT_EQ(error.code(), AMPORA_ERROR_MISSING);
        EXPECT_STREQ(error.what(), ampora_error_text(AMPORA_ERROR_MISSING));
    }
    EXPECT_THROW(ampora::watch{Missing()}, ampora::error);
    EXPECT_THROW(ampora::path("", 4, AMPORA_KIND_PEAK_DEMAND), ampora::error);
}

} // namespace
