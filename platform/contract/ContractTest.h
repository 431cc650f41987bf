// What the contract tests share.
#pragma once

#include "platform/Clock.h"
#include "platform/contract/Fixture.h"
#include "platform/LastError.h"
#include "platform/Sync.h"
#include "platform/Thread.h"

#include <functional>
#include <gtest/gtest.h>
#include <utility>

namespace contract {

// One test inside its own scratch environment.
class ContractTest : public testing::Test {
protected:
    void SetUp() override { contract::SetUp(); }
    void TearDown() override { contract::TearDown(); }
};

// Whether the calling thread's last error is this one. (The system's constants do not have its type.)
inline testing::AssertionResult LastErrorIs(DWORD code)
{
    const DWORD lastError = platform::GetLastErrorCode();
    return (lastError == code ? testing::AssertionSuccess() : testing::AssertionFailure())
           << "the last error is " << lastError;
}

// Whether a call fails, that is gives FALSE or null, and leaves this as the last error.
template <typename Call>
testing::AssertionResult FailsWith(DWORD code, const Call& call)
{
    platform::SetLastErrorCode(0);
    return call() ? testing::AssertionFailure() << "it succeeds" : LastErrorIs(code);
}

// Limits a wait that should end; only a failing test reaches it.
inline constexpr DWORD kLongMs = 20000;

// A name for a named object that no other test running at the same time has.
inline CString ObjectName(const wchar_t* base) { return base + std::to_wstring(platform::CurrentProcessIdentifier()); }

// A thread that runs a function; joined when it goes.
class CRunningThread {
public:
    explicit CRunningThread(std::function<void()> work)
        : m_work(std::move(work)), m_thread(platform::StartThread(Run, &m_work))
    {
        EXPECT_NE(m_thread, nullptr);
    }
    ~CRunningThread() { Join(); }
    CRunningThread(const CRunningThread&) = delete;
    CRunningThread& operator=(const CRunningThread&) = delete;

    void Join() { EXPECT_EQ(platform::WaitForThread(m_thread, INFINITE), WAIT_OBJECT_0); }
    bool HasEnded() { return platform::WaitForThread(m_thread, 0) == WAIT_OBJECT_0; }

private:
    static DWORD Run(void* work)
    {
        (*static_cast<std::function<void()>*>(work))();
        return 0;
    }

    std::function<void()> m_work;
    platform::ThreadPtr m_thread;
};

// The result of one wait of another thread, and the last error after it.
inline DWORD WaitInOtherThread(const platform::WaitHandle& object, DWORD timeoutMs)
{
    DWORD result = WAIT_FAILED;
    CRunningThread([&] { result = platform::WaitForOne(object, timeoutMs, FALSE); }).Join();
    return result;
}

// The wall clock in milliseconds, for lower bounds. Waits may end a little before their time, by the granularity of the
// system's clock, so a bound leaves room for kEarlyMs.
inline std::int64_t ClockMs()
{
    SYSTEMTIME now = {};
    platform::ReadLocalClock(&now);
    FILETIME fileTime = {};
    EXPECT_TRUE(platform::CalendarToFileTime(&now, &fileTime));
    return static_cast<std::int64_t>(platform::CountOf(fileTime)) / 10000;
}
inline constexpr std::int64_t kEarlyMs = 20;

} // namespace contract
