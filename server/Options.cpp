#include "server/Options.h"

#include <charconv>

namespace reportd {
namespace {

unsigned short ParsePort(const std::string& text)
{
    unsigned short port = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, port);
    if (error != std::errc() || stop != end) {
        throw COptionsError("--port needs a number from 0 to 65535, not \"" + text + "\"");
    }
    return port;
}

} // namespace

const char* const kHelpText = "Usage: ampora-reportd [--listen ADDRESS] [--port N]\n"
                              "Answers power reports with sample data over HTTP until it gets SIGINT or SIGTERM.\n"
                              "\n"
                              "  --listen ADDRESS  numeric address to listen on (default 127.0.0.1)\n"
                              "  --port N          port to listen on, 0 for any free one (default 8470)\n"
                              "  --help            print this text and end\n"
                              "  --version         print the version and end\n";

Options ParseOptions(const std::vector<std::string>& arguments)
{
    Options options;
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        const auto takeValue = [&]() -> const std::string& {
            const std::string& option = *argument;
            if (++argument == arguments.end()) {
                throw COptionsError(option + " needs a value");
            }
            return *argument;
        };
        if (*argument == "--listen") {
            options.listen = takeValue();
        } else if (*argument == "--port") {
            options.port = ParsePort(takeValue());
        } else if (*argument == "--help") {
            options.help = true;
        } else if (*argument == "--version") {
            options.version = true;
        } else {
            throw COptionsError("unknown option \"" + *argument + "\"");
        }
    }
    return options;
}

} // namespace reportd
