// tracecat: shows the debugger output of all processes of the session until standard input closes.
//
//   tracecat
//   tracecat --ids   puts its writer's process identifier and a tab before each text
//
// Prints "ready" on a line of its own once it listens, then each text as UTF-8, flushed, with a line feed at its end.
// What the channel does to texts: DebugListener.h. Exit code: 0, or 2 when it cannot listen.
#include "platform/Text.h"
#include "platform/win32/DebugListener.h"

#include <array>
#include <cstdio>
#include <cstring>

namespace {

using platform::win32::CDebugListener;
using platform::win32::CKernelHandle;
using platform::win32::DebugMessage;

constexpr int kCannotListen = 2;
// How long another listener may go on.
constexpr DWORD kOpenTimeoutMs = 60000;
// A writer that never pauses must not keep us from ending.
constexpr int kMaxDrained = 1000;

void Print(std::string text)
{
    if (text.empty() || text.back() != '\n') {
        text.push_back('\n');
    }
    DWORD written = 0;
    ::WriteFile(::GetStdHandle(STD_OUTPUT_HANDLE), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

int Fail(const char* what)
{
    std::fprintf(stderr, "tracecat: %s (error %lu)\n", what, ::GetLastError());
    return kCannotListen;
}

// Ends when standard input has closed.
DWORD WINAPI ReadInputToItsEnd(void*)
{
    std::array<char, 256> ignored = {};
    DWORD got = 0;
    while (::ReadFile(::GetStdHandle(STD_INPUT_HANDLE), ignored.data(), ignored.size(), &got, nullptr) && got != 0) {
    }
    return 0;
}

// Prints texts until end is signalled, and then what is still in the channel.
void Listen(CDebugListener& listener, bool withIds, HANDLE end)
{
    const auto show = [withIds](const DebugMessage& message) {
        const std::string id = withIds ? std::to_string(message.processId) + "\t" : std::string();
        Print(id + platform::EncodeUtf8(message.text));
    };
    const std::array<HANDLE, 2> handles = {listener.DataReady(), end};
    while (::WaitForMultipleObjects(handles.size(), handles.data(), FALSE, INFINITE) == WAIT_OBJECT_0) {
        show(listener.Take());
    }
    DebugMessage message;
    for (int i = 0; i < kMaxDrained && listener.Next(0, &message); ++i) {
        show(message);
    }
}

} // namespace

int main(int argc, char** argv)
{
    const bool withIds = argc == 2 && std::strcmp(argv[1], "--ids") == 0;
    if (argc > 1 && !withIds) {
        std::fprintf(stderr, "usage: tracecat [--ids]\n");
        return kCannotListen;
    }
    const std::unique_ptr<CDebugListener> listener = CDebugListener::Open(kOpenTimeoutMs);
    if (!listener) {
        return Fail("cannot listen to the debugger output");
    }
    const CKernelHandle inputThread(::CreateThread(nullptr, 0, ReadInputToItsEnd, nullptr, 0, nullptr));
    if (!inputThread) {
        return Fail("cannot watch standard input");
    }
    Print("ready");
    Listen(*listener, withIds, inputThread.Get());
    return 0;
}
