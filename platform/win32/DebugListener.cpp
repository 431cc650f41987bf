#include "platform/win32/DebugListener.h"

#include "platform/win32/SecurityDescriptor.h"

#include <algorithm>

namespace platform::win32 {

namespace {

// What lies in DBWIN_BUFFER.
struct DebugBuffer {
    DWORD processId;
    char text[4096 - sizeof(DWORD)];
};
static_assert(sizeof(DebugBuffer) == 4096);

constexpr DWORD kRetryMs = 10;

CString DecodeAnsi(const char* bytes, std::size_t size)
{
    const int wideSize = ::MultiByteToWideChar(CP_ACP, 0, bytes, static_cast<int>(size), nullptr, 0);
    CString text(static_cast<std::size_t>(wideSize), L'\0');
    ::MultiByteToWideChar(CP_ACP, 0, bytes, static_cast<int>(size), text.data(), wideSize);
    return text;
}

} // namespace

std::unique_ptr<CDebugListener> CDebugListener::Open(DWORD timeoutMs)
{
    const ULONGLONG deadlineMs = ::GetTickCount64() + timeoutMs;
    for (;;) {
        std::unique_ptr<CDebugListener> listener(new CDebugListener);
        if (listener->TryOpen()) {
            return listener;
        }
        // A writer, too, holds the objects of a listener that is gone, until its call returns.
        if (::GetLastError() != ERROR_ALREADY_EXISTS || ::GetTickCount64() >= deadlineMs) {
            return nullptr;
        }
        listener.reset();
        ::Sleep(kRetryMs);
    }
}

CDebugListener::~CDebugListener()
{
    if (m_view) {
        ::SetEvent(m_bufferReady.Get());
    }
}

DebugMessage CDebugListener::Take()
{
    const auto* const buffer = static_cast<const DebugBuffer*>(m_view.Get());
    const char* const end = std::find(std::begin(buffer->text), std::end(buffer->text), '\0');
    DebugMessage message{buffer->processId,
                         DecodeAnsi(buffer->text, static_cast<std::size_t>(end - std::begin(buffer->text)))};
    ::SetEvent(m_bufferReady.Get());
    return message;
}

bool CDebugListener::Next(DWORD timeoutMs, DebugMessage* message)
{
    if (::WaitForSingleObject(DataReady(), timeoutMs) != WAIT_OBJECT_0) {
        return false;
    }
    *message = Take();
    return true;
}

bool CDebugListener::TryOpen()
{
    // Writers may be of another user or integrity level.
    const SecurityDescriptorPtr security = InitializeDescriptor();
    if (!security || !SetNullDacl(security)) {
        return false;
    }
    SECURITY_ATTRIBUTES attributes = AttributesOf(security.get());
    m_bufferReady.Reset(::CreateEventW(&attributes, FALSE, FALSE, L"DBWIN_BUFFER_READY"));
    if (!m_bufferReady || ::GetLastError() == ERROR_ALREADY_EXISTS) {
        return false;
    }
    m_dataReady.Reset(::CreateEventW(&attributes, FALSE, FALSE, L"DBWIN_DATA_READY"));
    if (!m_dataReady || ::GetLastError() == ERROR_ALREADY_EXISTS) {
        return false;
    }
    m_mapping.Reset(::CreateFileMappingW(INVALID_HANDLE_VALUE, &attributes, PAGE_READWRITE, 0, sizeof(DebugBuffer),
                                         L"DBWIN_BUFFER"));
    if (!m_mapping || ::GetLastError() == ERROR_ALREADY_EXISTS) {
        return false;
    }
    m_view.Reset(::MapViewOfFile(m_mapping.Get(), FILE_MAP_READ, 0, 0, sizeof(DebugBuffer)));
    return m_view && ::SetEvent(m_bufferReady.Get());
}

} // namespace platform::win32
