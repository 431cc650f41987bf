#include "platform/Arguments.h"

#include <gmock/gmock.h>

namespace platform {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(LinuxArguments, AreDecodedWithoutTheProgramsName)
{
    const char* const words[] = {"amporasrv", "/Exit", "", "\xE6\x97\xA5 \xFF"};
    EXPECT_THAT(ProgramArguments(4, words), ElementsAre(L"/Exit", L"", L"\u65E5 \uFFFD"));
}

TEST(LinuxArguments, OfACommandLineThatHoldsNoneAreNone)
{
    const char* const words[] = {"amporasrv"};
    EXPECT_THAT(ProgramArguments(1, words), IsEmpty());
    EXPECT_THAT(ProgramArguments(0, nullptr), IsEmpty());
}

} // namespace
} // namespace platform
