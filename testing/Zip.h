// ZIP archives and gzip streams for tests.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace testing_support {

// The bytes of an archive of these members in this order: path, with or without folders, and content. A path that ends
// in '/' is a folder. Throws std::runtime_error.
std::string MakeZip(const std::vector<std::pair<std::string, std::string>>& members);

// The bytes of a gzip stream of this content. Throws std::runtime_error.
std::string MakeGzip(const std::string& content);

} // namespace testing_support
