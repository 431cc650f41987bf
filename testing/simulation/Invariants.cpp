#include "testing/simulation/Invariants.h"

#include "platform/Text.h"

#include <algorithm>

namespace simulation {

namespace {

using At = WorkerState::At;
using Step = PassState::Step;
using What = Order::What;

bool IsMasterSwitch(const Seen& seen) { return seen.site == kMainKeySite && seen.name == L"Enable"; }

bool AllFiles(const State& state, bool (*holds)(const CString& path, const State& state))
{
    const std::vector<CString> paths = state.machine.FilePaths();
    return std::all_of(paths.begin(), paths.end(), [&](const CString& path) { return holds(path, state); });
}

// Whether the program's next order is not this one, or has come so late that it need not be carried out yet.
bool IsCarriedOut(const Seen& seen, What what, std::int64_t timeMs)
{
    const ProgramState& program = *seen.program;
    return !program.IsTold(what) ||
           seen.state.Now() < std::max(program.orders.front().postedMs, program.freeMs) + timeMs;
}

// Those of one moment in the order in which they are checked; each may rely on those before it.
constexpr Invariant kInvariants[] = {
    // --- Programs
    {"WorkerStartsWhenTold", "a worker is started only on an order", Moment::kStarts,
     [](const Seen& seen) {
         return seen.program != nullptr && !seen.program->hasReturned && seen.program->IsTold(What::kStart);
     }},
    {"WorkerStopsWhenTold", "a worker is stopped only on an order", Moment::kPulses,
     [](const Seen& seen) {
         return seen.program != nullptr && (seen.program->IsTold(What::kStop) || seen.program->IsTold(What::kQuit));
     }},
    {"ProgramEndsWhenTold", "a program ends only on an order", Moment::kReturns,
     [](const Seen& seen) { return seen.program->IsTold(What::kQuit); }},
    {"ProgramEndsStopped", "a program stops its worker before it ends", Moment::kReturns,
     [](const Seen& seen) { return !seen.program->isStarted; }},
    {"SecondCopyEndsAtOnce", "a second copy, and one with /Exit, ends at once", Moment::kIdle,
     [](const Seen& seen) { return seen.state.shortCopies.empty(); }},
    {"StartIsCarriedOut", "an order to start is carried out at once", Moment::kProgramIdle,
     [](const Seen& seen) { return IsCarriedOut(seen, What::kStart, 0); }},
    {"StopIsCarriedOut", "an order to stop is carried out at once", Moment::kProgramIdle,
     [](const Seen& seen) { return IsCarriedOut(seen, What::kStop, 0); }},
    {"QuitIsCarriedOut", "a program ends within a second of being told", Moment::kProgramIdle,
     [](const Seen& seen) { return IsCarriedOut(seen, What::kQuit, kQuitMs); }},
    // --- A worker's end
    {"WorkerEndsWhenTold", "a worker ends only when it is told", Moment::kWorkerEnds,
     [](const Seen& seen) { return seen.worker->mustEndBy || seen.worker->hasFaultySchedule; }},
    {"WorkerEndsInTime", "a worker ends at once, or with its download", Moment::kWorkerEnds,
     [](const Seen& seen) { return !seen.worker->mustEndBy || seen.state.Now() <= *seen.worker->mustEndBy; }},
    {"StoppedWorkerIsGone", "a worker that was told to end does not stay", Moment::kStoppedIdle,
     [](const Seen& seen) { return seen.state.Now() < *seen.worker->mustEndBy; }},
    {"NoPassAfterStop", "a worker that was told to end begins no pass", Moment::kDecides,
     [](const Seen& seen) { return !seen.worker->mustEndBy; }},
    // --- When a pass is made
    {"FirstPassIsMadeOnce", "a program makes its first pass once, at the start", Moment::kDecides,
     [](const Seen& seen) {
         return seen.worker->at != At::kStart ||
                (!seen.program->initialUpdateDone && seen.state.Now() == seen.worker->sinceMs);
     }},
    {"PassIsDue", "a pass is made at its due minute or on the update event", Moment::kDecides,
     [](const Seen& seen) {
         const State& state = seen.state;
         const WorkerState& worker = *seen.worker;
         if (worker.hasFaultySchedule || worker.at != At::kWait) {
             return worker.hasFaultySchedule || worker.at == At::kStart;
         }
         if (state.IsEventSet(worker)) {
             return state.Now() == worker.sinceMs;
         }
         const bool mayBeLate =
             worker.due->IsByClock() && (state.clockMovedMs == state.Now() || worker.sinceMs == state.Now());
         return worker.due->MayFallDueAt(state.Now(), state.UtcNow(), mayBeLate);
     }},
    {"BaseTimeIsReadInTurn", "the base time counts only without a first pass", Moment::kReadsBase,
     [](const Seen& seen) { return seen.worker->at == At::kBase && seen.state.Now() == seen.worker->sinceMs; }},
    {"IntervalIsReadInTurn", "the interval counts from the end of a pass", Moment::kReadsInterval,
     [](const Seen& seen) {
         const WorkerState& worker = *seen.worker;
         const bool isRestart = worker.at == At::kStart && seen.program->initialUpdateDone;
         // The base-time timer could not be armed; the interval is tried at once.
         const bool isSecondTry = worker.at == At::kWait && worker.hasFaultySchedule;
         return (worker.at == At::kInterval || isRestart || isSecondTry) && seen.state.Now() == worker.sinceMs &&
                !worker.mustEndBy;
     }},
    {"WorkerUpdatesOrWaits", "a worker updates or waits at once after its start", Moment::kWorkerIdle,
     [](const Seen& seen) { return seen.worker->at != At::kStart; }},
    {"TimerIsArmed", "a timer is armed at once after a pass", Moment::kWorkerIdle,
     [](const Seen& seen) { return seen.worker->at != At::kBase && seen.worker->at != At::kInterval; }},
    {"UpdateEventIsAnswered", "the update event ends a wait at once", Moment::kWorkerIdle,
     [](const Seen& seen) { return seen.worker->at != At::kWait || !seen.state.IsEventSet(*seen.worker); }},
    {"DuePassIsMade", "no pass that is due is left out", Moment::kWorkerIdle,
     [](const Seen& seen) {
         const WorkerState& worker = *seen.worker;
         return worker.at != At::kWait || !worker.due->IsOverdue(seen.state.Now(), seen.state.UtcNow());
     }},
    // --- What a pass looks up
    {"MasterSwitchIsMachineWide", "the master switch is looked up machine-wide only", Moment::kLooksUp,
     [](const Seen& seen) { return seen.hive != platform::Hive::kPerUser || !IsMasterSwitch(seen); }},
    {"SiteIsLookedUpInPass", "a site is looked up only in a pass", Moment::kLooksUpSite,
     [](const Seen& seen) { return seen.worker->at == At::kPass; }},
    {"NoLookupAfterStop", "a worker that was told to end looks up no site", Moment::kLooksUpSite,
     [](const Seen& seen) { return !seen.worker->mustEndBy; }},
    {"RequestIsNotLeftOut", "no request that the settings want is left out", Moment::kLooksUpSite,
     [](const Seen& seen) { return !seen.worker->IsIn(Step::kRequest) && !seen.worker->IsIn(Step::kDownload); }},
    {"FileIsNotLeftOut", "no file is left out whose records came", Moment::kLooksUpSite,
     [](const Seen& seen) { return !seen.worker->IsIn(Step::kWrite) && !seen.worker->IsIn(Step::kWriting); }},
    {"SitesComeInOrder", "the sites come in their order", Moment::kLooksUpSite,
     [](const Seen& seen) {
         const PassState& pass = seen.worker->pass;
         return !pass.IsOver() && pass.CompanyInTurn().site == seen.site;
     }},
    {"UserSettingsComeFirst", "the user's setting is looked up before the machine's", Moment::kLooksUp,
     [](const Seen& seen) {
         return seen.hive == platform::Hive::kPerUser || IsMasterSwitch(seen) ||
                (seen.worker->userLookup.first == seen.site && seen.worker->userLookup.second == seen.name);
     }},
    // --- One pass at a time
    {"MutexHasOneOwner", "no two processes make a pass at a time", Moment::kTakesMutex,
     [](const Seen& seen) { return seen.state.mutexOwner == 0; }},
    {"MutexIsTakenInTurn", "the mutex is taken once, for a pass", Moment::kTakesMutex,
     [](const Seen& seen) { return seen.worker == nullptr || seen.worker->at == At::kTurn; }},
    {"FreeMutexIsTaken", "a free mutex is taken at once", Moment::kWorkerIdle,
     [](const Seen& seen) { return seen.worker->at != At::kTurn || seen.state.mutexOwner != 0; }},
    {"MutexIsGivenBackAfterPass", "the mutex is given back at the end of a pass", Moment::kGivesMutex,
     [](const Seen& seen) { return seen.worker->at == At::kPass; }},
    {"PassIsComplete", "a pass asks for all sites, kinds and days", Moment::kGivesMutex,
     [](const Seen& seen) {
         return seen.worker->mustEndBy || (seen.worker->IsIn(Step::kLookup) && seen.worker->pass.IsOver());
     }},
    {"MutexIsNotAbandoned", "the mutex is abandoned only by a worker told to end", Moment::kGivesMutex,
     [](const Seen& seen) { return !seen.isAbandoned || seen.worker->mustEndBy; }},
    // --- What a pass asks for and writes
    {"RequestOwnsMutex", "a request is sent only in a pass, under the mutex", Moment::kRequests,
     [](const Seen& seen) {
         return seen.worker != nullptr && seen.worker->at == At::kPass &&
                seen.state.mutexOwner == seen.worker->threadId;
     }},
    {"NoRequestAfterStop", "a worker that was told to end sends no request", Moment::kRequests,
     [](const Seen& seen) { return !seen.worker->mustEndBy; }},
    {"RequestIsWanted", "a request is sent once, and only if the settings want it", Moment::kRequests,
     [](const Seen& seen) { return seen.worker->IsIn(Step::kRequest); }},
    {"RequestIsTheNextOne", "a request asks for the next site, kind and day", Moment::kRequests,
     [](const Seen& seen) { return seen.target == seen.worker->pass.target; }},
    {"PassGoesOnAfterAnswer", "a pass goes on at once after an answer", Moment::kHasAnswer,
     [](const Seen& seen) { return seen.state.Now() == seen.worker->pass.downloadEndsMs; }},
    {"PassGoesOn", "a pass waits for nothing but answers", Moment::kWorkerIdle,
     [](const Seen& seen) { return seen.worker->at != At::kPass || seen.worker->IsIn(Step::kDownload); }},
    {"FileOwnsMutex", "a file is written only under the mutex", Moment::kOpensFile,
     [](const Seen& seen) { return seen.worker != nullptr && seen.state.mutexOwner == seen.worker->threadId; }},
    {"FileIsWanted", "a file is written only when its records came", Moment::kOpensFile,
     [](const Seen& seen) { return seen.worker->IsIn(Step::kWrite) && seen.name == seen.worker->pass.Path(); }},
    // A failed write may end a file early.
    {"FileHoldsTheRecords", "a file holds the records that came, to the byte", Moment::kClosesFile,
     [](const Seen& seen) {
         const std::vector<BYTE>& expected = seen.worker->pass.expected;
         const bool isPart = seen.content.size() <= expected.size() &&
                             std::equal(seen.content.begin(), seen.content.end(), expected.begin());
         const bool isWhole = isPart && seen.content.size() == expected.size();
         return isWhole || (isPart && (seen.worker->writeFailed || seen.state.diskIsLimited));
     }},
    // --- After the faults
    {"SessionsConverge", "every session makes a pass after the faults", Moment::kConverged,
     [](const Seen& seen) {
         for (unsigned session = 1; session <= seen.state.sessions; ++session) {
             const auto last = seen.state.lastPasses.find(session);
             if (last == seen.state.lastPasses.end() || last->second <= seen.state.convergesFrom) {
                 return false;
             }
         }
         return true;
     }},
    {"FilesConverge", "all files are whole again after the faults", Moment::kConverged,
     [](const Seen& seen) {
         for (const TestCompany& company : kTestCompanies) {
             for (const TestKind& kind : kTestKinds) {
                 const auto file = seen.state.files.find(DataFilePath(company, kind));
                 const bool isRight = file != seen.state.files.end() && file->second.isWhole &&
                                      file->second.pass >= seen.state.convergesFrom;
                 if ((company.mask & kind.code) != 0 && !isRight) {
                     return false;
                 }
             }
         }
         return true;
     }},
    // --- At the end
    {"NoProgramIsLeft", "all programs have ended", Moment::kTakenDown,
     [](const Seen& seen) {
         const State& state = seen.state;
         return std::all_of(state.programs.begin(), state.programs.end(), [&](const auto& program) {
             return program.second.hasReturned && state.machine.ExitCodeOf(program.first);
         });
     }},
    {"NoWorkerIsLeft", "no worker is left", Moment::kTakenDown,
     [](const Seen& seen) { return seen.state.workers.empty(); }},
    {"NoWindowIsLeft", "no window is left", Moment::kTakenDown,
     [](const Seen& seen) { return seen.state.machine.WindowCount() == 0; }},
    {"NoNamedObjectIsLeft", "no named object is left", Moment::kTakenDown,
     [](const Seen& seen) { return seen.state.machine.NamedObjectCount() == 0; }},
    {"NoHttpHandleIsLeft", "no HTTP handle is left open", Moment::kTakenDown,
     [](const Seen& seen) { return seen.state.machine.OpenHttpHandleCount() == 0; }},
    {"NoArmedTimerIsLeft", "no timer is left armed", Moment::kTakenDown,
     [](const Seen& seen) { return seen.state.machine.ArmedTimerCount() == 0; }},
    {"NoOtherFileIsLeft", "there are only the files that passes wrote", Moment::kTakenDown,
     [](const Seen& seen) {
         return AllFiles(seen.state,
                         [](const CString& path, const State& state) { return state.files.contains(path); });
     }},
    {"FilesHoldTheLastWrite", "the files hold what was written last", Moment::kTakenDown,
     [](const Seen& seen) {
         return AllFiles(seen.state, [](const CString& path, const State& state) {
             return state.machine.FindFile(path)->bytes == state.files.at(path).bytes;
         });
     }},
};

std::string WhoIn(const Seen& seen)
{
    if (seen.worker != nullptr) {
        return seen.worker->Name();
    }
    if (seen.program != nullptr) {
        return seen.program->Name();
    }
    return "another thread, or by what is left";
}

} // namespace

std::span<const Invariant> Invariants() { return kInvariants; }

std::optional<Violation> FindViolation(const Seen& seen)
{
    for (const Invariant& invariant : kInvariants) {
        if (invariant.moment == seen.moment && !invariant.holds(seen)) {
            const std::string object = seen.target + platform::EncodeUtf8(CString(seen.name));
            return Violation{seen.state.Now(), invariant.name,
                             std::string(invariant.name) + " (" + invariant.meaning + ") is broken by " + WhoIn(seen) +
                                 (object.empty() ? "" : ": " + object)};
        }
    }
    return std::nullopt;
}

} // namespace simulation
