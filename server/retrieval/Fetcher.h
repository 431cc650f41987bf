// Gets the companies' files over HTTP.
#pragma once

#include "server/retrieval/ServerDelay.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

namespace reportd {

struct FetchRequest {
    std::string url = {};           // http or https, without credentials
    std::string agent = {};         // User-Agent; empty: none is sent
    std::string etag = {};          // of the copy that we have, as the server gave it; empty: none
    std::string lastModified = {};  // the same
    std::string authorityFile = {}; // PEM file of authorities that are trusted besides the system's; empty: none
};

// What came of a request. An answer of any status is an answer, and failure is empty then.
struct FetchAnswer {
    long status = 0;               // of HTTP, after redirects; 0: none came
    std::string body = {};         // decoded; empty unless the status is 200
    std::string etag = {};         // as the server gave it; empty: none, or none that can be sent back
    std::string lastModified = {}; // the same
    // Empty, or one of: "url" (no address that may be asked), "dns", "connect", "tls", "timeout", "too_big", "redirect"
    // (too many, or to where it may not lead), "broken" (not HTTP, a wrong length, damaged compression), "interrupted",
    // "authority" (the file of authorities cannot be read).
    std::string failure = {};
    std::string detail = {}; // for people: what failed; empty without a failure
    // How long the server wants not to be asked (Retry-After), and how long its answer stays fresh (max-age without
    // Age, or else Expires). From 0 to kLongestServerDelay; none when it says nothing that can be understood.
    std::optional<std::chrono::seconds> retryAfter = {};
    std::optional<std::chrono::seconds> freshFor = {};
};

struct FetchLimits {
    std::chrono::milliseconds connect{10'000};     // name, connection and TLS handshake
    std::chrono::milliseconds total{30'000};       // redirects included
    std::size_t bodyBytes = std::size_t{1} << 20U; // after decompression
    long redirects = 5;
};

// A client for one request at a time. Certificates are verified. It takes a proxy from the environment variables that
// curl knows, sends no cookies and no credentials, and follows redirects to http and https, from https to https only.
// Every request has a connection of its own.
class CFetcher {
public:
    // Throws std::runtime_error when the HTTP library cannot be started.
    explicit CFetcher(const FetchLimits& limits = {});
    ~CFetcher();
    CFetcher(const CFetcher&) = delete;
    CFetcher& operator=(const CFetcher&) = delete;

    // Carries out one GET; blocks for up to the limit of time. One thread at a time. Throws std::bad_alloc when memory
    // runs out, nothing else.
    FetchAnswer Fetch(const FetchRequest& request);

    // Ends the running request within a second and every later one at once, with the failure "interrupted". Any thread.
    void Interrupt();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace reportd
