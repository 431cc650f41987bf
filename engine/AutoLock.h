// Scoped holder of a critical section.
#pragma once

#include "platform/CriticalSection.h"

// Enters a critical section when constructed and leaves it when destroyed, also by an exception.
class CAutoLock {
public:
    // section: must not be null and must outlive the lock. Waits, without limit, until it is free.
    explicit CAutoLock(platform::CCriticalSection* section) : m_section(section) { m_section->Enter(); }
    virtual ~CAutoLock() { m_section->Leave(); }
    CAutoLock(const CAutoLock&) = delete;
    CAutoLock& operator=(const CAutoLock&) = delete;

private:
    platform::CCriticalSection* m_section;
};
