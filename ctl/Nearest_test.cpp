#include "ctl/Nearest.h"

#include <gmock/gmock.h>

namespace {

using ctl::Suggestion;

TEST(Suggestion, NamesTheWordThatFewestChangesGive)
{
    const std::vector<std::string> known = {"show", "status", "start", "update"};
    for (const auto& [word, meant] : std::vector<std::pair<std::string, std::string>>{{"shwo", "show"},
                                                                                      {"sow", "show"},
                                                                                      {"SHOW", "show"},
                                                                                      {"updtae", "update"},
                                                                                      {"stat", "start"},
                                                                                      {"statuss", "status"}}) {
        EXPECT_EQ(Suggestion(word, known), "; did you mean '" + meant + "'?");
    }
}

TEST(Suggestion, StaysSilentWithoutANearWord)
{
    for (const std::string& word :
         {std::string("list"), std::string(), std::string("x"), std::string(1'000'000, 's')}) {
        EXPECT_EQ(Suggestion(word, {"show", "status"}), "");
    }
    EXPECT_EQ(Suggestion("show", {}), "");
}

} // namespace
