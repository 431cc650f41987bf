// Command line of ampora-reportd.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace reportd {

struct Options {
    std::string listen = "127.0.0.1"; // numeric address to listen on
    unsigned short port = 8470;       // 0: any free one
    bool help = false;
    bool version = false;
};

// A command line that is not understood; what() says why.
class COptionsError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// arguments: without the program's name. Throws COptionsError.
Options ParseOptions(const std::vector<std::string>& arguments);

// What --help prints.
extern const char* const kHelpText;

} // namespace reportd
