// ampora-reportd: serves power reports over HTTP.
#include "server/Options.h"
#include "server/ReportServer.h"

#include <exception>
#include <iostream>

namespace {

void RunProgram(const reportd::Options& options)
{
    if (options.help) {
        std::cout << reportd::kHelpText;
        return;
    }
    if (options.version) {
        std::cout << "ampora-reportd " AMPORA_VERSION "\n";
        return;
    }
    reportd::CReportServer server(options.listen, options.port);
    server.StopOnSignals();
    std::cout << "ampora-reportd: serving sample data on http://" << server.Endpoint() << std::endl;
    server.Run();
}

} // namespace

// Ends with 0, with 2 when the command line is not understood, with 1 when the server fails.
int main(int argc, char** argv)
{
    try {
        RunProgram(reportd::ParseOptions(std::vector<std::string>(argv + 1, argv + argc)));
        return 0;
    } catch (const reportd::COptionsError& error) {
        std::cerr << "ampora-reportd: " << error.what() << "\n\n" << reportd::kHelpText;
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "ampora-reportd: " << error.what() << "\n";
        return 1;
    }
}
