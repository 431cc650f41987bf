#include "platform/Arguments.h"

#include "platform/Text.h"

namespace platform {

std::vector<CString> ProgramArguments(int argc, const char* const* argv)
{
    std::vector<CString> arguments;
    for (int i = 1; i < argc; ++i) {
        arguments.push_back(DecodeUtf8(argv[i]));
    }
    return arguments;
}

} // namespace platform
