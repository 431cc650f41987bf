// Answers that announce an answer, which only a real server gives.
#include "platform/contract/HttpTest.h"

#include <gmock/gmock.h>

namespace contract {
namespace {

using HttpInterim = HttpTest;

TEST_F(HttpInterim, AnswersAreSkipped)
{
    Serve({.body = "yes"});
    SendBeforeAnswers("HTTP/1.1 100 Continue\r\n\r\n");
    EXPECT_THAT(Get(), testing::Pair(200U, "yes"));
    EXPECT_THAT(Get(), testing::Pair(200U, "yes"));
}

} // namespace
} // namespace contract
