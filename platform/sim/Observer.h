// What somebody who watches the simulated machine is told.
#pragma once

#include "platform/Settings.h"
#include "platform/Types.h"

namespace platform::sim {

struct SimFile;

// A thread that does something.
struct Caller {
    DWORD processId = 0;
    unsigned session = 0;
    DWORD threadId = 0;
};

// Told of what happens, at the moment at which it happens; most members on the thread that does it. A member looks at
// the machine but changes nothing and waits for nothing. Those that are not of interest do nothing.
class CObserver {
public:
    virtual ~CObserver() = default;

    // A thread starts another one, or a process's first one; a thread has ended.
    virtual void OnThreadStarted(const Caller& starter, const Caller& started);
    virtual void OnThreadEnded(const Caller& thread);
    // A mutex or event is made that was not there. session: the object's, 0 for one of the whole machine.
    virtual void OnObjectMade(unsigned session, const CString& name);
    virtual void OnEventPulsed(unsigned session, const CString& name, const Caller& caller);
    // A setting is looked for in one hive; value: null when it is not found.
    virtual void OnSettingQueried(const Caller& caller, Hive hive, const CString& keyPath, const CString& valueName,
                                  const SettingsValue* value);
    // A thread gets a mutex that nobody owned; it gives it up altogether, or ends as its owner. session: the mutex's, 0
    // for one of the whole machine.
    virtual void OnMutexAcquired(unsigned session, const CString& name, const Caller& owner);
    virtual void OnMutexReleased(unsigned session, const CString& name, const Caller& owner, bool abandoned);
    // A file is opened for replacing, its old content gone; it is closed with this content.
    virtual void OnFileOpened(const Caller& caller, const CString& path);
    virtual void OnFileClosed(const Caller& caller, const CString& path, const SimFile& file);
    virtual void OnDebugLine(const Caller& caller, const CString& text);
};

inline void CObserver::OnThreadStarted(const Caller& /*starter*/, const Caller& /*started*/) {}
inline void CObserver::OnThreadEnded(const Caller& /*thread*/) {}
inline void CObserver::OnObjectMade(unsigned /*session*/, const CString& /*name*/) {}
inline void CObserver::OnEventPulsed(unsigned /*session*/, const CString& /*name*/, const Caller& /*caller*/) {}
inline void CObserver::OnSettingQueried(const Caller& /*caller*/, Hive /*hive*/, const CString& /*keyPath*/,
                                        const CString& /*valueName*/, const SettingsValue* /*value*/)
{
}
inline void CObserver::OnMutexAcquired(unsigned /*session*/, const CString& /*name*/, const Caller& /*owner*/) {}
inline void CObserver::OnMutexReleased(unsigned /*session*/, const CString& /*name*/, const Caller& /*owner*/,
                                       bool /*abandoned*/)
{
}
inline void CObserver::OnFileOpened(const Caller& /*caller*/, const CString& /*path*/) {}
inline void CObserver::OnFileClosed(const Caller& /*caller*/, const CString& /*path*/, const SimFile& /*file*/) {}
inline void CObserver::OnDebugLine(const Caller& /*caller*/, const CString& /*text*/) {}

} // namespace platform::sim
