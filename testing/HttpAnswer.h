// What a test's HTTP server gets and gives, simulated or on loopback.
#pragma once

#include "platform/Types.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace testing_support {

// What goes wrong with an answer.
enum class HttpFault {
    kNone,
    kRefused,     // no connection (simulated machine only; elsewhere use a port where nobody listens)
    kClosedEarly, // the connection ends before any answer
    kGarbage,     // bytes that are not HTTP
    kStalled,     // no answer at all, the connection stays open
    kStalledBody, // header and half of the body, then nothing, the connection stays open
    kShortBody,   // header with the whole length, half of the body, then the connection ends
    kReset,       // header and half of the body, then the connection is reset
    kLongBody,    // header with half of the length, then the whole body, the connection goes on; not with chunks
};

// Bytes of a script.
struct HttpBytes {
    std::string bytes;
    std::size_t times = 1;            // sent so often, one after the other
    std::chrono::milliseconds wait{}; // before each time
};

// An answer as the very bytes on the wire, whatever they are.
struct HttpScript {
    std::vector<HttpBytes> steps = {};
    enum class End { kClose, kReset, kHalfClose, kGoOn } end = End::kClose; // of the connection; half: only ours
};

struct HttpAnswer {
    DWORD status = 200;
    std::string body = {};
    std::vector<std::pair<std::string, std::string>> headers = {}; // beyond Content-Length
    bool chunked = false;                                          // transfer in chunks, without Content-Length
    HttpFault fault = HttpFault::kNone;
    DWORD latencyMs = 0; // before the first byte; above the client's own limit it gives up (simulated machine: 30 s)
    DWORD dripMs = 0;    // before each byte of the body, which then comes byte by byte; without a fault only
    std::string trailers = {}; // lines after the last chunk, with their ends (real servers only)
    bool endless = false; // in chunks, the body again and again until the client ends the connection; without a fault
                          // only (real servers only)
    std::optional<HttpScript> script = {}; // in place of all of the above (real servers only)
};

struct HttpExchange {
    std::string method;
    std::string target;      // path and query as on the wire
    std::string host;        // Host header
    std::string agent;       // User-Agent header
    unsigned connection = 0; // number of the connection it came over, from 1
    DWORD processId = 0;     // who asks, and in which session (simulated machine only)
    unsigned session = 0;
    std::vector<std::pair<std::string, std::string>> headers = {}; // all of them (real servers only)
};

using HttpHandler = std::function<HttpAnswer(const HttpExchange&)>;

} // namespace testing_support
