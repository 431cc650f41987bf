// An HTTP server for tests, on loopback.
#pragma once

#include "testing/HttpAnswer.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace testing_support {

// The value of a request's header field, whose name's letter case makes no difference; empty when there is none.
std::string FieldOf(const HttpExchange& exchange, const std::string& name);

// A real HTTP/1.1 server on 127.0.0.1 that does what its handler says, faults included, byte for byte. It answers every
// method, keeps connections open until the client or an answer's "Connection: close" ends them, and serves any number
// of them at a time on one thread of its own. All members may be called from any thread.
class CLoopbackServer {
public:
    // Listens on a free port from here on. handler: runs on the server's thread, must not throw, gives the answer to
    // each request; HttpFault::kRefused comes too late here and is kClosedEarly. Throws std::exception when the server
    // cannot listen.
    explicit CLoopbackServer(HttpHandler handler);
    // Ends every connection, stalled ones too.
    ~CLoopbackServer();
    CLoopbackServer(const CLoopbackServer&) = delete;
    CLoopbackServer& operator=(const CLoopbackServer&) = delete;

    WORD Port() const;

    // Bytes to send before the header of every answer from the next request on; by default none.
    void SetPrelude(std::string bytes);

    // What the next connections, so many of them, get when they are accepted, before any request; after a script that
    // goes on they are served.
    void SetGreeting(HttpScript script, unsigned connections);

    // Ends every connection that a fault stalls now, after waiting for one at most this long. False when there is none.
    bool EndStalled(std::chrono::seconds limit);

    // Every request so far, in the order in which they arrived.
    std::vector<HttpExchange> Exchanges() const;
    // Connections accepted so far.
    unsigned ConnectionCount() const;
    // Connections open now, as far as the server has noticed.
    unsigned OpenConnectionCount() const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

// A port of 127.0.0.1 on which nobody listens, for as long as this lives.
class CClosedPort {
public:
    CClosedPort();
    ~CClosedPort();
    CClosedPort(const CClosedPort&) = delete;
    CClosedPort& operator=(const CClosedPort&) = delete;

    WORD Port() const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace testing_support
