// page_server SOURCE: the report server for the tests of its pages, with a clock that stands still.
//
// SOURCE: "sample" is sample data, "odd" a live source with missing, old and extreme values, "hostile" one whose name
// is markup. Prints "ready URL". Obeys lines of standard input: "advance N" moves the clock by N minutes, "break" makes
// the source fail; each is answered with "done". Ends with its input.
#include "server/ReportServer.h"
#include "server/SampleSource.h"
#include "testing/browser/OddSource.h"

#include <atomic>
#include <iostream>
#include <sstream>
#include <thread>

namespace {

using reportd::LocalTime;

std::unique_ptr<reportd::CFigureSource> MakeSource(const std::string& name)
{
    if (name == "sample") {
        return std::make_unique<reportd::CSampleSource>();
    }
    if (name == "odd") {
        return testing_support::MakeOddSource("live");
    }
    if (name == "hostile") {
        return testing_support::MakeOddSource("<img src=x onerror=alert(1)>\"'&");
    }
    throw std::invalid_argument("page_server sample|odd|hostile");
}

// What the commands say, for the thread of the server.
struct Orders {
    std::atomic<long> minutes = 0;
    std::atomic<bool> isBroken = false;
};

void Obey(const std::string& line, Orders& orders)
{
    std::istringstream words(line);
    std::string order;
    words >> order;
    if (order == "advance") {
        long minutes = 0;
        words >> minutes;
        orders.minutes += minutes;
    } else if (order == "break") {
        orders.isBroken = true;
    } else {
        throw std::invalid_argument("unknown order: " + line);
    }
    std::cout << "done" << std::endl;
}

void Serve(const std::string& name)
{
    const std::unique_ptr<reportd::CFigureSource> source = MakeSource(name);
    Orders orders;
    const auto readClock = [&] {
        auto* const odd = dynamic_cast<testing_support::CScriptedSource*>(source.get());
        if (orders.isBroken && odd != nullptr) {
            odd->Break();
        }
        return testing_support::kOddNow + std::chrono::minutes{orders.minutes};
    };
    reportd::CAnswers answers(*source, nullptr, {});
    reportd::CReportServer server("127.0.0.1", 0, answers, readClock);
    std::thread thread([&server] { server.Run(); });
    std::cout << "ready http://" << server.Endpoint() << std::endl;
    try {
        std::string line;
        while (std::getline(std::cin, line)) {
            Obey(line, orders);
        }
    } catch (...) {
        server.Stop();
        thread.join();
        throw;
    }
    server.Stop();
    thread.join();
}

} // namespace

int main(int argc, char** argv)
{
    try {
        Serve(argc == 2 ? argv[1] : "");
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "page_server: " << error.what() << "\n";
        return 1;
    }
}
