// The companies' web servers, synthetic, on loopback.
#pragma once

#include "testing/LoopbackServer.h"
#include "testing/published/Generator.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

namespace testing_support {

// What is wrong with how a company's server answers.
enum class WireFault {
    kNone,
    kDown,              // ends each connection without an answer
    kStalled,           // no answer, the connection stays open
    kStalledBody,       // half of the file, then nothing
    kSlow,              // a byte each tenth of a second
    kShort,             // half of the file, then the end
    kReset,             // half of the file, then a reset
    kNotHttp,           // other bytes
    kForbidden,         // 403
    kMissing,           // 404
    kTooMany,           // 429 with Retry-After: 1200
    kServerError,       // 503
    kUnchanged,         // 304, asked for or not
    kRedirectLoop,      // to itself
    kRedirectElsewhere, // to file:///etc/passwd
    kEndless,           // the file again and again
    kGzipBomb,          // 64 MiB of zeros in 64 KiB
    kBadGzip,           // the file, called gzip
};

// A state of a company's file: what PublishedCsv is made from.
struct Publication {
    std::chrono::year_month_day date;
    reportd::LocalTime published;
    unsigned revision = 0;

    bool operator==(const Publication&) const = default;
};

// Serves the files of one layout for each company, as they stand at the moment that the clock tells, with ETag,
// Last-Modified and 304. They are renewed every five minutes.
//
// Tokyo and Chubu have one address each. It has today's file from 01:00 on and until then yesterday's, which is stamped
// 0:05 at the latest. The others have one for each day, which has no file before 01:05 and later on keeps the one
// stamped 0:10 of the day after (Kansai: 01:10). All members may be called from any thread.
class CPublishedServer {
public:
    using Clock = std::function<reportd::LocalTime()>;

    // clock: Japan's; called on the server's thread. Throws as CLoopbackServer.
    explicit CPublishedServer(Clock clock,
                              const std::vector<Layout>& layouts = {Layout::kTokyoD1, Layout::kTohoku, Layout::kChubu,
                                                                    Layout::kKansai, Layout::kKyushu});
    ~CPublishedServer();
    CPublishedServer(const CPublishedServer&) = delete;
    CPublishedServer& operator=(const CPublishedServer&) = delete;

    WORD Port() const;
    // Address of a company's file, with %Y%m%d where each day has one. origin: "https://127.0.0.1:1", or empty for this
    // server's own.
    std::string UrlPattern(int siteNumber, const std::string& origin = {}) const;

    // Settings for ampora-reportd, TOML, that point every company's address to this server, by origin as above. A
    // company that has no file here is not enabled. authorityFile: for an origin with TLS; empty: none.
    std::string Settings(const std::string& origin = {}, const std::string& authorityFile = {}) const;

    // From now on; kNone ends it.
    void SetFault(int siteNumber, WireFault fault);
    void SetDamage(int siteNumber, const CsvOptions& options);
    // The measured values of a day are others from that moment on, for which the file is stamped again.
    void Revise(int siteNumber, std::chrono::year_month_day date, reportd::LocalTime from);
    // The file of a day is missing from now on.
    void Remove(int siteNumber, std::chrono::year_month_day date);
    // How long after midnight every address begins with the new day, in the place of the times above.
    void SetNewDay(std::chrono::minutes afterMidnight);
    // Header fields of every answer, whatever its status, besides the usual ones.
    void SetHeaders(std::vector<std::pair<std::string, std::string>> headers);
    // Whether answers have ETag and Last-Modified; at first they have.
    void SetValidators(bool hasValidators);

    // What the address says at a moment. date: of the address; any where it has none. None: 404.
    std::optional<Publication> At(int siteNumber, std::chrono::year_month_day date, reportd::LocalTime moment) const;
    Layout LayoutOf(int siteNumber) const;

    std::vector<HttpExchange> Exchanges() const;
    // The requests for one company's files.
    std::vector<HttpExchange> ExchangesOf(int siteNumber) const;

private:
    struct Source;

    HttpAnswer Answer(const HttpExchange& exchange) const;
    HttpAnswer AnswerOf(int siteNumber, const Source& source, const HttpExchange& exchange) const;

    const Clock m_clock;
    mutable std::mutex m_mutex; // guards what follows
    std::map<int, Source> m_sources;
    std::optional<std::chrono::minutes> m_newDay;
    bool m_hasValidators = true;
    std::vector<std::pair<std::string, std::string>> m_headers;
    std::unique_ptr<CLoopbackServer> m_server;
};

} // namespace testing_support
