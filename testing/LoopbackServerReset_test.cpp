#include "testing/RawClient.h"

#include <gmock/gmock.h>

namespace testing_support {
namespace {

TEST(LoopbackServer, ResetIsNoOrderlyEnd)
{
    boost::system::error_code end;
    const std::string all = AskOnce({.body = "0123456789", .fault = HttpFault::kReset}, &end);
    EXPECT_EQ(end, boost::asio::error::connection_reset);
    EXPECT_EQ(all, "HTTP/1.1 200 Status\r\nContent-Length: 10\r\n\r\n01234");
}

} // namespace
} // namespace testing_support
