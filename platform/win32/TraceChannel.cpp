#include "platform/TraceChannel.h"

#include "platform/win32/DebugListener.h"

namespace platform {

class CTraceChannel {
public:
    explicit CTraceChannel(std::unique_ptr<win32::CDebugListener> listener) : m_listener(std::move(listener)) {}

    std::unique_ptr<win32::CDebugListener> m_listener;
};

namespace {

// How long what writers and a listener that has just gone hold is waited for.
constexpr DWORD kOpenTimeoutMs = 1000;

} // namespace

TraceChannelPtr OpenTraceChannel(const wchar_t* /*unitName*/, DWORD /*processId*/)
{
    std::unique_ptr<win32::CDebugListener> listener = win32::CDebugListener::Open(kOpenTimeoutMs);
    return listener ? std::make_shared<CTraceChannel>(std::move(listener)) : nullptr;
}

DWORD ReadTraceText(const TraceChannelPtr& channel, DWORD timeoutMs, TraceText* text)
{
    if (!channel) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    const DWORD waited = ::WaitForSingleObject(channel->m_listener->DataReady(), timeoutMs);
    if (waited == WAIT_OBJECT_0) {
        win32::DebugMessage message = channel->m_listener->Take();
        *text = {message.processId, std::move(message.text)};
    }
    return waited;
}

} // namespace platform
