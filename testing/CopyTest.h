// The frame of tests in which amporactl meets amporasrv on the simulated machine.
#pragma once

#include "app/AmporaSrvApp.h"
#include "config/SharedNames.h"
#include "testing/ControlTest.h"
#include "testing/Reports.h"

namespace testing_support {

class CCopyTest : public CControlTest {
protected:
    CCopyTest()
    {
        m_machine.PutProgram(L"amporasrv", RunCopy);
        m_machine.PutFile(DataFolder(), {.isFolder = true});
    }
    // Ends the copy and its worker.
    ~CCopyTest() override
    {
        m_machine.ClearFaults();
        m_machine.OtherProcessPosts(kWindowClassName, WM_QUIT, 0, 0);
        m_machine.RunFor(120'000);
    }

    static int RunCopy() { return CAmporaSrvApp().Run({}); }
    // Starts a copy and lets it come to rest. Its process.
    DWORD StartCopy()
    {
        const DWORD process = m_machine.StartProcess(1, RunCopy);
        m_machine.RunUntilIdle();
        return process;
    }
    void SwitchUpdatingOn() { Put(L"Enable", 1); }
    // A setting of the machine-wide hive.
    void Put(const wchar_t* name, DWORD value)
    {
        m_machine.PutDword(platform::Hive::kMachine, L"Software\\Halvex\\AmporaSrv", name, value);
    }
    using CControlTest::Put;
    bool HasEnded(DWORD process) const { return m_machine.ExitCodeOf(process).has_value(); }

    // Runs the program and expects exactly this.
    void ExpectRun(const std::vector<CString>& arguments, int exitCode, const std::string& out, const std::string& err)
    {
        EXPECT_EQ(Run(arguments), exitCode);
        EXPECT_EQ(m_out, out);
        EXPECT_EQ(m_err, err);
    }

    // The report API has a report of every kind and day, which comes this much later.
    void AnswerWithReports(DWORD latencyMs)
    {
        m_machine.SetHttpHandler([latencyMs](const HttpExchange& exchange) {
            const std::optional<Request> request = ParseTarget(exchange.target);
            if (!request) {
                return HttpAnswer{.status = 404};
            }
            const bool isUsage = KindOf(request->dataType).category == "usage";
            return HttpAnswer{.body = isUsage ? UsageReport(request->dataType, {UsageRow()})
                                              : PeakReport(request->dataType, PeakRow()),
                              .latencyMs = latencyMs};
        });
    }
};

} // namespace testing_support
