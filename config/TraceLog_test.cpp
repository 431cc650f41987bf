#include "config/TraceLog.h"

#include "config/ConfigUtil.h"
#include "platform/Thread.h"
#include "testing/FailingMemory.h"
#include "testing/MachineTest.h"
#include "testing/Trace.h"

#include <gmock/gmock.h>
#include <stdexcept>

namespace {

using platform::sim::Call;
using testing::ElementsAre;
using testing::IsEmpty;
using testing_support::CFailingMemory;
using testing_support::TraceLine;
using testing_support::TraceLines;

constexpr wchar_t kFunction[] = L"Test::Work";

class TraceLog : public testing_support::CMachineTest {};

// Writes one line of every kind under a mask.
void WriteEverything(DWORD mask)
{
    g_dwLogLevel = mask;
    const CTraceScope scope(kFunction);
    scope.Err(L"e");
    scope.War(L"w");
    scope.Tra(L"t");
}

const TraceLine kErr{"ERR", "Test::Work", "e"};
const TraceLine kWar{"WAR", "Test::Work", "w"};
const TraceLine kTra{"TRA", "Test::Work", "t"};
const TraceLine kEnter{"TRA", "Test::Work", "Enter"};
const TraceLine kLeave{"TRA", "Test::Work", "Leave"};

static_assert(sizeof(CTraceLog) == sizeof(void*));
static_assert(sizeof(CTraceScope) == sizeof(void*));

// A mask and what it selects.
struct MaskCase {
    const char* name;
    DWORD mask;
    std::vector<TraceLine> lines;
};

std::ostream& operator<<(std::ostream& stream, const MaskCase& test) { return stream << test.name; }

const MaskCase kMaskCases[] = {
    {"Nothing", 0, {}},
    {"Errors", 1, {kErr}},
    {"Warnings", 2, {kWar}},
    {"TracesWithoutScopes", 8, {kTra}},
    {"ScopesWithoutTraces", 16, {}},
    {"ScopesAndTraces", 24, {kEnter, kTra, kLeave}},
    {"ErrorsAndWarnings", 3, {kErr, kWar}},
    {"ErrorsAndTraces", 9, {kErr, kTra}},
    {"WarningsAndTraces", 10, {kWar, kTra}},
    {"AllButScopes", 11, {kErr, kWar, kTra}},
    {"ErrorsAndScopesWithoutTraces", 17, {kErr}},
    {"WarningsAndScopesWithoutTraces", 18, {kWar}},
    {"AllButTraces", 19, {kErr, kWar}},
    {"AllButWarnings", 25, {kEnter, kErr, kTra, kLeave}},
    {"AllButErrors", 26, {kEnter, kWar, kTra, kLeave}},
    {"Everything", 27, {kEnter, kErr, kWar, kTra, kLeave}},
};

class TraceLogMask : public TraceLog, public testing::WithParamInterface<MaskCase> {};

INSTANTIATE_TEST_SUITE_P(Selects, TraceLogMask, testing::ValuesIn(kMaskCases),
                         [](const auto& test) { return test.param.name; });

TEST_P(TraceLogMask, WritesWhatItsBitsSelect)
{
    for (const DWORD unused : {0U, 4U, 32U, 0xFFFFFFE4U}) { // bits that mean nothing
        m_machine.ClearDebugLines();
        WriteEverything(GetParam().mask | unused);
        EXPECT_EQ(TraceLines(), GetParam().lines) << unused;
    }
}

TEST_F(TraceLog, LineHasTagTimeIdentifiersFunctionAndMessage)
{
    m_machine.SetLocalClock({2012, 7, 0, 5, 3, 4, 6, 78});
    CTraceLog(kFunction).War(L"Unknown Tag.(%s)", L"x");

    const std::string process = std::to_string(static_cast<int>(platform::CurrentProcessIdentifier()));
    const std::string thread = std::to_string(static_cast<int>(platform::CurrentThreadIdentifier()));
    const CString expected = platform::DecodeUtf8("[WAR] 2012/07/05 03:04:06.078 " + process + "(" + thread +
                                                  ") Test::Work : Unknown Tag.(x)\n");
    EXPECT_THAT(m_machine.DebugLines(), ElementsAre(expected));
}

TEST_F(TraceLog, OutputTraceLineWritesWhateverTheMask)
{
    g_dwLogLevel = 0;
    OutputTraceLine(L"ERR", kFunction, L"e");
    EXPECT_THAT(TraceLines(), ElementsAre(kErr));
}

static_assert(noexcept(OutputTraceLine(L"ERR", kFunction, CString())));
static_assert(noexcept(CTraceLog(kFunction).Err(L"%d", 1)));
static_assert(noexcept(CTraceLog(kFunction).War(L"%d", 1)));
static_assert(noexcept(CTraceLog(kFunction).Tra(L"%d", 1)));

TEST_F(TraceLog, OutputTraceLineItselfLosesAFailedLineSilently)
{
    m_machine.FailCall(Call::kOutputDebugText, 1, ERROR_OUTOFMEMORY);
    OutputTraceLine(L"ERR", kFunction, L"lost");
    OutputTraceLine(L"ERR", kFunction, L"e");
    EXPECT_THAT(TraceLines(), ElementsAre(kErr));
}

TEST_F(TraceLog, EveryLineIsOneCallOfTheDebuggerOutput)
{
    WriteEverything(27);
    EXPECT_EQ(m_machine.CallCount(Call::kOutputDebugText), 5U);
    for (const CString& line : m_machine.DebugLines()) {
        EXPECT_EQ(line.find(L'\n'), line.size() - 1);
    }
}

TEST_F(TraceLog, LeaveIsWrittenWhenAnExceptionLeavesTheScope)
{
    const auto work = [] {
        const CTraceScope scope(kFunction);
        throw std::runtime_error("work");
    };
    EXPECT_THROW(work(), std::runtime_error);
    EXPECT_THAT(TraceLines(), ElementsAre(kEnter, kLeave));
}

TEST_F(TraceLog, ScopesNest)
{
    {
        const CTraceScope outer(L"Test::Outer");
        const CTraceScope inner(L"Test::Inner");
    }
    EXPECT_THAT(TraceLines(),
                ElementsAre(TraceLine{"TRA", "Test::Outer", "Enter"}, TraceLine{"TRA", "Test::Inner", "Enter"},
                            TraceLine{"TRA", "Test::Inner", "Leave"}, TraceLine{"TRA", "Test::Outer", "Leave"}));
}

TEST_F(TraceLog, APercentSignOfAnArgumentStaysAsItIs)
{
    CTraceLog(kFunction).Tra(L"Attribute : \"%s\" = \"%s\"", L"100%", L"%s %d %%");
    EXPECT_THAT(TraceLines(), ElementsAre(TraceLine{"TRA", "Test::Work", "Attribute : \"100%\" = \"%s %d %%\""}));
}

TEST_F(TraceLog, AFormatWithoutItsPercentSignStandsAsItIs)
{
    CTraceLog(kFunction).Err(L"XML Load fail.(0x08X)", S_FALSE);
    EXPECT_THAT(TraceLines(), ElementsAre(TraceLine{"ERR", "Test::Work", "XML Load fail.(0x08X)"}));
}

TEST_F(TraceLog, LongMessagesAreNotCut)
{
    const CString text(100'000, L'x');
    CTraceLog(kFunction).Tra(L"%s", text);
    EXPECT_THAT(TraceLines(), ElementsAre(TraceLine{"TRA", "Test::Work", std::string(100'000, 'x')}));
}

TEST_F(TraceLog, MessagesKeepEveryCharacter)
{
    CTraceLog(kFunction).Tra(L"%s", L"東京 \U0001F50C");
    EXPECT_THAT(TraceLines(), ElementsAre(TraceLine{"TRA", "Test::Work", "\xE6\x9D\xB1\xE4\xBA\xAC \xF0\x9F\x94\x8C"}));
}

TEST_F(TraceLog, AMessageThatCannotBeFormattedIsLostSilently)
{
    CTraceLog(kFunction).Err(L"%s");
    CTraceLog(kFunction).War(L"%d", L"text");
    CTraceLog(kFunction).Tra(L"%s %s", L"one");
    EXPECT_THAT(TraceLines(), IsEmpty());
    CTraceLog(kFunction).Err(L"e");
    EXPECT_THAT(TraceLines(), ElementsAre(kErr));
}

TEST_F(TraceLog, AnOutputThatThrowsLosesItsLineSilently)
{
    m_machine.FailCall(Call::kOutputDebugText, 2, ERROR_OUTOFMEMORY);
    WriteEverything(27);
    EXPECT_THAT(TraceLines(), ElementsAre(kEnter, kWar, kTra, kLeave));
}

TEST_F(TraceLog, RunningOutOfMemoryAnywhereLosesTheLineSilently)
{
    const std::string text(1000, 'x');
    const TraceLine whole{"ERR", "Test::Work", text};
    const CString message = platform::DecodeUtf8(text);
    int lost = 0;
    bool failed = true;
    for (unsigned nth = 1; failed; ++nth) {
        ASSERT_LT(nth, 100U);
        m_machine.ClearDebugLines();
        {
            const CFailingMemory memory(nth);
            CTraceLog(kFunction).Err(L"%s", message);
            failed = memory.HasFailed();
        }
        const std::vector<TraceLine> lines = TraceLines();
        lost += lines.empty() ? 1 : 0;
        EXPECT_TRUE(lines.empty() || lines == std::vector{whole}) << "allocation " << nth;
    }
    EXPECT_GT(lost, 0);
    EXPECT_THAT(TraceLines(), ElementsAre(whole)); // with memory enough
}

TEST_F(TraceLog, ADisabledLevelNeitherFormatsNorAllocates)
{
    const CString text(1000, L'x');
    g_dwLogLevel = 0;
    const CFailingMemory memory(1);
    const CTraceScope scope(kFunction);
    scope.Err(L"%s", text);
    scope.War(L"%s", text);
    scope.Tra(L"%s", text);
    EXPECT_FALSE(memory.HasFailed());
    EXPECT_EQ(m_machine.CallCount(Call::kOutputDebugText), 0U);
}

TEST_F(TraceLog, AChangedLogLevelHasNoEffectUntilTheNextStart)
{
    constexpr wchar_t kMain[] = L"Software\\Halvex\\AmporaSrv";
    m_machine.PutDword(platform::Hive::kMachine, kMain, L"LogLevel", 1);
    g_dwLogLevel = CConfigUtil::GetLogLevel();
    m_machine.PutDword(platform::Hive::kMachine, kMain, L"LogLevel", 0);
    const unsigned queries = m_machine.CallCount(Call::kQuerySettingsValue);

    CTraceLog(kFunction).Err(L"e");
    CTraceLog(kFunction).War(L"w");

    EXPECT_THAT(TraceLines(), ElementsAre(kErr));
    EXPECT_EQ(m_machine.CallCount(Call::kQuerySettingsValue), queries);
}

} // namespace
