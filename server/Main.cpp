// ampora-reportd: serves power reports over HTTP.
#include "server/Live.h"
#include "server/ReportServer.h"
#include "server/SampleSource.h"

#include <exception>
#include <iostream>

namespace {

int ServeSamples(const reportd::Options& options)
{
    if (options.config) {
        throw reportd::COptionsError("--config is for live data; sample data has no settings");
    }
    reportd::CSampleSource source;
    reportd::CAnswers answers(source, nullptr, {});
    reportd::CReportServer server(options.listen.value_or(reportd::kDefaultListen),
                                  options.port.value_or(reportd::kDefaultPort), answers);
    server.StopOnSignals();
    std::cout << "ampora-reportd: serving sample data on http://" << server.Endpoint() << std::endl;
    server.Run();
    return 0;
}

int Serve(const reportd::Options& options)
{
    using reportd::SourceKind;
    const SourceKind usual = reportd::HasLiveSources() ? SourceKind::kLive : SourceKind::kSample;
    return options.source.value_or(usual) == SourceKind::kLive ? reportd::RunLive(options) : ServeSamples(options);
}

int RunProgram(const reportd::Options& options)
{
    if (options.help) {
        std::cout << reportd::HelpText();
        return 0;
    }
    if (options.version) {
        std::cout << "ampora-reportd " AMPORA_VERSION "\n";
        return 0;
    }
    switch (options.verb) {
    case reportd::Verb::kCheck:
        return reportd::RunCheck(options);
    case reportd::Verb::kImport:
        return reportd::RunImport(options);
    case reportd::Verb::kBackfill:
        return reportd::RunBackfill(options);
    default:
        return Serve(options);
    }
}

} // namespace

// Ends with 0, with 2 when the command line or the settings are not understood, with 1 when something fails.
int main(int argc, char** argv)
{
    try {
        return RunProgram(reportd::ParseOptions(std::vector<std::string>(argv + 1, argv + argc)));
    } catch (const reportd::COptionsError& error) {
        std::cerr << "ampora-reportd: " << error.what() << "\n\n" << reportd::HelpText();
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "ampora-reportd: " << error.what() << "\n";
        return 1;
    }
}
