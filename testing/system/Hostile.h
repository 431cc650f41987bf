// What hostile report servers do, and what the program has to make of it.
#pragma once

#include "testing/HttpAnswer.h"
#include "testing/Trace.h"

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace system_test {

// Which requests of a pass get the hostile answer; all others get a healthy report.
enum class Scope {
    kTwo,         // the first two: Tokyo's instant usage of both days
    kConnections, // the same, but as soon as they have connected
    kAll,         // all 42
    kFirstDays,   // the first day of each kind, so every other request
    kRefused,     // all 42 find nobody who listens
    kInTurn,      // all 42, each another one of the behaviours
};

// What hostile answers leave of a data file.
enum class File {
    kKept,   // as it was before the pass
    kTaken,  // what a healthy report leaves
    kEmpty,  // a header alone
    kPair,   // one record for each day
    kIntact, // as it was, or a header and as many records as it says
};

struct Result {
    // The program says one of these for each hostile answer; anything when there are none.
    std::vector<testing_support::TraceLine> said;
    File file = File::kKept;
};

struct Behaviour {
    std::string name; // letters and digits
    // report: the healthy report that was asked for.
    std::function<testing_support::HttpScript(const std::string& report)> answer;
    Result result;
    Scope scope = Scope::kTwo;
    // The trace log is off: a line for each of half a million elements is no part of the program's own time.
    bool isSilent = false;
    std::string layer = {};
};
// Its name alone.
std::ostream& operator<<(std::ostream& stream, const Behaviour& behaviour);

// All of them.
const std::vector<Behaviour>& Behaviours();
// isFew: some of most layers, which are over at once. isForWine: a sample of those that wine's HTTP library gets over;
// it follows redirections and waits in silence for ever, and each takes it seconds.
std::vector<Behaviour> Chosen(bool isFew, bool isForWine);

} // namespace system_test
