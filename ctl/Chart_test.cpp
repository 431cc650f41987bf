#include "testing/ControlTest.h"
#include "testing/ScratchFolder.h"

#include <nlohmann/json.hpp>

namespace {

using namespace catalogue;
using namespace testing_support;

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

// The machine's clock says 2012-07-02 13:00.
Record Hours(std::uint64_t value, WORD day, WORD hour)
{
    const SYSTEMTIME start{2012, 7, 0, day, hour, 0, 0, 0};
    const SYSTEMTIME end = hour == 23 ? SYSTEMTIME{2012, 7, 0, static_cast<WORD>(day + 1), 0, 0, 0, 0}
                                      : SYSTEMTIME{2012, 7, 0, day, static_cast<WORD>(hour + 1), 0, 0, 0};
    return {value, start, end};
}

class Chart : public CControlTest {
protected:
    // Estimates of the whole day; hourly means until noon, of which 5-minute measurements stand for 11:00 to 12:00;
    // both peaks, today's and tomorrow's.
    void PutDay()
    {
        Records estimated;
        for (WORD hour = 0; hour < 24; ++hour) {
            estimated.push_back(Hours(1000U + 100U * hour, 2, hour));
        }
        Records actual;
        for (WORD hour = 0; hour < 12; ++hour) {
            actual.push_back(Hours(2000, 2, hour));
        }
        Put(kTokyo, kEstimatedUsage, FileOf(kEstimatedUsage, estimated));
        Put(kTokyo, kActualUsage, FileOf(kActualUsage, actual));
        Put(kTokyo, kInstantUsage, FileOf(kInstantUsage, {FiveMinutes(900, 11, 5), FiveMinutes(1100, 11, 0)}));
        Put(kTokyo, kPeakSupply, FileOf(kPeakSupply, {Hours(5000, 2, 14), Hours(1, 3, 14)}));
        Put(kTokyo, kPeakDemand, FileOf(kPeakDemand, {Hours(3300, 2, 23), Hours(2, 3, 14)}));
    }
};

constexpr const char* kAsciiChart = R"(Tokyo, 2012-07-02
   MW              now 13:00
5,000 +. . . . . . . . . . . . . . .
      |                |
4,000 +                |
      |                |
3,000 + . . . . . . . .|. . . . ooooo
      |                |   ooooo
      |               ooooo
2,000 +#########oooooo |
      |####ooooo####   |
1,000 +oooo##########  |
      |##############  |
      |##############  |
    0 ++------+-------+------+------+
      0:00  6:00    12:00  18:00   24:00
# demand   o forecast
. . peak demand 3,300 MW, 23:00 - 24:00
. . peak supply 5,000 MW, 14:00 - 15:00
)";

// The most characters that a line of a text has.
std::size_t WidthOf(const std::string& text)
{
    std::istringstream lines(text);
    std::size_t width = 0;
    for (std::string line; std::getline(lines, line);) {
        width = std::max(width, platform::DecodeUtf8(line).size());
    }
    return width;
}

TEST_F(Chart, DrawsTheDayForTheTerminal)
{
    PutDay();
    m_machine.SetTerminal(40, false, false);
    EXPECT_EQ(Run({L"chart", L"tokyo"}), 0);
    EXPECT_EQ(m_out, kAsciiChart);
    EXPECT_EQ(m_err, "");
}

TEST_F(Chart, UsesWhatTheTerminalAllows)
{
    PutDay();
    const struct {
        int columns;
        bool allowsColour;
        bool showsUnicode;
        std::size_t width;
    } cases[] = {{0, false, true, 80}, {100, true, true, 100}, {100, false, false, 100}, {20, false, false, 32}};
    for (const auto& terminal : cases) {
        m_machine.SetTerminal(terminal.columns, terminal.allowsColour, terminal.showsUnicode);
        EXPECT_EQ(Run({L"chart", L"tokyo"}), 0);
        EXPECT_EQ(m_out.find("\x1b[34m") != std::string::npos, terminal.allowsColour);
        EXPECT_EQ(m_out.find("\xE2\x96\x88") != std::string::npos, terminal.showsUnicode);
        if (!terminal.allowsColour) {
            EXPECT_EQ(WidthOf(m_out), terminal.width);
        }
    }
}

TEST_F(Chart, WritesItsValuesAsJson)
{
    PutDay();
    EXPECT_EQ(Run({L"chart", L"tokyo", L"--json"}), 0);
    const nlohmann::json document = nlohmann::json::parse(m_out);
    EXPECT_EQ(document["schema"], "amporactl.chart");
    EXPECT_EQ(document["company"], "tokyo");
    EXPECT_EQ(document["date"], "2012-07-02");
    EXPECT_EQ(document["now"], "2012-07-02T13:00:00");
    // In order of time, whatever the file's order is.
    EXPECT_EQ(document["instant"],
              nlohmann::json::parse(R"([{"start": "2012-07-02T11:00:00", "end": "2012-07-02T11:05:00", "value": 1100},
                                        {"start": "2012-07-02T11:05:00", "end": "2012-07-02T11:10:00", "value": 900}])"));
    EXPECT_EQ(document["actual"].size(), 12U);
    EXPECT_EQ(document["estimated"].size(), 24U);
    EXPECT_EQ(document["peakSupply"]["value"], 5000);
    EXPECT_EQ(document["peakDemand"]["end"], "2012-07-03T00:00:00");
}

TEST_F(Chart, WritesADrawingAndAPage)
{
    PutDay();
    const CScratchFolder scratch;
    for (const auto& [option, start] : {std::pair(L"--svg", "<svg "), std::pair(L"--html", "<!DOCTYPE html>")}) {
        EXPECT_EQ(Run({L"chart", L"tokyo", option, L"-"}), 0);
        const std::string drawing = m_out;
        EXPECT_THAT(drawing, AllOf(testing::StartsWith(start), HasSubstr("Tokyo, 2012-07-02"), HasSubstr("now 13:00"),
                                   HasSubstr("peak supply 5,000 MW, 14:00 - 15:00"),
                                   HasSubstr("peak demand 3,300 MW, 23:00 - 24:00"),
                                   HasSubstr("Demand from 0:00 to 11:10, between 900 and 2,000 MW.")));
        const std::filesystem::path file = scratch.Path() / "chart";
        EXPECT_EQ(Run({L"chart", L"tokyo", option, file.wstring()}), 0);
        EXPECT_EQ(m_out, "");
        EXPECT_EQ(FileBytes(file), drawing);
    }
}

TEST_F(Chart, DrawsWhatThereIs)
{
    Put(kKyushu, kPeakSupply, FileOf(kPeakSupply, {Hours(5000, 2, 14)}));
    Put(kKyushu, kPeakDemand, {1, 2, 3});
    EXPECT_EQ(Run({L"chart", L"kyushu"}), 1);
    EXPECT_EQ(m_err, Complaint(kKyushu, kPeakDemand, "it has 3 bytes, less than a header (32 bytes)"));
    EXPECT_THAT(m_out, AllOf(HasSubstr("peak supply 5,000 MW, 14:00 - 15:00\n"), Not(HasSubstr("demand"))));
}

TEST_F(Chart, DrawsValuesOfAnySize)
{
    Put(kTokyo, kInstantUsage, FileOf(kInstantUsage, {FiveMinutes(0xFFFFFFFFFFFFFFFF, 12, 0), FiveMinutes(0, 12, 5)}));
    EXPECT_EQ(Run({L"chart", L"tokyo"}), 0);
    EXPECT_THAT(m_out, HasSubstr("\n1,000,000,000 "));
    Put(kTokyo, kInstantUsage, FileOf(kInstantUsage, {FiveMinutes(0, 12, 5)}));
    EXPECT_EQ(Run({L"chart", L"tokyo"}), 0);
    EXPECT_THAT(m_out, HasSubstr("\n1,000 "));
}

TEST_F(Chart, NoFiguresOfTodayIsAFailure)
{
    const SYSTEMTIME noon{2012, 7, 0, 2, 12, 0, 0, 0};
    const std::vector<Records> nothing = {{},
                                          {Hours(1, 1, 23)},
                                          {Hours(1, 3, 0)},
                                          // Of unknown start, end or length.
                                          {{1, {}, noon}, {1, noon, {}}, {1, noon, noon}}};
    for (const Records& records : nothing) {
        Put(kTokyo, kActualUsage, FileOf(kActualUsage, records));
        for (const wchar_t* const option : {L"--json", L"--svg=-", L"--folder=."}) {
            const bool isOther = CString(option) == L"--folder=.";
            EXPECT_EQ(Run({L"chart", L"tokyo", option}), 1);
            EXPECT_EQ(m_out, "");
            EXPECT_EQ(m_err, "amporactl: no figures of Tokyo for today (2012-07-02) in " +
                                 (isOther ? "." : platform::EncodeUtf8(DataFolder())) + "\n");
        }
    }
}

} // namespace
