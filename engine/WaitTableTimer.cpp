#include "engine/WaitTableTimer.h"

#include "config/TraceLog.h"
#include "engine/AutoLock.h"
#include "platform/LastError.h"

CWaitTableTimer::CWaitTableTimer() { const CTraceScope scope(L"CWaitTableTimer::CWaitTableTimer"); }

CWaitTableTimer::~CWaitTableTimer()
{
    const CTraceScope scope(L"CWaitTableTimer::~CWaitTableTimer");
    Close();
}

void CWaitTableTimer::OnTimerEvent(DWORD /*timerLowValue*/, DWORD /*timerHighValue*/)
{
    const CTraceScope scope(L"CWaitTableTimer::OnTimerEvent");
}

BOOL CWaitTableTimer::Create()
{
    const CTraceScope scope(L"CWaitTableTimer::Create");
    const CAutoLock lock(&m_lock);
    if (m_timer) {
        Close();
    }
    m_timer = platform::MakeTimer();
    if (!m_timer) {
        scope.Err(L"Timer Create Fail.(0x%08X)", platform::GetLastErrorCode());
        return FALSE;
    }
    scope.Tra(L"Created Timer");
    return TRUE;
}

BOOL CWaitTableTimer::Start(const LARGE_INTEGER* dueTime)
{
    const CTraceScope scope(L"CWaitTableTimer::Start");
    const CAutoLock lock(&m_lock);
    const BOOL started = platform::ArmTimer(m_timer, dueTime, &CWaitTableTimer::_TimerAPCProc, this);
    if (!started) {
        scope.Err(L"Timer Start Fail.(0x%08X)", platform::GetLastErrorCode());
        return started;
    }
    scope.Tra(L"Timer Started");
    return started;
}

BOOL CWaitTableTimer::Cancel()
{
    const CTraceScope scope(L"CWaitTableTimer::Cancel");
    const CAutoLock lock(&m_lock);
    if (m_timer) {
        if (platform::DisarmTimer(m_timer)) {
            scope.Tra(L"Timer Canceled.");
        } else {
            scope.War(L"Timer Cancel Fail.(0x%08X)", platform::GetLastErrorCode());
        }
    }
    return TRUE;
}

void CWaitTableTimer::Close()
{
    const CTraceScope scope(L"CWaitTableTimer::Close");
    const CAutoLock lock(&m_lock);
    if (m_timer) {
        Cancel();
        m_timer.reset();
    }
}

void CWaitTableTimer::_TimerAPCProc(void* arg, DWORD timerLowValue, DWORD timerHighValue)
{
    const CTraceScope scope(L"CWaitTableTimer::_TimerAPCProc");
    try {
        if (arg == nullptr) {
            scope.War(L"Param is not CWaitTableTimer Obj");
            return;
        }
        static_cast<CWaitTableTimer*>(arg)->OnTimerEvent(timerLowValue, timerHighValue);
    } catch (...) {
        scope.War(L"Timer Proc Exception");
    }
}
