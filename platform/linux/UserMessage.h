// Messages that the user gets whatever the trace level is.
#pragma once

#include "platform/DebugOutput.h"
#include "platform/Text.h"

#include <cerrno>
#include <string>

namespace platform::linux {

// Writes "program: message" to standard error as one line. message: UTF-8, without a line feed. Any thread.
inline void TellUser(const std::string& message)
{
    OutputDebugText(DecodeUtf8(std::string(program_invocation_short_name) + ": " + message + "\n"));
}

} // namespace platform::linux
