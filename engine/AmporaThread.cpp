#include "engine/AmporaThread.h"

#include "config/TraceLog.h"
#include "engine/AutoLock.h"
#include "platform/Apartment.h"

thread_local const CAmporaThread::Run* CAmporaThread::t_run = nullptr;

namespace {

constexpr DWORD kDestructorTimeoutMs = 100;

} // namespace

CAmporaThread::CAmporaThread() : m_run(std::make_shared<Run>())
{
    const CTraceScope scope(L"CAmporaThread::CAmporaThread");
}

CAmporaThread::~CAmporaThread()
{
    const CTraceScope scope(L"CAmporaThread::~CAmporaThread");
    if (m_thread) {
        CAmporaThread::Stop(kDestructorTimeoutMs);
    }
}

BOOL CAmporaThread::Start()
{
    const CTraceScope scope(L"CAmporaThread::Start");
    const CAutoLock lock(&m_lock);
    if (m_thread) {
        return FALSE;
    }
    m_run = std::make_shared<Run>();
    m_run->owner = this;
    auto launch = std::make_unique<Launch>(Launch{this, weak_from_this().lock(), m_run});
    m_thread = platform::StartThread(&CAmporaThread::_CallThreadProc, launch.get());
    if (!m_thread) {
        scope.Err(L"Thread Create Fail");
        return FALSE;
    }
    // The thread owns it now.
    static_cast<void>(launch.release());
    return TRUE;
}

void CAmporaThread::Stop(DWORD timeoutMs)
{
    const CTraceScope scope(L"CAmporaThread::Stop");
    if (!m_thread) {
        return;
    }
    // NOLINTNEXTLINE(clang-analyzer-optin.cplusplus.VirtualCall): the destructor calls this class's own
    SetExit();
    if (platform::WaitForThread(m_thread, timeoutMs) == WAIT_TIMEOUT) {
        // The thread may have started to wait just after the signal that was to wake it.
        platform::InterruptWait(m_thread);
    }
    const CAutoLock lock(&m_lock);
    m_thread.reset();
}

void CAmporaThread::SetExit()
{
    const CTraceScope scope(L"CAmporaThread::SetExit");
    const CAutoLock lock(&m_lock);
    m_run->exitFlag = 1;
}

bool CAmporaThread::IsExitSet() const
{
    const Run* run = t_run != nullptr && t_run->owner == this ? t_run : m_run.get();
    return run->exitFlag != 0;
}

DWORD CAmporaThread::_CallThreadProc(void* argument)
{
    const CTraceScope scope(L"CAmporaThread::_CallThreadProc");
    if (argument == nullptr) {
        return 0;
    }
    const std::unique_ptr<Launch> launch(static_cast<Launch*>(argument));
    t_run = launch->run.get();
    try {
        platform::EnterApartment();
        launch->object->ThreadProc();
        platform::LeaveApartment();
    } catch (...) { // NOLINT(bugprone-empty-catch): the thread ends; a later Start makes a new one
    }
    t_run = nullptr;
    return 0;
}
