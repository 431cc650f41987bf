// Serves synthetic files of the companies, as of now, for a report server that is tried out without asking anybody:
// published_server --folder FOLDER [--tls]
#include "server/JapanTime.h"
#include "testing/published/PublishedServer.h"
#include "testing/TlsFront.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <stdexcept>

namespace {

constexpr const char* kHelp =
    "usage: published_server --folder FOLDER [--tls]\n"
    "\n"
    "Serves what the companies would have published by now, on a free port of 127.0.0.1, until SIGINT or SIGTERM.\n"
    "FOLDER/ampora-reportd.toml are settings for ampora-reportd that point to it. With --tls it serves over HTTPS, "
    "with a\n"
    "certificate of an authority whose own is FOLDER/authority.pem.\n";

struct CommandLine {
    std::filesystem::path folder;
    bool hasTls = false;
};

CommandLine Parse(const std::vector<std::string>& arguments)
{
    CommandLine line;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "--tls") {
            line.hasTls = true;
        } else if (arguments[i] == "--folder" && i + 1 < arguments.size()) {
            line.folder = arguments[++i];
        } else {
            throw std::invalid_argument(arguments[i] + " is not understood");
        }
    }
    if (line.folder.empty()) {
        throw std::invalid_argument("--folder is missing");
    }
    return line;
}

void Serve(const CommandLine& line)
{
    testing_support::CPublishedServer server(reportd::ReadJapanClock);
    server.SetNewDay(std::chrono::minutes(0)); // to be tried out in the hours after midnight as well
    std::filesystem::create_directories(line.folder);
    std::optional<testing_support::CTlsFront> front;
    std::string origin = "http://127.0.0.1:" + std::to_string(server.Port());
    std::string authorityFile;
    if (line.hasTls) {
        front.emplace(server.Port(), line.folder);
        origin = "https://127.0.0.1:" + std::to_string(front->Port());
        authorityFile = std::filesystem::absolute(front->AuthorityFile()).string();
    }
    const std::filesystem::path settings = line.folder / "ampora-reportd.toml";
    std::ofstream file(settings);
    file << server.Settings(origin, authorityFile) << std::flush;
    if (!file) {
        throw std::runtime_error("cannot write " + settings.string());
    }
    boost::asio::io_context io;
    boost::asio::signal_set signals(io, SIGINT, SIGTERM);
    signals.async_wait([](const boost::system::error_code&, int) {});
    std::cout << "published_server: serving on " << origin << ", settings in " << settings.string() << std::endl;
    io.run();
}

} // namespace

// Ends with 0 after a signal, with 2 when the command line is not understood, with 1 when it cannot serve.
int main(int argc, char** argv)
{
    try {
        Serve(Parse(std::vector<std::string>(argv + 1, argv + argc)));
        return 0;
    } catch (const std::invalid_argument& error) {
        std::cerr << "published_server: " << error.what() << "\n\n" << kHelp;
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "published_server: " << error.what() << "\n";
        return 1;
    }
}
