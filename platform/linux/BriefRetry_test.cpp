#include "platform/linux/BriefRetry.h"

#include <gtest/gtest.h>

namespace platform::linux {
namespace {

TEST(BriefRetry, RepeatsWhatFailsForTheMomentOnly)
{
    for (const auto& [error, isRepeated] : {std::pair(EAGAIN, true), {EACCES, true}, {EINTR, true}, {ENOLCK, false}}) {
        int attempts = 0;
        const bool done = RetryBriefly([&attempts, error = error] {
            errno = error;
            return ++attempts == 2;
        });
        EXPECT_EQ(done, isRepeated) << error;
        EXPECT_EQ(attempts, isRepeated ? 2 : 1) << error;
    }
}

} // namespace
} // namespace platform::linux
