// The updater: its worker thread and schedule, the objects it shares with other processes, and the update pass.
#pragma once

#include "engine/AmporaThread.h"
#include "engine/RandomRule.h"
#include "fetch/AmporaHttpClient.h"
#include "fetch/AmporaSiteConfig.h"
#include "platform/Sync.h"

class CTraceLog;
class CWaitTableTimer;

// Start and Stop belong to the owning thread, the update operations to the worker thread. To be held by a
// std::shared_ptr wherever the worker may outlive a Stop (AmporaThread.h).
class CAmporaUpdater : public CAmporaThread {
public:
    CAmporaUpdater();
    ~CAmporaUpdater() override;

    // Creates the named objects and the worker. TRUE when running, also when it already was; FALSE, with nothing left
    // open, on failure.
    BOOL Start() override;
    // Asks the worker to end, wakes it, waits at most timeoutMs milliseconds and closes the named objects; a worker
    // that takes longer keeps its own references to them.
    void Stop(DWORD timeoutMs) override;
    // The worker's procedure, until it is asked to end: one update pass at the first start in the life of this object,
    // when updating is enabled; one at today's base time, when there is still one to come and that first pass was not
    // made; then one an interval after the end of the one before. The named event, set by anybody, makes one at once.
    // Throws COleException for a base time that does not exist.
    void ThreadProc() override;

    // One pass over all sites. sites: ends with a null entry. Waits until no other copy's pass runs. TRUE when every
    // site was handled, whatever came of it; FALSE when the exit flag stopped it.
    virtual BOOL Update(CAmporaSiteConfig* const* sites);
    // Arms the timer for the next pass: the interval of the settings plus random minutes. timer: not null. Whether it
    // was armed.
    virtual BOOL SetIntervalUpdate(CWaitTableTimer* timer);
    // Fetches, analyzes and stores all kinds of data of one site for the days of start and end (local times). client:
    // not null; site: null is refused. Never throws.
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
    // The records of all days of one kind in one list; null when no day gave any.
    std::unique_ptr<CAmporaDataCollection> FetchDays(const CTraceLog& log, CAmporaHttpClient& client,
                                                     CAmporaSiteConfig& site, DWORD dataType, const SYSTEMTIME& start,
                                                     const SYSTEMTIME& end) const;
    // The pass at the first start. Whether it was made and handled every site.
    BOOL RunInitialUpdate(const CTraceLog& log, CAmporaSiteConfig* const* sites);
    // Arms the timer for today's base time, if that is still to come. Whether it was armed.
    bool ArmBaseTimer(const CTraceLog& log, CWaitTableTimer& timer);
    // Waits for the timer or the event and makes the pass that is due, over and over, until told to end. armed: whether
    // the timer is armed already.
    void RunSchedule(const CTraceLog& log, CWaitTableTimer& timer, bool armed, CAmporaSiteConfig* const* sites);
    // A pass, unless updating is off. False when told to end.
    bool RunDueUpdate(const CTraceLog& log, CAmporaSiteConfig* const* sites);

    mutable platform::CCriticalSection m_objectsLock; // guards m_objects, held for moments only
    NamedObjects m_objects;
    CAmporaHttpClient m_httpClient;
    CRandomRule m_random;
    std::atomic<bool> m_initialUpdate = true; // cleared by the first run, never set again
};
