#include "app/CommandLineInfo.h"

#include <gmock/gmock.h>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct Parameter {
    CString text;
    BOOL flag;
    BOOL last;

    bool operator==(const Parameter&) const = default;
};

class Recorder : public CCommandLineInfo {
public:
    void ParseParam(const wchar_t* pszParam, BOOL bFlag, BOOL bLast) override
    {
        parameters.push_back({pszParam, bFlag, bLast});
    }
    std::vector<Parameter> parameters;
};

std::vector<Parameter> Parse(const std::vector<CString>& arguments)
{
    Recorder recorder;
    ParseCommandLine(arguments, recorder);
    return recorder.parameters;
}

TEST(CommandLineInfo, SlashOrDashMakesAFlagAndGoes)
{
    EXPECT_THAT(
        Parse({L"/Exit", L"-Exit", L"Exit"}),
        ElementsAre(Parameter{L"Exit", TRUE, FALSE}, Parameter{L"Exit", TRUE, FALSE}, Parameter{L"Exit", FALSE, TRUE}));
}

TEST(CommandLineInfo, OnlyOneSlashOrDashGoes)
{
    EXPECT_THAT(Parse({L"--Exit", L"/-Exit"}),
                ElementsAre(Parameter{L"-Exit", TRUE, FALSE}, Parameter{L"-Exit", TRUE, TRUE}));
}

TEST(CommandLineInfo, EmptyAndBareArgumentsAreHandedOver)
{
    EXPECT_THAT(Parse({L"", L"/"}), ElementsAre(Parameter{L"", FALSE, FALSE}, Parameter{L"", TRUE, TRUE}));
    EXPECT_THAT(Parse({}), IsEmpty());
}

} // namespace
