#include "testing/process/Child.h"

#include "platform/Text.h"
#include "platform/win32/Handle.h"

#include <algorithm>
#include <array>
#include <system_error>

namespace testing_support {
namespace {

using platform::DecodeUtf8;
using platform::win32::CKernelHandle;

constexpr UINT kKilledExitCode = 9;

void Check(BOOL result, const std::string& what)
{
    if (!result) {
        throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(), what);
    }
}

// A pipe; a program that is started inherits the one end that is to be its own.
struct Pipe {
    explicit Pipe(bool isInput)
    {
        SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
        Check(::CreatePipe(readEnd.Receive(), writeEnd.Receive(), &inheritable, 0), "pipe");
        ::SetHandleInformation(isInput ? writeEnd.Get() : readEnd.Get(), HANDLE_FLAG_INHERIT, 0);
    }

    CKernelHandle readEnd;
    CKernelHandle writeEnd;
};

// An argument as the program's run-time library takes it apart again.
CString Quoted(const std::string& argument)
{
    const CString text = DecodeUtf8(argument);
    if (!text.empty() && text.find_first_of(L" \t\"") == CString::npos) {
        return text;
    }
    CString quoted = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t character : text) {
        // Backslashes mean themselves unless a quotation mark follows.
        quoted.append(character == L'"' ? backslashes + 1 : 0, L'\\');
        quoted += character;
        backslashes = character == L'\\' ? backslashes + 1 : 0;
    }
    return quoted.append(backslashes, L'\\') + L"\"";
}

CString CommandLine(const std::vector<std::string>& command)
{
    CString line;
    for (const std::string& argument : command) {
        line += (line.empty() ? L"" : L" ") + Quoted(argument);
    }
    return line;
}

bool IsChanged(const CString& variable, const EnvironmentChanges& changes)
{
    return std::ranges::any_of(changes, [&](const auto& change) {
        const CString name = DecodeUtf8(change.first) + L"=";
        return ::CompareStringOrdinal(variable.c_str(), static_cast<int>(std::min(variable.size(), name.size())),
                                      name.c_str(), static_cast<int>(name.size()), TRUE) == CSTR_EQUAL;
    });
}

// Each variable with a zero at its end, and one more.
CString EnvironmentBlock(const EnvironmentChanges& changes)
{
    CString block;
    wchar_t* const inherited = ::GetEnvironmentStringsW();
    for (const wchar_t* next = inherited; *next != L'\0'; next += CString(next).size() + 1) {
        if (!IsChanged(next, changes)) {
            block += CString(next) + L'\0';
        }
    }
    ::FreeEnvironmentStringsW(inherited);
    for (const auto& [name, value] : changes) {
        block += value.empty() ? CString() : DecodeUtf8(name + "=" + value) + L'\0';
    }
    return block + L'\0';
}

// What a program is to inherit, and nothing else.
class CInheritedHandles {
public:
    explicit CInheritedHandles(std::array<HANDLE, 3> handles) : m_handles(handles)
    {
        SIZE_T size = 0;
        ::InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        m_list.resize(size);
        Check(::InitializeProcThreadAttributeList(Get(), 1, 0, &size), "attributes");
        Check(::UpdateProcThreadAttribute(Get(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, m_handles.data(),
                                          sizeof(m_handles), nullptr, nullptr),
              "attributes");
    }
    ~CInheritedHandles() { ::DeleteProcThreadAttributeList(Get()); }
    CInheritedHandles(const CInheritedHandles&) = delete;
    CInheritedHandles& operator=(const CInheritedHandles&) = delete;

    LPPROC_THREAD_ATTRIBUTE_LIST Get() { return reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(m_list.data()); }

private:
    std::array<HANDLE, 3> m_handles; // the list points to them
    std::vector<BYTE> m_list;
};

} // namespace

struct CChild::Impl {
    Impl(const std::vector<std::string>& command, const EnvironmentChanges& environment)
    {
        STARTUPINFOEXW startup = {};
        CInheritedHandles inherited({in.readEnd.Get(), out[0].writeEnd.Get(), out[1].writeEnd.Get()});
        startup.StartupInfo.cb = sizeof(startup);
        startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
        startup.StartupInfo.hStdInput = in.readEnd.Get();
        startup.StartupInfo.hStdOutput = out[0].writeEnd.Get();
        startup.StartupInfo.hStdError = out[1].writeEnd.Get();
        startup.lpAttributeList = inherited.Get();
        CString line = CommandLine(command);
        CString variables = EnvironmentBlock(environment);
        PROCESS_INFORMATION information = {};
        const auto start = [&] {
            return ::CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE,
                                    CREATE_SUSPENDED | CREATE_UNICODE_ENVIRONMENT | EXTENDED_STARTUPINFO_PRESENT,
                                    variables.data(), nullptr, &startup.StartupInfo, &information);
        };
        BOOL isStarted = start();
        // wine has refused a start with this error on a busy machine, and nothing ran then.
        for (int tries = 2; !isStarted && ::GetLastError() == ERROR_INTERNAL_ERROR && tries > 0; --tries) {
            isStarted = start();
        }
        Check(isStarted, command.front());
        process.Reset(information.hProcess);
        processId = information.dwProcessId;
        const CKernelHandle thread(information.hThread);
        ::AssignProcessToJobObject(job.Get(), process.Get());
        ::ResumeThread(thread.Get());
        in.readEnd.Reset();
        out[0].writeEnd.Reset();
        out[1].writeEnd.Reset();
    }

    // What the program's pipes are for it.
    Pipe in{true};
    std::array<Pipe, 2> out = {Pipe(false), Pipe(false)};
    const CKernelHandle job{::CreateJobObjectW(nullptr, nullptr)}; // the program and what it starts
    CKernelHandle process;
    DWORD processId = 0;
};

CChild::CChild(const std::vector<std::string>& command, const EnvironmentChanges& environment)
    : m_impl(std::make_unique<Impl>(command, environment))
{
}

CChild::~CChild() = default;

int CChild::ProcessId() const { return static_cast<int>(m_impl->processId); }

std::string CChild::ReadSome(std::size_t stream)
{
    std::array<char, 65536> buffer = {};
    DWORD size = 0;
    ::ReadFile(m_impl->out.at(stream).readEnd.Get(), buffer.data(), buffer.size(), &size, nullptr);
    return {buffer.data(), size};
}

// What the program has started ends with it, and with that the pipes.
void CChild::StopReading() { ::TerminateJobObject(m_impl->job.Get(), kKilledExitCode); }

void CChild::Write(const std::string& text)
{
    DWORD written = 0;
    ::WriteFile(m_impl->in.writeEnd.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

void CChild::CloseInput() { m_impl->in.writeEnd.Reset(); }

void CChild::Signal(int) { throw std::logic_error("there are no signals on Windows"); }

void CChild::Kill()
{
    ::TerminateJobObject(m_impl->job.Get(), kKilledExitCode);
    ::WaitForSingleObject(m_impl->process.Get(), INFINITE);
}

std::optional<int> CChild::WaitForExit(std::chrono::milliseconds limit)
{
    if (::WaitForSingleObject(m_impl->process.Get(), static_cast<DWORD>(limit.count())) != WAIT_OBJECT_0) {
        return std::nullopt;
    }
    DWORD exitCode = 0;
    ::GetExitCodeProcess(m_impl->process.Get(), &exitCode);
    return static_cast<int>(exitCode);
}

} // namespace testing_support
