#include "app/AmporaSrvCmdLineInfo.h"

#include <gtest/gtest.h>

namespace {

BOOL IsExitMode(const std::vector<CString>& arguments)
{
    CAmporaSrvCmdLineInfo info;
    ParseCommandLine(arguments, info);
    return info.IsExitMode();
}

TEST(AmporaSrvCmdLineInfo, ExitAsAFlagSelectsExitMode)
{
    EXPECT_TRUE(IsExitMode({L"/Exit"}));
    EXPECT_TRUE(IsExitMode({L"-Exit"}));
    EXPECT_TRUE(IsExitMode({L"/other", L"-Exit", L"more"}));
}

TEST(AmporaSrvCmdLineInfo, NothingElseDoes)
{
    for (const wchar_t* argument :
         {L"/exit", L"/EXIT", L"-exit", L"Exit", L"--Exit", L"/Exit ", L"/Exits", L"/", L""}) {
        EXPECT_FALSE(IsExitMode({argument})) << testing::PrintToString(argument);
    }
    EXPECT_FALSE(IsExitMode({}));
}

} // namespace
