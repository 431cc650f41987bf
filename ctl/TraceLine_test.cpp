#include "ctl/TraceLine.h"

#include "config/TraceLog.h"
#include "testing/MachineTest.h"

namespace {

using ctl::ParseTraceLine;

class TraceLineTest : public testing_support::CMachineTest {};

TEST_F(TraceLineTest, TakesApartWhatTheTraceLogWrites)
{
    OutputTraceLine(L"WAR", L"Test::Bar", L"a : b");
    CString text = m_machine.DebugLines().front();
    text.pop_back();
    const auto line = ParseTraceLine(text);
    ASSERT_TRUE(line);
    EXPECT_EQ(line->tag, L"WAR");
    EXPECT_EQ(line->function, L"Test::Bar");
    EXPECT_EQ(line->message, L"a : b");
    EXPECT_EQ(ParseTraceLine(L"[TRA] 2012/07/02 13:00:00.000 -2(7) F : ")->processId, 0xFFFFFFFEU);
    EXPECT_EQ(ParseTraceLine(L"[TRA] 2012/07/02 13:00:00.000 -2(7) F : ")->message, L"");
}

TEST_F(TraceLineTest, LeavesOtherTextsAlone)
{
    for (const wchar_t* text :
         {L"", L"[", L"ERR", L"[ERR]", L"[ERR] ", L"[INF] 2012/07/02 13:00:00.000 1(2) F : m",
          L"[ERR] 2012/07/02 13:00:00 1(2) F : m", L"[ERR] 2012-07-02 13:00:00.000 1(2) F : m",
          L"[ERR] 2012/07/02 13:00:00.000 1 F : m", L"[ERR] 2012/07/02 13:00:00.000 (2) F : m",
          L"[ERR] 2012/07/02 13:00:00.000 1(2) F: m", L"[ERR] 2012/07/02 13:00:00.000 1(2)  : m",
          L"[ERR] 2012/07/02 13:00:00.000 11111111111(2) F : m", L" [ERR] 2012/07/02 13:00:00.000 1(2) F : m",
          L"(ERR] 2012/07/02 13:00:00.000 1(2) F : m"}) {
        EXPECT_FALSE(ParseTraceLine(text)) << testing::PrintToString(CString(text));
    }
}

} // namespace
