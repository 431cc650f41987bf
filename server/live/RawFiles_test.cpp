#include "server/live/RawFiles.h"

#include "server/live/Archive.h"
#include "testing/ScratchFolder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>

namespace reportd {
namespace {

using testing::ElementsAre;
using testing_support::FileBytes;

constexpr auto kDay = year(2026) / 4 / 20;
const LocalTime kNoon = local_days(kDay) + hours(12);

class RawFiles : public testing::Test {
protected:
    std::filesystem::path FolderOf(const std::string& company) const { return m_scratch.Path() / "raw" / company; }

    std::vector<std::string> NamesIn(const std::string& company) const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(FolderOf(company))) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    testing_support::CScratchFolder m_scratch;
    CRawFiles m_files{m_scratch.Path() / "raw"};
};

TEST_F(RawFiles, KeepsBytesAsTheyCameUnderNamesOfOurOwn)
{
    m_files.KeepRefused(catalogue::kTokyo, kNoon + seconds(7), "no_stamp", "one");
    m_files.KeepLayout(catalogue::kTokyo, kNoon, "two");
    m_files.KeepDay(catalogue::kTokyo, kDay, "three");
    EXPECT_THAT(NamesIn("tokyo"), ElementsAre("day-20260420.csv.gz", "layout-20260420-120000.csv.gz",
                                              "refused-20260420-120007-no_stamp.csv.gz"));
    EXPECT_EQ(ReadGzip(FileBytes(FolderOf("tokyo") / "refused-20260420-120007-no_stamp.csv.gz")), "one");
    EXPECT_EQ(ReadGzip(FileBytes(FolderOf("tokyo") / "layout-20260420-120000.csv.gz")), "two");
    EXPECT_EQ(ReadGzip(FileBytes(FolderOf("tokyo") / "day-20260420.csv.gz")), "three");
}

TEST_F(RawFiles, FoldersAreForTheirOwnerAlone)
{
    m_files.KeepDay(catalogue::kKyushu, kDay, "x");
    for (const auto& folder : {m_scratch.Path() / "raw", FolderOf("kyushu")}) {
        EXPECT_EQ(std::filesystem::status(folder).permissions(), std::filesystem::perms::owner_all) << folder;
    }
}

TEST_F(RawFiles, TheLastFileOfADayReplacesTheOneBefore)
{
    m_files.KeepDay(catalogue::kChubu, kDay, "morning");
    m_files.KeepDay(catalogue::kChubu, kDay, "evening");
    EXPECT_THAT(NamesIn("chubu"), ElementsAre("day-20260420.csv.gz"));
    EXPECT_EQ(ReadGzip(FileBytes(FolderOf("chubu") / "day-20260420.csv.gz")), "evening");
}

TEST_F(RawFiles, KeepsTheNewestOfEachKindAndCompany)
{
    for (int i = 0; i < 45; ++i) {
        m_files.KeepRefused(catalogue::kTokyo, kNoon + seconds(i), "html", "x");
        m_files.KeepLayout(catalogue::kTokyo, kNoon + seconds(i), "x");
    }
    m_files.KeepRefused(catalogue::kTohoku, kNoon, "html", "x");
    const std::vector<std::string> names = NamesIn("tokyo");
    ASSERT_EQ(names.size(), 20U + 30U);
    EXPECT_EQ(names.front(), "layout-20260420-120025.csv.gz");
    EXPECT_EQ(names[20], "refused-20260420-120015-html.csv.gz");
    EXPECT_EQ(names.back(), "refused-20260420-120044-html.csv.gz");
    EXPECT_EQ(NamesIn("tohoku").size(), 1U);
}

TEST_F(RawFiles, KeepsFourHundredDays)
{
    for (int i = 0; i < 402; ++i) {
        m_files.KeepDay(catalogue::kKansai, std::chrono::year_month_day{local_days(kDay) + days(i)}, "x");
    }
    const std::vector<std::string> names = NamesIn("kansai");
    ASSERT_EQ(names.size(), 400U);
    EXPECT_EQ(names.front(), "day-20260422.csv.gz");
}

TEST_F(RawFiles, LeavesFilesThatAreNotItsOwn)
{
    m_files.KeepRefused(catalogue::kTokyo, kNoon, "html", "x");
    std::ofstream(FolderOf("tokyo") / "refused-notes.txt") << "mine";
    for (int i = 1; i < 40; ++i) {
        m_files.KeepRefused(catalogue::kTokyo, kNoon + seconds(i), "html", "x");
    }
    EXPECT_EQ(FileBytes(FolderOf("tokyo") / "refused-notes.txt"), "mine");
}

TEST_F(RawFiles, ReasonsAndCompaniesCannotNameOtherFiles)
{
    for (const std::string reason :
         {"", "../x", "Html", "a b", "a/b", "http_404", "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"}) {
        EXPECT_THROW(m_files.KeepRefused(catalogue::kTokyo, kNoon, reason, "x"), std::invalid_argument) << reason;
    }
    EXPECT_THROW(m_files.KeepDay(4, kDay, "x"), std::invalid_argument);
    EXPECT_FALSE(std::filesystem::exists(m_scratch.Path() / "raw"));
}

TEST_F(RawFiles, WhatCannotBeWrittenIsAnErrorAndLeavesNoFile)
{
    std::filesystem::create_directories(FolderOf("tokyo") / "day-20260420.csv.gz.new"); // where it is written first
    EXPECT_THROW(m_files.KeepDay(catalogue::kTokyo, kDay, "x"), std::runtime_error);
    EXPECT_THAT(NamesIn("tokyo"), ElementsAre("day-20260420.csv.gz.new"));
    m_scratch.Write("flat", "a file where a folder should be");
    EXPECT_THROW(CRawFiles(m_scratch.Path() / "flat").KeepDay(catalogue::kTokyo, kDay, "x"), std::runtime_error);
}

TEST_F(RawFiles, WhatAnInterruptedRunLeftIsReplaced)
{
    std::filesystem::create_directories(FolderOf("tokyo"));
    std::ofstream(FolderOf("tokyo") / "day-20260420.csv.gz.new") << std::string(5000, 'x');
    m_files.KeepDay(catalogue::kTokyo, kDay, "whole");
    EXPECT_THAT(NamesIn("tokyo"), ElementsAre("day-20260420.csv.gz"));
    EXPECT_EQ(ReadGzip(FileBytes(FolderOf("tokyo") / "day-20260420.csv.gz")), "whole");
}

} // namespace
} // namespace reportd
