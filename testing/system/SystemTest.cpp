#include "testing/system/SystemTest.h"

#include <algorithm>
#include <array>
#include <fstream>

namespace system_test {

using testing_support::HttpAnswer;
using testing_support::HttpExchange;
using testing_support::TraceLine;

namespace {

constexpr const char* kOldBytes = "left by an earlier pass";
constexpr std::size_t kHeaderSize = 32;
constexpr std::chrono::seconds kPassLimit{120};
constexpr std::chrono::seconds kEndLimit{20};
constexpr std::size_t kRecordSize = 40;
const TraceLine kBaseTimerArmed{"TRA", "CAmporaUpdater::ThreadProc", "Start UpdateTimer"};
const TraceLine kIntervalTimerArmed{"TRA", "CAmporaUpdater::ThreadProc", "Next UpdateTimer Started"};

} // namespace

bool ScopesBalance(const CopyOutput& pass)
{
    std::map<unsigned, std::vector<TraceLine>> byThread;
    for (const StampedLine& line : pass.lines) {
        byThread[line.thread].push_back(line.trace);
    }
    return std::all_of(byThread.begin(), byThread.end(),
                       [](const auto& entry) { return testing_support::TraceScopesBalance(entry.second); });
}

std::string BaseSettings(unsigned short port, unsigned logLevel)
{
    std::array<char, 256> values{};
    std::snprintf(values.data(), values.size(),
                  "\"Enable\"=dword:00000001\n\"LogLevel\"=dword:%08x\n\"ApiHost\"=\"127.0.0.1:%u\"\n\n", logLevel,
                  static_cast<unsigned>(port));
    return std::string("[HKEY_LOCAL_MACHINE\\Software\\Halvex\\AmporaSrv]\n") + values.data();
}

std::string MainSettings(const std::map<std::string, int>& values)
{
    std::string section = "[HKEY_LOCAL_MACHINE\\Software\\Halvex\\AmporaSrv]\n";
    for (const auto& [name, value] : values) {
        std::array<char, 32> number{};
        std::snprintf(number.data(), number.size(), "dword:%08x", static_cast<unsigned>(value));
        section += "\"" + name + "\"=" + number.data() + "\n";
    }
    return section + "\n";
}

std::string SiteSetting(const std::string& company, const std::string& valueName, unsigned value)
{
    std::array<char, 32> number{};
    std::snprintf(number.data(), number.size(), "dword:%08x", value);
    return "[HKEY_LOCAL_MACHINE\\Software\\Halvex\\AmporaSrv\\site\\" + std::to_string(CompanyOf(company).site) +
           "]\n\"" + valueName + "\"=" + number.data() + "\n\n";
}

std::string OnlySetting(const std::string& wanted, unsigned dataType)
{
    std::string settings = SiteSetting(wanted, "SupportDataType", dataType);
    for (const TestCompany& company : kTestCompanies) {
        if (company.word != wanted) {
            settings += SiteSetting(company.word, "Enable", 0);
        }
    }
    return settings;
}

CSystemTest::CSystemTest(Platform platform)
    : m_healthy(std::time(nullptr)), m_rig(MakeRig(platform)),
      m_server(std::make_unique<testing_support::CLoopbackServer>(
          [this](const HttpExchange& exchange) { return Answer(exchange); })),
      m_port(m_server->Port())
{
}

CSystemTest::~CSystemTest() = default;

HttpAnswer CSystemTest::Answer(const HttpExchange& exchange)
{
    {
        const std::scoped_lock lock(m_mutex);
        m_exchanges.push_back(exchange);
    }
    const std::optional<Request> request = ParseTarget(exchange.target);
    if (!request) {
        return {.status = 404};
    }
    const AnswerFunction answer = FindAnswer(*request);
    const std::scoped_lock answering(m_answering);
    return answer ? answer(*request) : m_healthy.Answer(*request);
}

CSystemTest::AnswerFunction CSystemTest::FindAnswer(const Request& request) const
{
    const std::scoped_lock lock(m_mutex);
    for (const unsigned dataType : {request.dataType, 0U}) {
        const auto answer = m_answers.find({request.company, dataType});
        if (answer != m_answers.end()) {
            return answer->second;
        }
    }
    return {};
}

void CSystemTest::SetAnswer(const std::string& company, AnswerFunction answer, unsigned dataType)
{
    const std::scoped_lock lock(m_mutex);
    m_answers[{company, dataType}] = std::move(answer);
}

void CSystemTest::SetAnswerForAll(const AnswerFunction& answer)
{
    for (const TestCompany& company : kTestCompanies) {
        SetAnswer(company.word, answer);
    }
}

std::unique_ptr<CCopy> CSystemTest::StartCopy(const std::string& moreSettings, unsigned logLevel)
{
    m_rig->PutSettings(BaseSettings(m_port, logLevel) + moreSettings);
    m_before = std::time(nullptr);
    return m_rig->Start();
}

void CSystemTest::AwaitArmed(CCopy& copy, int count)
{
    const auto isArmedOrOver = [&] {
        return copy.CountLine(kBaseTimerArmed) + copy.CountLine(kIntervalTimerArmed) >= count ||
               copy.WaitForExit(std::chrono::milliseconds(0));
    };
    EXPECT_TRUE(WaitUntil(isArmedOrOver, kPassLimit));
    EXPECT_FALSE(copy.WaitForExit(std::chrono::milliseconds(0))) << copy.Text();
    copy.WaitForRest();
    NoteEndOfPass();
}

CopyOutput CSystemTest::EndCopy(CRig& rig, CCopy& copy)
{
    const std::unique_ptr<CCopy> exitCopy = rig.Start({"/Exit"});
    EXPECT_EQ(exitCopy->WaitForExit(kEndLimit), 0);
    EXPECT_TRUE(copy.WaitForExit(kEndLimit)) << copy.Text();
    return copy.Trace();
}

CopyOutput CSystemTest::RunPass(const std::string& moreSettings, unsigned logLevel)
{
    const std::unique_ptr<CCopy> copy = StartCopy(moreSettings, logLevel);
    AwaitArmed(*copy);
    return EndCopy(*copy);
}

void CSystemTest::AwaitSilentPass(std::size_t requestsBefore)
{
    // A pass holds the mutex from before its first request to its end.
    const auto isOver = [&] {
        return Exchanges().size() > requestsBefore && m_rig->Do("acquire Global\\AmporaSrvUpdateMutex");
    };
    EXPECT_TRUE(WaitUntil(isOver, kPassLimit));
    EXPECT_TRUE(m_rig->Do("release Global\\AmporaSrvUpdateMutex"));
    NoteEndOfPass();
}

CopyOutput CSystemTest::RunSilentPass(const std::string& moreSettings, unsigned logLevel)
{
    const std::size_t requestsBefore = Exchanges().size();
    const std::unique_ptr<CCopy> copy = StartCopy(moreSettings, logLevel);
    AwaitSilentPass(requestsBefore);
    return EndCopy(*copy);
}

void CSystemTest::NoteEndOfPass()
{
    const std::scoped_lock answered(m_answering);
    m_after = std::time(nullptr);
}

std::vector<HttpExchange> CSystemTest::Exchanges() const
{
    const std::scoped_lock lock(m_mutex);
    return m_exchanges;
}

std::vector<Request> CSystemTest::Requests() const
{
    std::vector<Request> requests;
    for (const HttpExchange& exchange : Exchanges()) {
        if (const std::optional<Request> request = ParseTarget(exchange.target)) {
            requests.push_back(*request);
        }
    }
    return requests;
}

std::vector<std::string> CSystemTest::Dates() const
{
    std::vector<std::string> dates;
    for (const Request& request : Requests()) {
        if (std::find(dates.begin(), dates.end(), request.date) == dates.end()) {
            dates.push_back(request.date);
        }
    }
    return dates;
}

std::filesystem::path CSystemTest::DataFile(const std::string& company, unsigned dataType) const
{
    return m_rig->DataFolder() / DataFileName(company, dataType);
}

std::string CSystemTest::Records(const std::string& company, unsigned dataType) const
{
    const std::string bytes = FileBytes(DataFile(company, dataType));
    EXPECT_GE(bytes.size(), kHeaderSize) << company << " " << dataType;
    return bytes.substr(std::min(bytes.size(), kHeaderSize));
}

void CSystemTest::PutOldFile(const std::string& company, unsigned dataType)
{
    std::filesystem::create_directories(m_rig->DataFolder());
    std::ofstream(DataFile(company, dataType), std::ios::binary) << kOldBytes;
}

void CSystemTest::PutOldFiles(const std::string& company)
{
    for (const unsigned dataType : KindsOf(company)) {
        PutOldFile(company, dataType);
    }
}

void CSystemTest::ExpectHealthyFile(const std::string& company, unsigned dataType) const
{
    const std::string bytes = FileBytes(DataFile(company, dataType));
    const std::string records = m_healthy.RecordBytes(company, dataType, Dates());
    ASSERT_EQ(bytes.size(), kHeaderSize + records.size()) << company << " " << dataType;
    EXPECT_EQ(bytes.substr(0, 16), HeaderBytes(dataType, records.size() / kRecordSize)) << company << " " << dataType;
    EXPECT_EQ(bytes.substr(kHeaderSize), records) << company << " " << dataType;
    // The time of writing lies within the pass; its last field, the milliseconds, may be any.
    const std::string written = bytes.substr(16, 14);
    bool within = false;
    for (std::time_t time = m_before; time <= m_after; ++time) {
        within = within || CalendarBytes(time).substr(0, 14) == written;
    }
    EXPECT_TRUE(within) << company << " " << dataType;
}

void CSystemTest::ExpectHealthyFiles(const std::string& company) const
{
    for (const unsigned dataType : kDataTypes) {
        if ((CompanyOf(company).mask & dataType) != 0) {
            ExpectHealthyFile(company, dataType);
        } else {
            EXPECT_FALSE(std::filesystem::exists(DataFile(company, dataType))) << company << " " << dataType;
        }
    }
}

void CSystemTest::ExpectOldFile(const std::string& company, unsigned dataType) const
{
    EXPECT_EQ(FileBytes(DataFile(company, dataType)), kOldBytes) << company << " " << dataType;
}

void CSystemTest::ExpectOldFiles(const std::string& company) const
{
    for (const unsigned dataType : KindsOf(company)) {
        ExpectOldFile(company, dataType);
    }
}

void CSystemTest::ExpectEmptyFile(const std::string& company, unsigned dataType) const
{
    const std::string bytes = FileBytes(DataFile(company, dataType));
    EXPECT_EQ(bytes.size(), kHeaderSize) << company << " " << dataType;
    EXPECT_EQ(bytes.substr(0, 16), HeaderBytes(dataType, 0)) << company << " " << dataType;
}

void CSystemTest::ExpectOthersHealthy(const std::string& company) const
{
    for (const TestCompany& other : kTestCompanies) {
        if (other.word != company) {
            ExpectHealthyFiles(other.word);
        }
    }
}

void CSystemTest::ExpectOthersHealthy(const std::string& company, unsigned dataType) const
{
    for (const unsigned other : KindsOf(company)) {
        if (other != dataType) {
            ExpectHealthyFile(company, other);
        }
    }
    ExpectOthersHealthy(company);
}

} // namespace system_test
