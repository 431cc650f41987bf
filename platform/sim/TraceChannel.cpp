#include "platform/TraceChannel.h"

#include "platform/LastError.h"
#include "platform/sim/MachineState.h"

#include <algorithm>

namespace platform {

class CTraceChannel : public sim::SimTraceChannel {};

TraceChannelPtr OpenTraceChannel(const wchar_t* /*unitName*/, DWORD /*processId*/)
{
    if (sim::FailsByFault(sim::Call::kOpenTraceChannel)) {
        return nullptr;
    }
    sim::MachineState& machine = sim::Machine();
    auto channel = std::make_shared<CTraceChannel>();
    std::erase_if(machine.traceChannels, [](const auto& known) { return known.expired(); });
    machine.traceChannels.push_back(channel);
    return channel;
}

DWORD ReadTraceText(const TraceChannelPtr& channel, DWORD timeoutMs, TraceText* text)
{
    if (sim::FailsByFault(sim::Call::kReadTraceText)) {
        return WAIT_FAILED;
    }
    if (channel == nullptr) {
        SetLastErrorCode(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    if (channel->texts.empty() && timeoutMs != 0) {
        channel->waiter = &sim::CScheduler::Self();
        sim::Machine().scheduler.Wait([] { return "a trace text"; }, sim::Machine().DeadlineAfter(timeoutMs));
        channel->waiter = nullptr;
    }
    if (channel->texts.empty()) {
        return WAIT_TIMEOUT;
    }
    *text = std::move(channel->texts.front());
    channel->texts.pop_front();
    return WAIT_OBJECT_0;
}

} // namespace platform

namespace platform::sim {

void MachineState::TellTraceChannels(DWORD processId, const CString& text)
{
    for (const auto& known : traceChannels) {
        const std::shared_ptr<SimTraceChannel> channel = known.lock();
        if (channel == nullptr) {
            continue;
        }
        channel->texts.push_back({processId, text});
        // A waiter whose time is up does not wait any more, although it may not have run yet.
        const std::vector<SimThread*> waiting = scheduler.Waiting();
        if (std::ranges::find(waiting, channel->waiter) != waiting.end()) {
            scheduler.Wake(*channel->waiter, WAIT_OBJECT_0);
        }
    }
}

} // namespace platform::sim
