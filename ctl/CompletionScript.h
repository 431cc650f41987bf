// Completion of the command line in the user's shell.
#pragma once

#include <CLI/App.hpp>

#include <string>
#include <vector>

namespace ctl {

// The shells that a script can be made for.
inline const std::vector<std::string> kShells = {"bash", "zsh", "fish", "powershell"};

// The script that completes the verbs, options and known values of a program in this shell, one of kShells. A value is
// known when its option or parameter lists its words ("one|two") or is of the type DIR or FILE. Any thread. Throws
// std::bad_alloc only.
std::string CompletionScript(const CLI::App& program, const std::string& shell);

} // namespace ctl
