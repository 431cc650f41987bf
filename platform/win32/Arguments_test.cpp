#include "platform/Arguments.h"

#include "platform/Thread.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace platform {
namespace {

// The test framework gives this argument to the process of a death test, once; a filter it adds to the one that the
// tests themselves were started with.
bool NamesTheDeathTest(const CString& argument) { return argument.starts_with(L"--gtest_internal_run_death_test="); }

TEST(Win32Arguments, AreThoseOfTheCommandLine)
{
    // A process of a death test is this program, started once more.
    EXPECT_EXIT(EndProcess(static_cast<int>(std::ranges::count_if(ProgramArguments(0, nullptr), NamesTheDeathTest))),
                testing::ExitedWithCode(1), "");
}

} // namespace
} // namespace platform
