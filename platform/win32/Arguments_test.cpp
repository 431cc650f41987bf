#include "platform/Arguments.h"

#include "platform/Thread.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace platform {
namespace {

bool NamesATest(const CString& argument) { return argument.starts_with(L"--gtest_filter="); }

TEST(Win32Arguments, AreThoseOfTheCommandLine)
{
    // A process of a death test is this program, started with the test's name.
    EXPECT_EXIT(EndProcess(static_cast<int>(std::ranges::count_if(ProgramArguments(0, nullptr), NamesATest))),
                testing::ExitedWithCode(1), "");
}

} // namespace
} // namespace platform
