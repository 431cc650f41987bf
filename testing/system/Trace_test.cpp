// The trace lines of the real amporasrv, as amporactl follows them.
#include "testing/system/SystemTest.h"

namespace system_test {
namespace {

using std::chrono::seconds;
using testing::HasSubstr;
using testing::StartsWith;

constexpr seconds kLimit{60};

class SystemTrace : public CSystemTest {
protected:
    // Nobody else may listen to the debugger output, so the copy is one of amporactl, not of the rig.
    void FollowOnWindows()
    {
        EXPECT_EQ(Rig().RunControl({"start"}).exitCode, 0);
        const auto trace = Rig().StartControl({"trace", "--function", "CAmporaUpdater", "--level=tra"});
        // Nothing tells when it listens; an update makes lines.
        EXPECT_TRUE(WaitUntil(
            [&] { return Rig().RunControl({"update"}).exitCode == 0 && trace->Out().find('\n') != std::string::npos; },
            kLimit));
        const ProcessResult second = Rig().RunControl({"trace"});
        EXPECT_EQ(second.exitCode, 1);
        EXPECT_EQ(second.err, "amporactl: another program shows the debugger output already; end it first\n");
        EXPECT_EQ(Rig().RunControl({"exit", "--wait"}).exitCode, 0);
        const std::optional<std::string> line = trace->ReadLine(kLimit);
        ASSERT_TRUE(line) << trace->Err();
        const auto parsed = testing_support::ParseTraceLine(*line);
        ASSERT_TRUE(parsed) << *line;
        EXPECT_EQ(parsed->trace.level, "TRA");
        EXPECT_THAT(parsed->trace.function, StartsWith("CAmporaUpdater::"));
    }

    void FailOnLinux()
    {
        const std::unique_ptr<CCopy> copy = Rig().Start();
        AwaitArmed(*copy);
        const ProcessResult trace = Rig().RunControl({"trace"});
        EXPECT_EQ(trace.exitCode, 1);
        EXPECT_THAT(trace.err, HasSubstr("nobody keeps the trace lines of amporasrv; start it with 'systemctl"));
        EXPECT_EQ(EndCopy(*copy).exitCode, 0);
    }
};

TEST_F(SystemTrace, FollowsWhereLinesAreKeptAndSaysSoElsewhere)
{
    Rig().PutSettings(BaseSettings(Port(), kMessages));
    PlatformUnderTest() == Platform::kWindows ? FollowOnWindows() : FailOnLinux();
}

} // namespace
} // namespace system_test
