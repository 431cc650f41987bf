#include "testing/published/PublishedServer.h"

#include "format/Catalogue.h"
#include "server/JapanTime.h"
#include "server/retrieval/UrlPattern.h"
#include "testing/Zip.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <set>

namespace testing_support {

using reportd::LocalTime;

namespace {

// Where a company's file lies, and when it is closed on the day after.
struct Address {
    int siteNumber;
    const char* path;
    minutes closed;
};
constexpr std::array kAddresses = {
    Address{catalogue::kTokyo, "/tokyo/juyo-d1-j.csv", minutes{5}},
    Address{catalogue::kTohoku, "/tohoku/juyo_02_%Y%m%d.csv", minutes{10}},
    Address{catalogue::kChubu, "/chubu/juyo_cepco003.csv", minutes{5}},
    Address{catalogue::kKansai, "/kansai/juyo_06_%Y%m%d.csv", minutes{70}},
    Address{catalogue::kKyushu, "/kyushu/juyo-hourly-%Y%m%d.csv", minutes{10}},
};

const Address& AddressOf(int siteNumber)
{
    return *std::find_if(kAddresses.begin(), kAddresses.end(),
                         [siteNumber](const Address& address) { return address.siteNumber == siteNumber; });
}

// The folder of a company, with its slashes.
std::string FolderOf(const Address& address)
{
    const std::string path = address.path;
    return path.substr(0, path.find('/', 1) + 1);
}

constexpr minutes kRenewal{5};
constexpr minutes kNewDailyFile{65};
constexpr minutes kNewFixedFile{60};

LocalTime RenewedAt(LocalTime moment) { return LocalTime(moment.time_since_epoch() / kRenewal * seconds(kRenewal)); }

// As HTTP writes it, in GMT.
std::string HttpDate(LocalTime moment)
{
    const auto utc = reportd::MomentOf(moment);
    const std::time_t time = utc.time_since_epoch().count();
    std::tm parts = {};
    gmtime_r(&time, &parts);
    std::array<char, 40> text = {};
    std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S GMT", &parts);
    return text.data();
}

// The day of a daily address that was asked for, from those around a day; none: it is of no such day.
std::optional<year_month_day> DayOfPath(const std::string& pattern, const std::string& path, local_days around)
{
    for (local_days day = around + days{1}; day > around - days{400}; day -= days{1}) {
        if (reportd::UrlOfDay(pattern, year_month_day{day}) == path) {
            return year_month_day{day};
        }
    }
    return std::nullopt;
}

HttpAnswer Broken(WireFault fault, const std::string& target, const std::string& body)
{
    switch (fault) {
    case WireFault::kDown:
        return {.fault = HttpFault::kClosedEarly};
    case WireFault::kStalled:
        return {.fault = HttpFault::kStalled};
    case WireFault::kStalledBody:
        return {.body = body, .fault = HttpFault::kStalledBody};
    case WireFault::kSlow:
        return {.body = body, .dripMs = 100};
    case WireFault::kShort:
        return {.body = body, .fault = HttpFault::kShortBody};
    case WireFault::kReset:
        return {.body = body, .fault = HttpFault::kReset};
    case WireFault::kEndless:
        return {.body = body, .endless = true};
    case WireFault::kRedirectLoop:
        return {.status = 302, .headers = {{"Location", target}}};
    case WireFault::kRedirectElsewhere:
        return {.status = 302, .headers = {{"Location", "file:///etc/passwd"}}};
    default:
        return {.fault = HttpFault::kGarbage};
    }
}

HttpAnswer Refused(WireFault fault)
{
    switch (fault) {
    case WireFault::kForbidden:
        return {.status = 403, .body = "forbidden"};
    case WireFault::kTooMany:
        return {.status = 429, .body = "later", .headers = {{"Retry-After", "1200"}}};
    case WireFault::kServerError:
        return {.status = 503, .body = "maintenance"};
    case WireFault::kUnchanged:
        return {.status = 304};
    default:
        return {.status = 404, .body = "not found"};
    }
}

} // namespace

struct CPublishedServer::Source {
    Layout layout;
    WireFault fault = WireFault::kNone;
    CsvOptions options = {};
    std::map<year_month_day, LocalTime> revisedFrom = {};
    std::set<year_month_day> removed = {};
};

CPublishedServer::CPublishedServer(Clock clock, const std::vector<Layout>& layouts) : m_clock(std::move(clock))
{
    for (const Layout layout : layouts) {
        m_sources.emplace(SiteNumberOf(layout), Source{.layout = layout});
    }
    m_server = std::make_unique<CLoopbackServer>([this](const HttpExchange& exchange) { return Answer(exchange); });
}

CPublishedServer::~CPublishedServer() = default;

WORD CPublishedServer::Port() const { return m_server->Port(); }

std::string CPublishedServer::UrlPattern(int siteNumber, const std::string& origin) const
{
    const std::string own = "http://127.0.0.1:" + std::to_string(Port());
    return (origin.empty() ? own : origin) + AddressOf(siteNumber).path;
}

std::string CPublishedServer::Settings(const std::string& origin, const std::string& authorityFile) const
{
    std::string text = "authority_file = \"" + authorityFile + "\"\n";
    const std::lock_guard lock(m_mutex);
    for (const Address& address : kAddresses) {
        const bool isServed = m_sources.contains(address.siteNumber);
        const std::string url = UrlPattern(address.siteNumber, origin);
        text += "\n[company." + std::string(catalogue::FindCompany(address.siteNumber)->key.Narrow()) + "]\n" +
                "enabled = " + (isServed ? "true" : "false") + "\ntoday_url = \"" + url + "\"\npast_url = \"" +
                (reportd::HasDailyUrl(url) ? url : "") + "\"\n";
    }
    return text;
}

void CPublishedServer::SetFault(int siteNumber, WireFault fault)
{
    const std::lock_guard lock(m_mutex);
    m_sources.at(siteNumber).fault = fault;
}

void CPublishedServer::SetDamage(int siteNumber, const CsvOptions& options)
{
    const std::lock_guard lock(m_mutex);
    m_sources.at(siteNumber).options = options;
}

void CPublishedServer::Revise(int siteNumber, year_month_day date, LocalTime from)
{
    const std::lock_guard lock(m_mutex);
    m_sources.at(siteNumber).revisedFrom[date] = from;
}

void CPublishedServer::Remove(int siteNumber, year_month_day date)
{
    const std::lock_guard lock(m_mutex);
    m_sources.at(siteNumber).removed.insert(date);
}

void CPublishedServer::SetNewDay(minutes afterMidnight)
{
    const std::lock_guard lock(m_mutex);
    m_newDay = afterMidnight;
}

void CPublishedServer::SetHeaders(std::vector<std::pair<std::string, std::string>> headers)
{
    const std::lock_guard lock(m_mutex);
    m_headers = std::move(headers);
}

void CPublishedServer::SetValidators(bool hasValidators)
{
    const std::lock_guard lock(m_mutex);
    m_hasValidators = hasValidators;
}

std::optional<Publication> CPublishedServer::At(int siteNumber, year_month_day date, LocalTime moment) const
{
    const std::lock_guard lock(m_mutex);
    const Address& address = AddressOf(siteNumber);
    const local_days today = std::chrono::floor<days>(moment);
    local_days day = local_days{date};
    if (!reportd::HasDailyUrl(address.path)) {
        day = moment < today + m_newDay.value_or(kNewFixedFile) ? today - days{1} : today;
    } else if (moment < day + m_newDay.value_or(kNewDailyFile)) {
        return std::nullopt;
    }
    Publication publication = {.date = year_month_day{day},
                               .published = std::min<LocalTime>(RenewedAt(moment), day + days{1} + address.closed)};
    const auto& revisions = m_sources.at(siteNumber).revisedFrom;
    const auto revision = revisions.find(publication.date);
    if (revision != revisions.end() && moment >= revision->second) {
        publication.revision = 1;
        publication.published = std::max(publication.published, revision->second);
    }
    return publication;
}

Layout CPublishedServer::LayoutOf(int siteNumber) const
{
    const std::lock_guard lock(m_mutex);
    return m_sources.at(siteNumber).layout;
}

std::vector<HttpExchange> CPublishedServer::Exchanges() const { return m_server->Exchanges(); }

std::vector<HttpExchange> CPublishedServer::ExchangesOf(int siteNumber) const
{
    std::vector<HttpExchange> exchanges = m_server->Exchanges();
    const std::string folder = FolderOf(AddressOf(siteNumber));
    std::erase_if(exchanges, [&](const HttpExchange& exchange) { return !exchange.target.starts_with(folder); });
    return exchanges;
}

HttpAnswer CPublishedServer::Answer(const HttpExchange& exchange) const
{
    for (const Address& address : kAddresses) {
        std::unique_lock lock(m_mutex);
        const auto source = m_sources.find(address.siteNumber);
        if (source != m_sources.end() && exchange.target.starts_with(FolderOf(address))) {
            const Source copy = source->second;
            const auto headers = m_headers;
            lock.unlock();
            HttpAnswer answer = AnswerOf(address.siteNumber, copy, exchange);
            answer.headers.insert(answer.headers.end(), headers.begin(), headers.end());
            return answer;
        }
    }
    return Refused(WireFault::kMissing);
}

HttpAnswer CPublishedServer::AnswerOf(int siteNumber, const Source& source, const HttpExchange& exchange) const
{
    if (Refused(source.fault).status != 404 || source.fault == WireFault::kMissing) {
        return Refused(source.fault);
    }
    const LocalTime now = m_clock();
    const std::optional<year_month_day> date =
        DayOfPath(AddressOf(siteNumber).path, exchange.target, std::chrono::floor<days>(now));
    const std::optional<Publication> publication = date ? At(siteNumber, *date, now) : std::nullopt;
    if (!publication || source.removed.contains(publication->date)) {
        return Refused(WireFault::kMissing);
    }
    CsvOptions options = source.options;
    options.revision = publication->revision;
    const std::string body = PublishedCsv(source.layout, publication->date, publication->published, options);
    if (source.fault == WireFault::kGzipBomb || source.fault == WireFault::kBadGzip) {
        const bool isBomb = source.fault == WireFault::kGzipBomb;
        static const std::string bomb = MakeGzip(std::string(std::size_t{64} << 20U, '\0'));
        return {.body = isBomb ? bomb : body, .headers = {{"Content-Encoding", "gzip"}}};
    }
    if (source.fault != WireFault::kNone) {
        return Broken(source.fault, exchange.target, body);
    }
    const std::unique_lock lock(m_mutex);
    if (!m_hasValidators) {
        return {.body = body};
    }
    const std::string etag = "\"" + std::to_string(std::hash<std::string>()(body)) + "\"";
    const std::vector<std::pair<std::string, std::string>> validators = {
        {"ETag", etag}, {"Last-Modified", HttpDate(publication->published)}};
    return FieldOf(exchange, "If-None-Match") == etag ? HttpAnswer{.status = 304, .headers = validators}
                                                      : HttpAnswer{.body = body, .headers = validators};
}

} // namespace testing_support
