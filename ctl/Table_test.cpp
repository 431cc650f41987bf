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

} // namespace
