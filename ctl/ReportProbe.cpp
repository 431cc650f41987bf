#include "ctl/ReportProbe.h"

#include "data/AmporaDataCollection.h"
#include "fetch/AmporaGoolgeSiteConfig.h"
#include "fetch/AmporaHttpClient.h"
#include "fetch/Url.h"
#include "platform/Apartment.h"
#include "platform/LastError.h"

#include <array>
#include <string>

namespace ctl {

namespace {

constexpr DWORD kWaitLimitMs = 5000;
constexpr DWORD kFirstErrorStatus = 400;
constexpr DWORD kStatusNoData = 503;

// As long as it lives, documents may be read.
class CApartment {
public:
    CApartment() { platform::EnterApartment(); }
    ~CApartment() { platform::LeaveApartment(); }
    CApartment(const CApartment&) = delete;
    CApartment& operator=(const CApartment&) = delete;
};

// A site of no company in particular, which writes no file.
class CProbedSite final : public CAmporaGoolgeSiteConfig {
public:
    using CAmporaGoolgeSiteConfig::GetURL;
    CString GetURL(DWORD /*dataType*/, SYSTEMTIME /*day*/) override { return {}; }
    using CAmporaGoolgeSiteConfig::OutData;
    void OutData(DWORD /*dataType*/, const CAmporaDataCollection* /*collection*/, SYSTEMTIME /*writeTime*/) override {}
};

ProbeResult ResultOf(DWORD error)
{
    switch (error) {
    case platform::kHttpTimedOut:
        return ProbeResult::kTimedOut;
    case platform::kHttpNameNotResolved:
        return ProbeResult::kNameUnknown;
    case platform::kHttpCannotConnect:
        return ProbeResult::kRefused;
    default:
        return ProbeResult::kNoAnswer;
    }
}

// The body as far as amporasrv would read it. Throws CInternetException when it breaks off.
std::string ReadBody(const platform::HttpRequestPtr& request)
{
    std::string body;
    std::array<char, 16384> chunk{};
    while (const std::size_t size = platform::ReadHttpBody(request, chunk.data(), chunk.size())) {
        body.append(chunk.data(), size);
        if (body.size() > kMaxBodyBytes) {
            return {};
        }
    }
    return body;
}

Probe Ask(CProbedSite& site, DWORD dataType, const UrlParts& url)
{
    const platform::HttpSessionPtr session = platform::OpenHttpSession(L"Ampora Service", 1);
    if (!session) {
        return {};
    }
    platform::LimitHttpWaits(session, kWaitLimitMs);
    const platform::HttpConnectionPtr connection = platform::OpenHttpConnection(session, url.server, url.port);
    const platform::HttpRequestPtr request =
        connection ? platform::OpenHttpRequest(connection, url.object, 1) : nullptr;
    if (!request || !platform::SendHttpRequest(request)) {
        return {ResultOf(platform::GetLastErrorCode())};
    }
    DWORD status = 0;
    if (!platform::QueryHttpStatusCode(request, &status)) {
        return {};
    }
    if (status >= kFirstErrorStatus) {
        return {status == kStatusNoData ? ProbeResult::kNoData : ProbeResult::kErrorStatus, status};
    }
    const std::string bytes = ReadBody(request);
    const CString body = CAmporaHttpClient::ConvertFromUtf8(bytes.c_str(), bytes.size() + 1);
    return {site.AnalyzeData(dataType, body, status) ? ProbeResult::kReport : ProbeResult::kNoReport, status};
}

} // namespace

Probe ProbeReportApi(const catalogue::Company& company, const catalogue::Kind& kind, const SYSTEMTIME& day)
{
    const CApartment apartment;
    CProbedSite site;
    UrlParts url;
    if (!SplitUrl(site.GetURL(CString(company.key.Wide()), kind.dataType, day), &url)) {
        return {ProbeResult::kHostUnusable};
    }
    try {
        return Ask(site, kind.dataType, url);
    } catch (const platform::CInternetException&) {
        return {}; // broke off
    }
}

bool IsOnLine()
{
    DWORD flags = 0;
    return platform::QueryConnectedState(&flags) &&
           (flags & (platform::kConnectionLan | platform::kConnectionModem)) != 0 &&
           (flags & platform::kConnectionOffline) == 0;
}

} // namespace ctl
