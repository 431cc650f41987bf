// The faults that a test asked for.
#pragma once

#include "platform/sim/Machine.h"

#include <array>
#include <optional>
#include <utility>
#include <vector>

namespace platform::sim {

// "ArmTimer" for Call::kArmTimer.
const char* NameOf(Call call);

// Counts the calls of each kind and says which of them are to fail.
class CFaults {
public:
    // As the members of CMachine of the same meaning.
    void FailCall(Call call, unsigned nth, DWORD code);
    void FailEvery(Call call, DWORD code);
    void SetPlan(FaultPlan plan) { m_plan = std::move(plan); }
    void Clear();
    unsigned CallCount(Call call) const { return Of(call).count; }

    // Counts one call; the code with which it has to fail, empty when it has not.
    std::optional<DWORD> Take(Call call);

private:
    struct Once {
        unsigned atCount;
        DWORD code;
    };
    struct CallFaults {
        unsigned count = 0;
        std::vector<Once> once = {};
        std::optional<DWORD> every = {};
    };
    CallFaults& Of(Call call) { return m_calls.at(static_cast<std::size_t>(call)); }
    const CallFaults& Of(Call call) const { return m_calls.at(static_cast<std::size_t>(call)); }

    std::array<CallFaults, static_cast<std::size_t>(Call::kCount)> m_calls;
    FaultPlan m_plan = {};
};

} // namespace platform::sim
