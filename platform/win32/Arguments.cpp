#include "platform/Arguments.h"

#include <memory>
#include <shellapi.h>

namespace platform {

std::vector<CString> ProgramArguments(int /*argc*/, const char* const* /*argv*/)
{
    int count = 0;
    const std::unique_ptr<LPWSTR, decltype(&::LocalFree)> arguments(::CommandLineToArgvW(::GetCommandLineW(), &count),
                                                                    &::LocalFree);
    return arguments && count > 1 ? std::vector<CString>(arguments.get() + 1, arguments.get() + count)
                                  : std::vector<CString>();
}

} // namespace platform
