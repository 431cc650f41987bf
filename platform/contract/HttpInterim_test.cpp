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

TEST_F(HttpInterim, SwitchingProtocolsIsTheAnswer)
{
    Serve({.body = "yes", .headers = {{"Connection", "close"}}});
    SendBeforeAnswers("HTTP/1.1 101 Switching Protocols\r\n\r\n");
    // What follows is the other protocol's.
    EXPECT_THAT(Get(), testing::Pair(101U, testing::EndsWith("yes")));
}

} // namespace
} // namespace contract
