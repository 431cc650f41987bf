#include "ctl/Freshness.h"
#include "testing/ControlTest.h"

namespace {

using namespace catalogue;
using namespace ctl;
using namespace testing_support;

using platform::Hive;

constexpr wchar_t kMainKey[] = L"Software\\Halvex\\AmporaSrv";
constexpr wchar_t kTokyoKey[] = L"Software\\Halvex\\AmporaSrv\\site\\3";

class FreshnessTest : public CControlTest {
protected:
    // Tokyo's file of a kind in the common folder, as it is now.
    static KnownFile Read(DWORD dataType)
    {
        const Selection selection{"tokyo", std::string(FindKind(dataType)->word.Narrow()), ""};
        return ReadDataFiles(selection).at(0);
    }
    static CString WordNow(int minutes = 0)
    {
        return FreshnessWord(JudgeFile(Read(kActualUsage), RuleOfNow(minutes)).freshness);
    }
};

TEST_F(FreshnessTest, FileStandsAsItsContentAndAgeSay)
{
    // It is 13:00; without settings a pass is due after 45 minutes at most.
    const Records one = {FiveMinutes(1, 12, 0)};
    const struct {
        std::vector<BYTE> bytes;
        const wchar_t* word;
    } files[] = {
        {FileOf(kActualUsage, one, {2012, 7, 1, 2, 13, 0, 0, 0}), L"fresh"},
        {FileOf(kActualUsage, one, {2012, 7, 1, 2, 11, 30, 0, 0}), L"fresh"},
        {FileOf(kActualUsage, one, {2012, 7, 1, 2, 11, 29, 59, 0}), L"old"},
        {FileOf(kActualUsage, {}, {2012, 7, 1, 2, 11, 29, 59, 0}), L"old"},
        {FileOf(kActualUsage, {}, {2012, 7, 1, 2, 11, 30, 0, 0}), L"empty"},
        {FileOf(kActualUsage, one, {2012, 7, 1, 2, 13, 1, 0, 0}), L"fresh"},
        {FileOf(kActualUsage, one, {2012, 7, 1, 2, 13, 1, 1, 0}), L"future"},
        {FileOf(kActualUsage, one, {}), L"undated"},
        {FileOf(kActualUsage, one, {2012, 13, 1, 2, 13, 0, 0, 0}), L"undated"},
        {{1, 2, 3}, L"faulty"},
    };
    EXPECT_EQ(WordNow(), L"missing");
    for (const auto& file : files) {
        Put(kTokyo, kActualUsage, file.bytes);
        EXPECT_EQ(WordNow(), file.word);
    }
}

TEST_F(FreshnessTest, WhatTheSettingsSwitchOffIsNotMissed)
{
    m_machine.PutDword(Hive::kPerUser, kTokyoKey, L"SupportDataType", kPeakDemand);
    EXPECT_EQ(WordNow(), L"off");
    m_machine.PutDword(Hive::kPerUser, kTokyoKey, L"SupportDataType", kActualUsage);
    EXPECT_EQ(WordNow(), L"missing");
    m_machine.PutDword(Hive::kMachine, kTokyoKey, L"Enable", 0);
    EXPECT_EQ(WordNow(), L"off");
    EXPECT_FALSE(IsWanted(*FindCompany(kChubu), *FindKind(kInstantUsage))) << "Chubu publishes none";
}

TEST_F(FreshnessTest, GreatestAgeIsTwiceTheLongestInterval)
{
    const struct {
        LONG interval;
        LONG minimum;
        LONG maximum;
        std::int64_t minutes;
    } settings[] = {{30, -15, 15, 90}, {30, 15, -15, 90}, {5, 0, 0, 10},
                    {0, 0, 0, 2},      {-5, 0, 0, 2},     {0x7FFFFFFF, 0, 0x7FFFFFFF, 0x1FFFFFFFC}};
    for (const auto& setting : settings) {
        m_machine.PutDword(Hive::kMachine, kMainKey, L"Interval", static_cast<DWORD>(setting.interval));
        m_machine.PutDword(Hive::kMachine, kMainKey, L"IntervalMin", static_cast<DWORD>(setting.minimum));
        m_machine.PutDword(Hive::kMachine, kMainKey, L"IntervalMax", static_cast<DWORD>(setting.maximum));
        EXPECT_EQ(RuleOfNow(0).maxAgeSeconds, setting.minutes * 60);
        EXPECT_EQ(RuleOfNow(7).maxAgeSeconds, 7 * 60);
    }
}

TEST_F(FreshnessTest, PresentRecordIsTheLastThatHasBegunAndAPeakThatOfToday)
{
    const auto dayPeak = [](std::uint64_t value, WORD day) {
        return Record{value, {2012, 7, 0, day, 14, 0, 0, 0}, {2012, 7, 0, day, 15, 0, 0, 0}};
    };
    const struct {
        DWORD dataType;
        Records records;
        std::uint64_t value; // 0: none
    } files[] = {
        {kEstimatedUsage, {FiveMinutes(3, 13, 5), FiveMinutes(2, 13, 0), FiveMinutes(1, 12, 55)}, 2},
        {kEstimatedUsage, {FiveMinutes(3, 13, 5)}, 0},
        {kInstantUsage, {FiveMinutes(1, 12, 55), FiveMinutes(2, 12, 50)}, 1},
        {kPeakDemand, {dayPeak(1, 1), dayPeak(2, 2), dayPeak(3, 3)}, 2},
        {kPeakDemand, {dayPeak(1, 1), dayPeak(3, 3)}, 1},
        {kPeakSupply, {}, 0},
    };
    for (const auto& file : files) {
        Put(kTokyo, file.dataType, FileOf(file.dataType, file.records));
        const KnownFile known = Read(file.dataType);
        const _AmporaOneData* const record = PresentRecord(known, {2012, 7, 1, 2, 13, 0, 0, 0});
        EXPECT_EQ(record == nullptr ? 0 : record->ullValue, file.value);
    }
}

} // namespace
