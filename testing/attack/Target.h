// The real program in a place where it is attacked, and what must hold whatever is done to it.
#pragma once

#include "testing/LoopbackServer.h"
#include "testing/system/HealthyReports.h"
#include "testing/system/Rig.h"

#include <ctime>
#include <map>
#include <mutex>
#include <stdexcept>

namespace attack {

// Something that must not happen.
class CFinding : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// How many data files an attacked pass has left in each state that is allowed.
struct FileCounts {
    int old = 0;     // as before the pass
    int renewed = 0; // whole, with all records of the days that were answered
    int cut = 0;     // shorter than its header says, so that a reader rejects it
    int thinned = 0; // whole, but records are left out or have the value 0
};

// Folders, settings and a report API of its own. One thread at a time.
class CTarget {
public:
    CTarget();

    system_test::CLinuxRig& Rig() { return m_rig; }
    // The report API's requests of this pass so far. Any thread.
    int RequestCount() const;

    // Expects a pass: from here on the report API gives other records.
    void BeginPass();
    // Waits until the copy has nothing to do, or has ended; its exit code then. Throws CFinding when it goes on.
    static std::optional<int> AwaitRest(system_test::CCopy& copy);
    // Has the copy make another pass to its end. False when it has no update event.
    bool MakeAnotherPass(system_test::CCopy& copy);
    // Tells the copy to end, as amporasrv /Exit does. Throws CFinding when it does not, or not with status 0.
    void End(system_test::CCopy& copy);
    // Makes a pass with a new copy and ends it. Throws CFinding when the files are not right then.
    void Recover();

    // Since BeginPass. Throws CFinding for a file in a state that is not allowed, and for files that should not be.
    // mayThin: as when memory runs out while a report is read, which costs single records.
    FileCounts LookAtFiles(bool mayThin = false) const;
    // Whether all files are whole, with the records of both days, written during the pass.
    bool FilesAreRight() const;

private:
    testing_support::HttpAnswer Answer(const std::string& target);
    bool IsWrittenNow(const std::string& bytes) const;
    bool IsNew(const std::string& bytes, const std::string& expected) const;
    int& CountOf(FileCounts& counts, const std::string& company, unsigned dataType) const;
    void ExpectNoOtherFiles() const;
    std::string Bytes(const std::string& company, unsigned dataType) const;

    const std::time_t m_begin = std::time(nullptr);
    mutable std::mutex m_mutex; // guards the next three
    system_test::CHealthyReports m_reports{m_begin};
    std::vector<std::string> m_dates; // that were asked for, in their order
    int m_requests = 0;
    int m_passes = 0;
    std::map<std::string, std::string> m_old; // files' bytes before the pass, by their names
    std::time_t m_passBegin = 0;
    system_test::CLinuxRig m_rig;
    testing_support::CLoopbackServer m_server;
};

} // namespace attack
