// Days of a fleet that an operator should know.
#pragma once

#include "testing/fleet/Model.h"

#include <span>
#include <string>

namespace fleet {

struct Scenario {
    const char* name;        // on the command line
    const char* description; // one line
    bool isRemedy;           // the power cut again, with something set otherwise
    bool isPictured;         // whether its requests over the day differ from those of the scenarios before it
    // Fills in what distinguishes the day. machines and schedule are set; seed: of everything that is drawn for it.
    void (*prepare)(Day& day, std::uint64_t seed);
};
std::span<const Scenario> Scenarios();
// Throws std::invalid_argument when there is none.
const Scenario& FindScenario(const std::string& name);

// The day of a scenario, with the default schedule. Needs a simulated machine without settings.
Day DayOf(const Scenario& scenario, std::uint32_t machines, std::uint64_t seed);

} // namespace fleet
