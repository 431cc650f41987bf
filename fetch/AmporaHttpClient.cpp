#include "fetch/AmporaHttpClient.h"

#include "config/TraceLog.h"
#include "fetch/Url.h"
#include "platform/LastError.h"
#include "platform/Text.h"

#include <array>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace {

constexpr wchar_t kAgent[] = L"Ampora Service";
constexpr DWORD kContext = 1;
constexpr DWORD kFirstErrorStatus = 400;

bool IsOnLine(const CTraceLog& log)
{
    DWORD flags = 0;
    if (!platform::QueryConnectedState(&flags)) {
        log.War(L"Check Connection Fail");
        return false;
    }
    if ((flags & (platform::kConnectionLan | platform::kConnectionModem)) == 0) {
        log.Tra(L"Not Connect Internet");
        return false;
    }
    if ((flags & platform::kConnectionOffline) != 0) {
        log.Tra(L"Off Line Mode");
        return false;
    }
    return true;
}

// Null on failure, whatever its form.
platform::HttpConnectionPtr Connect(const platform::HttpSessionPtr& session, const UrlParts& url)
{
    try {
        return session ? platform::OpenHttpConnection(session, url.server, url.port) : nullptr;
    } catch (...) {
        return nullptr;
    }
}

// The body up to its end. Throws when it cannot be read or is too long.
std::string ReadBody(const platform::HttpRequestPtr& request)
{
    std::string body;
    std::array<char, 16384> chunk; // NOLINT(cppcoreguidelines-pro-type-member-init): filled by the read
    while (const std::size_t length = platform::ReadHttpBody(request, chunk.data(), chunk.size())) {
        if (length > kMaxBodyBytes - body.size()) {
            throw std::length_error("body too long");
        }
        body.append(chunk.data(), length);
    }
    return body;
}

// The rest of CAmporaHttpClient::GetData. request: null when it could not be opened.
BOOL Receive(const platform::HttpRequestPtr& request, CString& body, DWORD& status, const CTraceLog& log)
{
    if (!request || !platform::SendHttpRequest(request)) {
        log.Err(L"SendRequest Fail.");
        return FALSE;
    }
    if (!platform::QueryHttpStatusCode(request, &status)) {
        log.Err(L"QueryInfoStatusCode Fail.");
        return FALSE;
    }
    if (status >= kFirstErrorStatus) {
        log.Tra(L"StatusCode is Error %d", status);
        return TRUE;
    }
    const std::string bytes = ReadBody(request);
    body = std::move(body) + CAmporaHttpClient::ConvertFromUtf8(bytes.c_str(), bytes.size() + 1);
    return TRUE;
}

} // namespace

CAmporaHttpClient::CAmporaHttpClient() : m_session(platform::OpenHttpSession(kAgent, kContext))
{
    const CTraceScope scope(L"CAmporaHttpClient::CAmporaHttpClient");
}

CAmporaHttpClient::~CAmporaHttpClient()
{
    const CTraceScope scope(L"CAmporaHttpClient::~CAmporaHttpClient");
    platform::CloseHttpSession(m_session);
}

BOOL CAmporaHttpClient::GetData(CString strUrl, CString& body, DWORD& status)
{
    const CTraceScope scope(L"CAmporaHttpClient::GetData");
    if (!IsOnLine(scope)) {
        return FALSE;
    }
    UrlParts url;
    if (!SplitUrl(strUrl, &url)) {
        scope.Err(L"AfxParseURL Fail.");
        return FALSE;
    }
    const platform::HttpConnectionPtr connection = Connect(m_session, url);
    if (!connection) {
        scope.Err(L"CHttpConnection Create Fail.");
        platform::SetLastErrorCode(ERROR_OUTOFMEMORY);
        return FALSE;
    }
    // An exception of this call reaches the caller: a request that cannot be prepared is not a failed download.
    const platform::HttpRequestPtr request = platform::OpenHttpRequest(connection, url.object, kContext);
    try {
        return Receive(request, body, status, scope);
    } catch (const std::exception&) {
        scope.War(L"Exception!");
        return FALSE;
    }
}

CString CAmporaHttpClient::ConvertFromUtf8(const char* bytes, std::size_t length)
{
    try {
        const std::string_view text(bytes, length);
        return platform::DecodeUtf8(text.substr(0, text.find('\0')));
    } catch (const std::bad_alloc&) {
        return {};
    }
}
