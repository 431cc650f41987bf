#include "server/live/RawFiles.h"

#include "server/live/Archive.h"
#include "server/TimeText.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace reportd {
namespace {

constexpr std::size_t kRefusedKept = 30;
constexpr std::size_t kLayoutsKept = 20;
constexpr std::size_t kDaysKept = 400;

constexpr std::string_view kEnd = ".csv.gz";

std::string DayText(std::chrono::year_month_day date)
{
    std::string text = DateText(date);
    std::erase(text, '-');
    return text;
}

// YYYYMMDD-HHMMSS.
std::string SecondText(LocalTime at)
{
    std::string text;
    PutTime(text, at);
    std::erase_if(text, [](char c) { return c == '-' || c == ':'; });
    std::replace(text.begin(), text.end(), 'T', '-');
    return text;
}

void MakePrivateFolder(const std::filesystem::path& folder)
{
    if (std::filesystem::create_directories(folder)) {
        std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
    }
}

void WriteWhole(const std::filesystem::path& file, const std::string& bytes)
{
    std::filesystem::path unfinished = file;
    unfinished += ".new"; // replaces what an interrupted run has left
    std::ofstream stream(unfinished, std::ios::binary | std::ios::trunc);
    if (!stream) {
        throw std::runtime_error("cannot make " + unfinished.string());
    }
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    stream.close();
    if (!stream) {
        std::error_code ignored; // the failure to write is the one to tell
        std::filesystem::remove(unfinished, ignored);
        throw std::runtime_error("cannot write " + unfinished.string());
    }
    std::filesystem::rename(unfinished, file);
}

// Removes the oldest files of a kind. Their names sort by age.
void KeepNewest(const std::filesystem::path& folder, const std::string& kind, std::size_t count)
{
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with(kind) && name.ends_with(kEnd)) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    for (std::size_t i = 0; i + count < files.size(); ++i) {
        std::filesystem::remove(files[i]);
    }
}

// kind: first part of the name, with the hyphen.
void Keep(const std::filesystem::path& root, int siteNumber, const std::string& kind, const std::string& rest,
          std::string_view bytes, std::size_t count)
{
    const catalogue::Company* const company = catalogue::FindCompany(siteNumber);
    if (company == nullptr) {
        throw std::invalid_argument("no company has this site number");
    }
    const std::filesystem::path folder = root / company->key.Narrow();
    MakePrivateFolder(root);
    MakePrivateFolder(folder);
    WriteWhole(folder / (kind + rest + std::string(kEnd)), MakeGzip(bytes));
    KeepNewest(folder, kind, count);
}

bool IsReasonKey(std::string_view text)
{
    constexpr std::size_t kLongest = 40;
    return !text.empty() && text.size() <= kLongest &&
           text.find_first_not_of("abcdefghijklmnopqrstuvwxyz_") == std::string_view::npos;
}

} // namespace

CRawFiles::CRawFiles(std::filesystem::path folder) : m_folder(std::move(folder)) {}

void CRawFiles::KeepRefused(int siteNumber, LocalTime at, std::string_view reasonKey, std::string_view bytes)
{
    if (!IsReasonKey(reasonKey)) {
        throw std::invalid_argument("not the key of a reason");
    }
    Keep(m_folder, siteNumber, "refused-", SecondText(at) + '-' + std::string(reasonKey), bytes, kRefusedKept);
}

void CRawFiles::KeepLayout(int siteNumber, LocalTime at, std::string_view bytes)
{
    Keep(m_folder, siteNumber, "layout-", SecondText(at), bytes, kLayoutsKept);
}

void CRawFiles::KeepDay(int siteNumber, std::chrono::year_month_day date, std::string_view bytes)
{
    Keep(m_folder, siteNumber, "day-", DayText(date), bytes, kDaysKept);
}

} // namespace reportd
