#include "testing/attack/Target.h"

#include "testing/process/linux/Rest.h"
#include "testing/ScratchFolder.h"

#include <algorithm>
#include <chrono>

namespace attack {

namespace fs = std::filesystem;
using namespace system_test;

namespace {

// Far more than anything takes, but for the program's own limit of 30 s for a silent server.
constexpr std::chrono::seconds kPassLimit{60};
constexpr std::chrono::seconds kEndLimit{10};
constexpr std::size_t kHeaderSize = 32;
constexpr std::size_t kRecordSize = 40;
constexpr std::size_t kValueSize = 8;  // at its beginning
constexpr std::size_t kTimeBegin = 16; // of the time of writing
constexpr std::size_t kTimeSize = 16;
constexpr std::size_t kCheckedTimeSize = 14; // without the milliseconds
constexpr int kMinutesOfPasses = 50;         // less than what would bring other records into the files

// All that may be in the rig's folder beside the data files.
constexpr const char* kKnownPaths[] = {"common",
                                       "common/AmporaSrv",
                                       "lock",
                                       "lock/AmporaSrvUpdateMutex",
                                       "attack",
                                       "machine",
                                       "machine/AmporaSrv",
                                       "machine/AmporaSrv/settings.reg",
                                       "run",
                                       "run/AmporaSrv",
                                       "run/AmporaSrv/Ampora",
                                       "run/AmporaSrv/AmporaSrvMutex",
                                       "run/AmporaSrv/AmporaSrvUpdateEvent",
                                       "user",
                                       "user/AmporaSrv",
                                       "user/AmporaSrv/settings.reg"};

template <class Function>
void ForEachFile(Function function)
{
    for (const auto& company : testing_support::kTestCompanies) {
        for (const unsigned dataType : KindsOf(company.word)) {
            function(company.word, dataType);
        }
    }
}

// A file of these records, but for the time of writing.
std::string FileOf(unsigned dataType, const std::string& records)
{
    return HeaderBytes(dataType, records.size() / kRecordSize) + std::string(kTimeSize, '\0') + records;
}

// Whether the file is the beginning of what is expected, or all of it, whenever it was written.
bool IsBeginningOf(const std::string& expected, std::string bytes)
{
    for (std::size_t i = kTimeBegin; i < std::min(bytes.size(), kHeaderSize); ++i) {
        bytes[i] = '\0';
    }
    return expected.starts_with(bytes);
}

// Whether a file has some of the records in their order, some with the value 0, and counts them.
bool IsThinned(unsigned dataType, const std::string& records, const std::string& bytes)
{
    const std::size_t count = (bytes.size() - kHeaderSize) / kRecordSize;
    if (bytes.size() != kHeaderSize + count * kRecordSize || !bytes.starts_with(HeaderBytes(dataType, count))) {
        return false;
    }
    std::size_t next = 0;
    for (std::size_t i = kHeaderSize; i < bytes.size(); i += kRecordSize) {
        const std::string times = bytes.substr(i + kValueSize, kRecordSize - kValueSize);
        while (next < records.size() && records.compare(next + kValueSize, times.size(), times) != 0) {
            next += kRecordSize;
        }
        const std::string value = bytes.substr(i, kValueSize);
        if (next >= records.size() || (value != Bytes64(0) && records.compare(next, kValueSize, value) != 0)) {
            return false;
        }
        next += kRecordSize;
    }
    return true;
}

// Those whose bits are set, the first one's is the lowest.
std::vector<std::string> Chosen(const std::vector<std::string>& all, unsigned bits)
{
    std::vector<std::string> chosen;
    for (const std::string& each : all) {
        if ((bits & 1) != 0) {
            chosen.push_back(each);
        }
        bits >>= 1;
    }
    return chosen;
}

} // namespace

CTarget::CTarget() : m_server([this](const testing_support::HttpExchange& exchange) { return Answer(exchange.target); })
{
    m_rig.PutSettings("[HKEY_LOCAL_MACHINE\\Software\\Halvex\\AmporaSrv]\n\"Enable\"=dword:00000001\n"
                      "\"LogLevel\"=dword:00000003\n\"ApiHost\"=\"127.0.0.1:" +
                      std::to_string(m_server.Port()) + "\"\n");
    // Settings of the last two seconds are read again at each use, which would make the first runs longer than the
    // others.
    const std::time_t written = std::time(nullptr);
    WaitUntil([written] { return std::time(nullptr) > written + 2; }, kPassLimit);
}

testing_support::HttpAnswer CTarget::Answer(const std::string& target)
{
    const std::scoped_lock lock(m_mutex);
    const std::optional<Request> request = ParseTarget(target);
    if (!request) {
        return {.status = 404};
    }
    ++m_requests;
    if (std::ranges::find(m_dates, request->date) == m_dates.end()) {
        m_dates.push_back(request->date);
        std::ranges::sort(m_dates); // the first one's request may have failed before it came here
    }
    return m_reports.Answer(*request);
}

int CTarget::RequestCount() const
{
    const std::scoped_lock lock(m_mutex);
    return m_requests;
}

void CTarget::BeginPass()
{
    m_passBegin = std::time(nullptr);
    ForEachFile([this](const std::string& company, unsigned dataType) {
        m_old[DataFileName(company, dataType)] = Bytes(company, dataType);
    });
    const std::scoped_lock lock(m_mutex);
    m_reports = CHealthyReports(m_begin + std::time_t{60} * (++m_passes % kMinutesOfPasses));
    m_dates.clear();
    m_requests = 0;
}

std::optional<int> CTarget::AwaitRest(CCopy& copy)
{
    std::optional<int> exitCode;
    const auto isOver = [&] {
        exitCode = copy.WaitForExit(std::chrono::milliseconds(0));
        return exitCode || testing_support::IsAtRest(static_cast<int>(copy.ProcessId()));
    };
    if (!WaitUntil(isOver, kPassLimit)) {
        throw CFinding("it does not come to rest");
    }
    return exitCode;
}

bool CTarget::MakeAnotherPass(CCopy& copy)
{
    BeginPass();
    return m_rig.Do("set AmporaSrvUpdateEvent") && !AwaitRest(copy);
}

void CTarget::End(CCopy& copy)
{
    m_rig.Do("post Ampora 18 0 0");
    const std::optional<int> exitCode = copy.WaitForExit(kEndLimit);
    if (exitCode != 0) {
        throw CFinding(exitCode ? "told to end, it ends with status " + std::to_string(*exitCode)
                                : "it does not end when it is told to");
    }
}

void CTarget::Recover()
{
    BeginPass();
    const std::unique_ptr<CCopy> copy = m_rig.Start();
    if (AwaitRest(*copy)) {
        throw CFinding("the next copy ends by itself: " + copy->Text());
    }
    if (!FilesAreRight()) {
        throw CFinding("the next copy's pass does not set all files right: " + copy->Text());
    }
    End(*copy);
}

std::string CTarget::Bytes(const std::string& company, unsigned dataType) const
{
    return testing_support::FileBytes(m_rig.DataFolder() / DataFileName(company, dataType));
}

bool CTarget::IsWrittenNow(const std::string& bytes) const
{
    bool isInTime = false;
    // This clock may be some milliseconds behind the program's.
    const std::time_t end = std::time(nullptr) + 1;
    for (std::time_t time = m_passBegin; bytes.size() >= kHeaderSize && time <= end; ++time) {
        isInTime =
            isInTime || bytes.substr(kTimeBegin, kCheckedTimeSize) == CalendarBytes(time).substr(0, kCheckedTimeSize);
    }
    return isInTime;
}

bool CTarget::IsNew(const std::string& bytes, const std::string& expected) const
{
    return IsWrittenNow(bytes) && bytes.size() == expected.size() && IsBeginningOf(expected, bytes);
}

int& CTarget::CountOf(FileCounts& counts, const std::string& company, unsigned dataType) const
{
    const std::string name = DataFileName(company, dataType);
    const std::string bytes = Bytes(company, dataType);
    if (bytes == m_old.at(name)) {
        return counts.old;
    }
    bool isCut = false;
    // A day whose answer was lost is left out.
    for (unsigned days = 1; days < 1U << m_dates.size(); ++days) {
        const std::string expected = FileOf(dataType, m_reports.RecordBytes(company, dataType, Chosen(m_dates, days)));
        if (IsNew(bytes, expected)) {
            return counts.renewed;
        }
        isCut = isCut || (bytes.size() < expected.size() && IsBeginningOf(expected, bytes));
    }
    if (isCut) {
        return counts.cut;
    }
    if (IsWrittenNow(bytes) && IsThinned(dataType, m_reports.RecordBytes(company, dataType, m_dates), bytes)) {
        return counts.thinned;
    }
    throw CFinding(name + " is neither old nor new nor cut off; it has " + std::to_string(bytes.size()) + " bytes");
}

FileCounts CTarget::LookAtFiles(bool mayThin) const
{
    const std::scoped_lock lock(m_mutex);
    FileCounts counts;
    ForEachFile([&](const std::string& company, unsigned dataType) { ++CountOf(counts, company, dataType); });
    if (counts.thinned != 0 && !mayThin) {
        throw CFinding("records are missing");
    }
    ExpectNoOtherFiles();
    return counts;
}

bool CTarget::FilesAreRight() const
{
    const std::scoped_lock lock(m_mutex);
    bool areRight = m_dates.size() == 2;
    ForEachFile([&](const std::string& company, unsigned dataType) {
        const std::string bytes = Bytes(company, dataType);
        const std::string expected = FileOf(dataType, m_reports.RecordBytes(company, dataType, m_dates));
        areRight = areRight && IsNew(bytes, expected);
    });
    return areRight;
}

void CTarget::ExpectNoOtherFiles() const
{
    for (const auto& entry : fs::recursive_directory_iterator(m_rig.ScratchFolder())) {
        const std::string path = fs::relative(entry.path(), m_rig.ScratchFolder());
        const bool isDataFile = path.starts_with("common/AmporaSrv/") && m_old.contains(entry.path().filename());
        if (!isDataFile && std::ranges::find(kKnownPaths, path) == std::end(kKnownPaths)) {
            throw CFinding("it leaves " + path);
        }
    }
}

} // namespace attack
