// The updater: its worker thread and schedule, the objects it shares with other processes, and the update pass.
#pragma once

#include "engine/AmporaThread.h"
#include "engine/RandomRule.h"
#include "fetch/AmporaHttpClient.h"
#include "fetch/AmporaSiteConfig.h"
#include "platform/Sync.h"

class CTraceLog;
class CWaitTableTimer;

// The owning thread calls Start and Stop, the worker thread the update operations. Must be held by a std::shared_ptr
// where the worker may outlive a Stop (AmporaThread.h).
class CAmporaUpdater : public CAmporaThread {
public:
    CAmporaUpdater();
    ~CAmporaUpdater() override;

    // Creates the named objects and the worker. TRUE when running, also when it already was; FALSE, with nothing left
    // open, on failure. Throws std::bad_alloc, with nothing left open either.
    BOOL Start() override;
    // Asks the worker to end, wakes it, waits at most timeoutMs milliseconds and closes the named objects. A worker
    // that takes longer is in a pass, whose mutex it keeps, or it missed the pulse and is interrupted.
    void Stop(DWORD timeoutMs) override;
    // The worker's procedure. Until it is asked to end it makes update passes: one at the first start of this object,
    // if updating is enabled; if that pass was not made, one at today's base time, if that is still ahead; then one an
    // interval after the end of the previous one. Setting the named event starts a pass at once.
    // Throws COleException for a base time that does not exist.
    void ThreadProc() override;

    // One pass over all sites. sites: ends with a null entry. Waits until no other copy makes a pass. TRUE when every
    // site was handled, even if it failed; FALSE when the exit flag stopped the pass.
    virtual BOOL Update(CAmporaSiteConfig* const* sites);
    // Arms the timer for the next pass: the interval of the settings plus random minutes. timer: not null. Whether it
    // was armed.
    virtual BOOL SetIntervalUpdate(CWaitTableTimer* timer);
    // Fetches, analyzes and stores all kinds of data of one site for the days of start and end (local times). client:
    // not null; site: null is refused and traced. Never throws.
    virtual void UpdateOnePowerCompany(CAmporaHttpClient* client, CAmporaSiteConfig* site, const SYSTEMTIME& start,
                                       const SYSTEMTIME& end);

private:
    // The objects shared with other processes; both null when stopped.
    struct NamedObjects {
        platform::WaitHandle mutex;
        platform::WaitHandle event;
    };
    NamedObjects Objects() const;
    void SetObjects(NamedObjects objects);

    // Outcome of waiting for the mutex: how often it was acquired, which is more than once after an abandoned one.
    struct Turn {
        bool exit = false;
        int acquisitions = 0;
    };
    Turn WaitForTurn(const NamedObjects& objects) const;
    // The records of all days of one kind in one list; null when every day failed.
    std::unique_ptr<CAmporaDataCollection> FetchDays(const CTraceLog& log, CAmporaHttpClient& client,
                                                     CAmporaSiteConfig& site, DWORD dataType, const SYSTEMTIME& start,
                                                     const SYSTEMTIME& end) const;
    // The pass at the first start. Whether it was made and handled every site.
    BOOL RunInitialUpdate(const CTraceLog& log, CAmporaSiteConfig* const* sites);
    // Arms the timer for today's base time, if that is still ahead. Whether it was armed.
    bool ArmBaseTimer(const CTraceLog& log, CWaitTableTimer& timer);
    // Waits for the timer or the event and makes the pass that is due, until asked to end. armed: whether
    // the timer is armed already.
    void RunSchedule(const CTraceLog& log, CWaitTableTimer& timer, bool armed, CAmporaSiteConfig* const* sites);
    // A pass, unless updating is off. False when asked to end.
    bool RunDueUpdate(const CTraceLog& log, CAmporaSiteConfig* const* sites);

    mutable platform::CCriticalSection m_objectsLock; // guards m_objects; never held during a wait
    NamedObjects m_objects;
    CAmporaHttpClient m_httpClient;
    CRandomRule m_random;
    std::atomic<bool> m_initialUpdate = true; // cleared by the first run, never set again
};
