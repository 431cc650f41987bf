#include "platform/DebugOutput.h"

#include "platform/contract/ContractTest.h"
#include "platform/LastError.h"
#include "platform/Text.h"

#include <map>
#include <sstream>

using namespace platform;

namespace contract {
namespace {

class DebugOutputContract : public ContractTest {};

TEST_F(DebugOutputContract, TextsArriveUnchangedAndInOrder)
{
    WatchDebugOutput();
    OutputDebugText(L"[TRA] 2012/07/02 13:00:00.000 1(2) CAmporaUpdater::Update : Enter\n");
    OutputDebugText(L"100% of %s and %d\n");
    OutputDebugText(L"no line feed, ");
    OutputDebugText(L"two\nlines\n");
    EXPECT_EQ(EncodeUtf8(DebugOutput()), "[TRA] 2012/07/02 13:00:00.000 1(2) CAmporaUpdater::Update : Enter\n"
                                         "100% of %s and %d\n"
                                         "no line feed, two\nlines\n");
}

TEST_F(DebugOutputContract, AnEmptyTextAddsNothing)
{
    WatchDebugOutput();
    OutputDebugText(L"");
    OutputDebugText(L"after\n");
    EXPECT_EQ(EncodeUtf8(DebugOutput()), "after\n");
}

// The debugger channel of Windows holds 4091 bytes.
TEST_F(DebugOutputContract, ALongTextArrivesWhole)
{
    WatchDebugOutput();
    const CString text = CString(4000, L'x') + L"\n";
    OutputDebugText(text);
    EXPECT_EQ(EncodeUtf8(DebugOutput()), EncodeUtf8(text));
}

TEST_F(DebugOutputContract, CharactersThatTheChannelMayLackHarmNothingElse)
{
    WatchDebugOutput();
    OutputDebugText(L"before \u6771\u4EAC \U0001F600 after\n");
    OutputDebugText(L"next\n");
    const std::string output = EncodeUtf8(DebugOutput());
    EXPECT_EQ(output.rfind("before ", 0), 0U) << output;
    EXPECT_NE(output.find(" after\nnext\n"), std::string::npos) << output;
}

TEST_F(DebugOutputContract, LastErrorStaysAsItIs)
{
    // Nobody listens.
    SetLastErrorCode(ERROR_OUTOFMEMORY);
    OutputDebugText(L"text\n");
    EXPECT_TRUE(LastErrorIs(ERROR_OUTOFMEMORY));
}

TEST_F(DebugOutputContract, TextsOfDifferentThreadsDoNotMix)
{
    WatchDebugOutput();
    constexpr int kLines = 100;
    const auto write = [](wchar_t letter) {
        for (int i = 0; i < kLines; ++i) {
            OutputDebugText(CString(200, letter) + L"\n");
        }
    };
    {
        const CRunningThread first([&] { write(L'a'); });
        const CRunningThread second([&] { write(L'b'); });
    }
    std::istringstream output(EncodeUtf8(DebugOutput()));
    std::map<std::string, int> lines;
    for (std::string line; std::getline(output, line);) {
        ++lines[line];
    }
    const std::map<std::string, int> expected = {{std::string(200, 'a'), kLines}, {std::string(200, 'b'), kLines}};
    EXPECT_EQ(lines, expected);
}

} // namespace
} // namespace contract
