// The frame of tests that run the whole program on the simulated machine.
#pragma once

#include "app/AmporaSrvApp.h"
#include "app/AmporaSrvDlg.h"
#include "config/SharedNames.h"
#include "config/TraceLog.h"
#include "platform/sim/Machine.h"
#include "testing/Trace.h"

#include <gmock/gmock.h>

namespace testing_support {

inline constexpr char kInitName[] = "CAmporaSrvApp::InitInstance";
inline constexpr char kExitName[] = "CAmporaSrvApp::ExitInstance";
inline constexpr char kThreadName[] = "CAmporaUpdater::ThreadProc";

// A machine on which every message of the program is traced, updating is off, and passes follow each other exactly
// every 30 minutes.
class CProgramTest : public testing::Test {
protected:
    CProgramTest()
    {
        Put(L"LogLevel", kTraceErr | kTraceWar | kTraceTra);
        Put(L"IntervalMin", 0);
        Put(L"IntervalMax", 0);
    }
    // Ends the copies of both sessions and waits for their workers.
    ~CProgramTest() override
    {
        m_machine.ClearFaults();
        for (const unsigned session : {1U, 2U}) {
            m_machine.OtherProcessPosts(kWindowClassName, WM_QUIT, 0, 0, session);
        }
        m_machine.RunFor(120'000);
        g_dwLogLevel = 0;
    }

    void Put(const wchar_t* name, DWORD value)
    {
        m_machine.PutDword(platform::Hive::kMachine, L"Software\\Halvex\\AmporaSrv", name, value);
    }

    // Starts the program and lets it come to rest. Its process.
    DWORD Start(const std::vector<CString>& arguments = {}, unsigned session = 1)
    {
        const DWORD process = m_machine.StartProcess(session, [arguments] { return CAmporaSrvApp().Run(arguments); });
        m_machine.RunUntilIdle();
        return process;
    }
    bool HasEnded(DWORD process) const { return m_machine.ExitCodeOf(process).has_value(); }
    // Posts a message to the running copy and lets it come to rest.
    void Post(UINT message, WPARAM wParam = 0, LPARAM lParam = 0)
    {
        EXPECT_TRUE(m_machine.OtherProcessPosts(kWindowClassName, message, wParam, lParam));
        m_machine.RunUntilIdle();
    }
    void NotifyPower(WPARAM event)
    {
        m_machine.NotifyPower(event);
        m_machine.RunUntilIdle();
    }
    void NotifySession(WPARAM code, unsigned session = 1)
    {
        m_machine.NotifySession(session, code);
        m_machine.RunUntilIdle();
    }

    // The messages since the last call.
    std::vector<TraceLine> Messages()
    {
        std::vector<TraceLine> lines = TraceMessages();
        m_machine.ClearDebugLines();
        return lines;
    }
    // Those of one function.
    std::vector<TraceLine> MessagesOf(const std::string& function)
    {
        std::vector<TraceLine> lines = Messages();
        std::erase_if(lines, [&](const auto& line) { return line.function != function; });
        return lines;
    }

    platform::sim::CMachine m_machine;
};

} // namespace testing_support
