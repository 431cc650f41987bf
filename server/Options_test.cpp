#include "server/Options.h"

#include <gmock/gmock.h>

namespace reportd {
namespace {

TEST(ReportdOptions, DefaultsAreLoopbackAndThePortThatClientsAsk)
{
    const Options options = ParseOptions({});
    EXPECT_EQ(options.listen, "127.0.0.1");
    EXPECT_EQ(options.port, 8470);
    EXPECT_FALSE(options.help);
    EXPECT_FALSE(options.version);
}

TEST(ReportdOptions, TakesAddressAndPort)
{
    const Options options = ParseOptions({"--listen", "::1", "--port", "0"});
    EXPECT_EQ(options.listen, "::1");
    EXPECT_EQ(options.port, 0);
    EXPECT_EQ(ParseOptions({"--port", "65535"}).port, 65535);
}

TEST(ReportdOptions, TakesHelpAndVersion)
{
    EXPECT_TRUE(ParseOptions({"--help"}).help);
    EXPECT_TRUE(ParseOptions({"--version"}).version);
}

TEST(ReportdOptions, RefusesWhatItDoesNotKnow)
{
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{{"--listne"},
                                                                                           {"8470"},
                                                                                           {""},
                                                                                           {"--listen"},
                                                                                           {"--port"},
                                                                                           {"--port", ""},
                                                                                           {"--port", "65536"},
                                                                                           {"--port", "-1"},
                                                                                           {"--port", "80x"},
                                                                                           {"--port", "x"}}) {
        EXPECT_THROW(ParseOptions(arguments), COptionsError) << testing::PrintToString(arguments);
    }
}

} // namespace
} // namespace reportd
