// A file that somebody reads; its definitions are in the folders beside it.
#pragma once

#include <memory>
#include <string>

namespace testing_support {

// Opens an existing file for reading as a reader of the data files does, until the last reference goes. path: UTF-8.
// Null when it cannot be opened so.
std::shared_ptr<const void> HoldFileOpen(const std::string& path);

} // namespace testing_support
