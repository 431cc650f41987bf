// The frame of the system tests.
#pragma once

#include "testing/LoopbackServer.h"
#include "testing/ScratchFolder.h"
#include "testing/system/HealthyReports.h"
#include "testing/system/Rig.h"

#include <gmock/gmock.h>

#include <chrono>
#include <functional>
#include <map>
#include <mutex>

namespace system_test {

using testing_support::FileBytes;

// Log levels: every message; every line.
inline constexpr unsigned kMessages = 11;
inline constexpr unsigned kEveryLine = 27;

// Of each thread: whether "Enter" and "Leave" pair up and nest.
bool ScopesBalance(const CopyOutput& pass);

// The sections of the settings that switch updating on and point to this port.
std::string BaseSettings(unsigned short port, unsigned logLevel);
// The machine-wide section with these values, which replace those of sections before.
std::string MainSettings(const std::map<std::string, int>& values);
// The section of a company with one value.
std::string SiteSetting(const std::string& company, const std::string& valueName, unsigned value);
// Switches every company off but this one, which is asked for this kind alone: two requests.
std::string OnlySetting(const std::string& wanted, unsigned dataType);

// A place to run amporasrv in and a report API on the loopback interface, which gives healthy reports unless a test
// says otherwise.
class CSystemTest : public testing::Test {
protected:
    // What to answer a request with. A null function: a healthy report.
    using AnswerFunction = std::function<testing_support::HttpAnswer(const Request&)>;

    explicit CSystemTest(Platform platform = PlatformUnderTest());
    ~CSystemTest() override;

    // Answers requests of one company with these; also of one kind only (dataType not 0).
    void SetAnswer(const std::string& company, AnswerFunction answer, unsigned dataType = 0);
    void SetAnswerForAll(const AnswerFunction& answer);

    // Starts a copy with the base settings and these more sections.
    std::unique_ptr<CCopy> StartCopy(const std::string& moreSettings = "", unsigned logLevel = kMessages);
    // Waits until a copy has begun to wait for its next update so often; its threads are at rest then. A failure of the
    // test when it does not.
    void AwaitArmed(CCopy& copy, int count = 1);
    // The same where the trace log does not tell when the pass is over. requestsBefore: how many requests there were
    // when it had not begun; it has to make one.
    void AwaitSilentPass(std::size_t requestsBefore);
    // Ends a copy by another one with "/Exit" and gives all that it has traced. A failure of the test when it does not
    // end in time.
    static CopyOutput EndCopy(CRig& rig, CCopy& copy);
    CopyOutput EndCopy(CCopy& copy) { return EndCopy(*m_rig, copy); }

    // Runs one pass with the base settings and these more sections: starts the program, and ends it when it waits for
    // the next pass. Without the lines of functions' entry and exit, which take most of a pass's time, unless asked
    // for.
    CopyOutput RunPass(const std::string& moreSettings = "", unsigned logLevel = kMessages);
    // The same where the trace log does not tell when the pass is over; it has to make a request.
    CopyOutput RunSilentPass(const std::string& moreSettings, unsigned logLevel);

    // The port that settings name; the report API's unless a test says otherwise.
    unsigned short Port() const { return m_port; }
    void SetPort(unsigned short port) { m_port = port; }
    // Waits for the report API to stall, and ends that connection. False when it does not stall.
    bool EndStalled() { return m_server->EndStalled(std::chrono::seconds(60)); }

    // What was asked for so far, in order; the one that is being answered included. Any thread.
    std::vector<testing_support::HttpExchange> Exchanges() const;
    std::vector<Request> Requests() const;
    // The days asked for so far, in order.
    std::vector<std::string> Dates() const;

    std::filesystem::path DataFile(const std::string& company, unsigned dataType) const;
    // What follows the header in a data file, which must have one.
    std::string Records(const std::string& company, unsigned dataType) const;
    // Writes something into a data file that a pass is to replace, or to leave as it is; or into every data file that
    // a company has when nothing is set.
    void PutOldFile(const std::string& company, unsigned dataType);
    void PutOldFiles(const std::string& company);

    // The file holds what healthy reports of the days asked for have to leave there, written during the last pass.
    void ExpectHealthyFile(const std::string& company, unsigned dataType) const;
    void ExpectHealthyFiles(const std::string& company) const;
    // The file is as PutOldFile left it; or every file as PutOldFiles left it.
    void ExpectOldFile(const std::string& company, unsigned dataType) const;
    void ExpectOldFiles(const std::string& company) const;
    // Nothing but a header that counts no records.
    void ExpectEmptyFile(const std::string& company, unsigned dataType) const;
    // Every company but this one has its healthy files; or every file but this one is healthy.
    void ExpectOthersHealthy(const std::string& company) const;
    void ExpectOthersHealthy(const std::string& company, unsigned dataType) const;

    CRig& Rig() { return *m_rig; }
    testing_support::CLoopbackServer& Server() { return *m_server; }
    const CHealthyReports& Healthy() const { return m_healthy; }

private:
    testing_support::HttpAnswer Answer(const testing_support::HttpExchange& exchange);
    // Null: a healthy report.
    AnswerFunction FindAnswer(const Request& request) const;
    // The files that the last pass has written are written by now.
    void NoteEndOfPass();

    CHealthyReports m_healthy;
    std::mutex m_answering;     // held by who makes an answer; who gets it sees what the answers before have done
    mutable std::mutex m_mutex; // guards the next two
    std::map<std::pair<std::string, unsigned>, AnswerFunction> m_answers;
    std::vector<testing_support::HttpExchange> m_exchanges;
    std::time_t m_before = 0; // around the last pass
    std::time_t m_after = 0;
    std::unique_ptr<CRig> m_rig;
    std::unique_ptr<testing_support::CLoopbackServer> m_server;
    unsigned short m_port;
};

} // namespace system_test
