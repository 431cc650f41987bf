// HTTP/1.1 server of the answers.
#pragma once

#include "server/Answers.h"

#include <functional>
#include <memory>
#include <string>

namespace reportd {

// The wall clock at the companies; called for every request, on the thread that runs the server.
using LocalClock = std::function<LocalTime()>;
// The machine's own local time, which sample data goes by.
LocalTime ReadSystemClock();

// Serves answers; connections are kept alive, at most 200 of them: a further one waits until another has been closed.
// It closes a connection that takes more than 30 seconds to send its next request or to take an answer, or whose
// request has a header of more than 8 KiB or a body of more than 64 KiB. While the process is out of descriptors it
// looks for a new connection ten times a second. Every answer names the source of its data in the header field
// X-Ampora-Source.
class CReportServer {
public:
    // Listens from now on, but answers only in Run. address: numeric IPv4 or IPv6 address; port: 0 for any free one;
    // answers: must live as long as the server, which uses it in Run only.
    // Throws std::runtime_error (boost::system::system_error) when it cannot listen there.
    CReportServer(const std::string& address, unsigned short port, CAnswers& answers,
                  LocalClock clock = ReadSystemClock);
    ~CReportServer();
    CReportServer(const CReportServer&) = delete;
    CReportServer& operator=(const CReportServer&) = delete;

    // Where it listens, the port that was chosen included: "127.0.0.1:8470", "[::1]:8470".
    std::string Endpoint() const;
    unsigned short Port() const;

    // Makes SIGINT and SIGTERM call Stop. Before Run, at most once.
    void StopOnSignals();

    // Answers requests on the calling thread until Stop; once only.
    void Run();

    // Ends Run, or makes a later one return at once; open connections are dropped. Any thread.
    void Stop();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace reportd
