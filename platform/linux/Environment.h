// Folders that the environment names.
#pragma once

#include <string>
#include <vector>

namespace platform::linux {

// The folder that a variable names, without a separator at its end ("/" alone stays); fallback when it is not set or
// empty. Empty when it is not absolute: that would be another folder in every working directory. Any thread, as long as
// none changes the environment.
std::string FolderFromEnvironment(const char* name, const std::string& fallback);

// The folders that a variable names, separated by colons, in their order; each as above.
std::vector<std::string> FoldersFromEnvironment(const char* name, const std::string& fallback);

} // namespace platform::linux
