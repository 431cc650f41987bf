// One pass of the real program against a server that means harm, and the next one against one that does not.
// AMPORA_HOSTILE_SERVERS=all runs all of them instead of a few. What each has cost is in the test framework's report.
#include "testing/system/Hostile.h"
#include "testing/system/SystemTest.h"

#include <algorithm>
#include <cstdlib>

namespace system_test {
namespace {

using testing_support::HttpAnswer;
using testing_support::TraceLine;

// docs/decisions.md: no report takes the program on Linux beyond them. The time is for two reports here.
constexpr double kProcessorLimitS = 2;
constexpr double kMemoryLimitMb = 256;

constexpr int kHostileAnswers = 2;
constexpr int kAllRequests = 42;
constexpr const char* kCompany = "tokyo";
constexpr unsigned kKind = 1;
constexpr std::size_t kHeaderSize = 32;
constexpr std::size_t kRecordSize = 40;

// WinINet decides there what is an answer and what it says; no more is asked than that files are intact.
const bool kIsWindows = PlatformUnderTest() == Platform::kWindows;

class SystemHostile : public CSystemTest, public testing::WithParamInterface<Behaviour> {
protected:
    SystemHostile()
    {
        for (const TestCompany& company : kTestCompanies) {
            PutOldFiles(company.word);
        }
    }

    Scope HostileScope() const { return GetParam().scope; }
    bool IsHostile(const std::string& company, unsigned dataType) const
    {
        const bool isFirst = company == kCompany && dataType == kKind;
        return isFirst || (HostileScope() != Scope::kTwo && HostileScope() != Scope::kConnections);
    }
    int HostileAnswers() const
    {
        if (HostileScope() == Scope::kTwo || HostileScope() == Scope::kConnections) {
            return kHostileAnswers;
        }
        return HostileScope() == Scope::kFirstDays ? kAllRequests / 2 : kAllRequests;
    }

    void ServeHostile()
    {
        const AnswerFunction hostile = [this](const Request& request) {
            const std::string report = Healthy().Answer(request).body;
            if (HostileScope() == Scope::kFirstDays && request.date != Dates().front()) {
                return HttpAnswer{.body = report};
            }
            const std::size_t turn = HostileScope() == Scope::kInTurn ? m_turn++ : 0;
            const Behaviour& behaviour =
                HostileScope() == Scope::kInTurn ? Behaviours()[turn * 5 % Behaviours().size()] : GetParam();
            return HttpAnswer{.script = behaviour.answer(report)};
        };
        if (HostileScope() == Scope::kConnections) {
            Server().SetGreeting(GetParam().answer(""), kHostileAnswers);
        } else if (HostileScope() == Scope::kTwo) {
            SetAnswer(kCompany, hostile, kKind);
        } else {
            SetAnswerForAll(hostile);
        }
    }

    // Its header tells how many records there are, unless the pass has left it alone.
    void ExpectIntactFile(const std::string& company, unsigned dataType) const
    {
        const std::string bytes = FileBytes(DataFile(company, dataType));
        const std::size_t count = (std::max(bytes.size(), kHeaderSize) - kHeaderSize) / kRecordSize;
        if (bytes.size() != kHeaderSize + count * kRecordSize || bytes.substr(0, 16) != HeaderBytes(dataType, count)) {
            ExpectOldFile(company, dataType);
        }
    }

    void ExpectHostileFile(const std::string& company, unsigned dataType) const
    {
        if (HostileScope() == Scope::kFirstDays) {
            EXPECT_EQ(Records(company, dataType), Healthy().RecordBytes(company, dataType, {Dates().at(1)}));
            return;
        }
        switch (kIsWindows ? File::kIntact : GetParam().result.file) {
        case File::kKept:
            return ExpectOldFile(company, dataType);
        case File::kTaken:
            return ExpectHealthyFile(company, dataType);
        case File::kEmpty:
            return ExpectEmptyFile(company, dataType);
        case File::kPair:
            EXPECT_EQ(Records(company, dataType).size(), 2 * kRecordSize);
            return;
        case File::kIntact:
            return ExpectIntactFile(company, dataType);
        }
    }

    void ExpectFiles() const
    {
        for (const TestCompany& company : kTestCompanies) {
            for (const unsigned dataType : KindsOf(company.word)) {
                SCOPED_TRACE(testing::Message() << company.word << " " << dataType);
                if (IsHostile(company.word, dataType)) {
                    ExpectHostileFile(company.word, dataType);
                } else {
                    ExpectHealthyFile(company.word, dataType);
                }
            }
        }
    }

    void ServeHealthy()
    {
        SetAnswer(kCompany, {}, kKind);
        SetAnswerForAll({});
    }

    // Waits for the end of a pass that begins after so many requests.
    void AwaitPass(CCopy& copy, int number, std::size_t requestsBefore)
    {
        if (GetParam().isSilent) {
            AwaitSilentPass(requestsBefore);
        } else {
            AwaitArmed(copy, number);
        }
    }

    // Whether the program has said what is expected of it, once for each hostile answer.
    void ExpectSaid(const CCopy& copy)
    {
        const std::vector<TraceLine>& expected = GetParam().result.said;
        int count = 0;
        std::string said;
        for (const TraceLine& line : expected) {
            const int times = copy.CountLine(line);
            count += times;
            said += times == 0 ? "" : line.message + " ";
        }
        EXPECT_TRUE(kIsWindows || GetParam().isSilent || expected.empty() || count == HostileAnswers())
            << count << " " << said;
        constexpr const char* kFiles[] = {"kept", "as with a healthy one", "without records", "one record a day",
                                          "intact"};
        RecordProperty("said", said);
        RecordProperty("data_file", kFiles[static_cast<std::size_t>(GetParam().result.file)]);
    }

    void ExpectLittleUsed(const CopyUsage& usage)
    {
        RecordProperty("layer", GetParam().layer);
        RecordProperty("answers", HostileAnswers());
        RecordProperty("processor_s", std::to_string(usage.processorSeconds));
        RecordProperty("peak_mb", std::to_string(usage.peakMegabytes));
        if (!kIsWindows) { // wine has needs of its own
            EXPECT_LE(usage.processorSeconds, kProcessorLimitS * HostileAnswers() / kHostileAnswers);
            EXPECT_LE(usage.peakMegabytes, kMemoryLimitMb);
        }
    }

    const unsigned m_logLevel = GetParam().isSilent ? 0 : kMessages;
    std::size_t m_turn = 0; // of the server's thread
};

TEST_P(SystemHostile, CostsItsOwnReportsAlone)
{
    const testing_support::CClosedPort nobody;
    const unsigned short port = Port();
    if (HostileScope() == Scope::kRefused) {
        SetPort(nobody.Port());
    }
    ServeHostile();
    const std::unique_ptr<CCopy> copy = StartCopy("", m_logLevel);
    AwaitPass(*copy, 1, 0);
    ExpectLittleUsed(copy->Usage());
    ExpectSaid(*copy);
    ExpectFiles();

    ServeHealthy();
    Rig().PutSettings(BaseSettings(port, m_logLevel));
    const std::size_t requestsBefore = Exchanges().size();
    EXPECT_TRUE(Rig().Do("set AmporaSrvUpdateEvent"));
    AwaitPass(*copy, 2, requestsBefore);
    ExpectOthersHealthy("");
    const CopyOutput output = EndCopy(*copy);
    EXPECT_EQ(output.exitCode, 0);
    EXPECT_EQ(output.brokenLines, 0);
}

std::string NameOf(const testing::TestParamInfo<Behaviour>& behaviour) { return behaviour.param.name; }

bool IsFew()
{
    const char* const wanted =
        std::getenv("AMPORA_HOSTILE_SERVERS"); // NOLINT(concurrency-mt-unsafe): no other thread yet
    return wanted == nullptr || std::string(wanted) != "all";
}

INSTANTIATE_TEST_SUITE_P(, SystemHostile, testing::ValuesIn(Chosen(IsFew(), kIsWindows)), NameOf);

} // namespace
} // namespace system_test
