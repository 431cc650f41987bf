#include "ctl/Table.h"

#include <gmock/gmock.h>

namespace {

TEST(Table, IsEmptyUntilItHasARow)
{
    CTable table({{L"A", false}});
    EXPECT_TRUE(table.IsEmpty());
    table.AddRow({L"x"});
    EXPECT_FALSE(table.IsEmpty());
}

TEST(Table, ShowsItsTitlesWithoutRows)
{
    EXPECT_EQ(CTable({{L"NAME", false}, {L"COUNT", true}}).Text(), L"NAME  COUNT\n");
}

TEST(Table, AlignsTextLeftAndNumbersRight)
{
    CTable table({{L"NAME", false}, {L"N", true}, {L"REST", false}});
    table.AddRow({L"a", L"1", L"x"});
    table.AddRow({L"longer", L"1000", L"y"});
    EXPECT_EQ(table.Text(), L"NAME       N  REST\n"
                            L"a          1  x\n"
                            L"longer  1000  y\n");
}

TEST(Table, LeavesNoBlankAtALinesEnd)
{
    CTable table({{L"A", false}, {L"B", false}});
    table.AddRow({L"x", L""});
    table.AddRow({L"", L""});
    EXPECT_EQ(table.Text(), L"A  B\nx\n\n");
}

TEST(Table, FoldsItsRowsWhereALineIsTooShort)
{
    CTable table({{L"NAME", false}, {L"COUNT", true}, {L"WRITTEN", false}, {L"N", true}});
    table.AddRow({L"a", L"1", L"x", L"2"});
    table.AddRow({L"longer", L"1000", L"yesterday", L"3"});
    const CString whole = table.Text();
    EXPECT_EQ(table.Text(27), whole);
    EXPECT_EQ(table.Text(26), L"NAME    COUNT  WRITTEN\n"
                              L"    N\n"
                              L"a           1  x\n"
                              L"    2\n"
                              L"longer   1000  yesterday\n"
                              L"    3\n");
    EXPECT_EQ(table.Text(20), L"NAME    COUNT\n"
                              L"    WRITTEN    N\n"
                              L"a           1\n"
                              L"    x          2\n"
                              L"longer   1000\n"
                              L"    yesterday  3\n");
    // A column that is too wide for every line has one of its own.
    EXPECT_EQ(table.Text(1), L"NAME\n    COUNT\n    WRITTEN\n    N\n"
                             L"a\n        1\n    x\n    2\n"
                             L"longer\n     1000\n    yesterday\n    3\n");
}

} // namespace
