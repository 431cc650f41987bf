// HTTP on WinINet.
#include "platform/Http.h"

#include "platform/win32/Handle.h"

#include <algorithm>
#include <array>
#include <cwchar>
#include <iterator>
#include <utility>
#include <wininet.h>

namespace platform {

namespace {

struct InternetHandleTrait {
    using Type = HINTERNET;
    static Type Invalid() { return nullptr; }
    static void Close(Type handle) { ::InternetCloseHandle(handle); }
};
using CInternetHandle = win32::CUniqueResource<InternetHandleTrait>;

constexpr DWORD kRequestFlags = INTERNET_FLAG_EXISTING_CONNECT | INTERNET_FLAG_NO_CACHE_WRITE;

// False when the answer has no status.
bool ReadStatus(HINTERNET request, DWORD* status)
{
    *status = 0;
    DWORD size = sizeof *status;
    return ::HttpQueryInfoW(request, HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, status, &size, nullptr) &&
           *status != 0;
}

// An option that the system does not take leaves its own limit in force.
void SetLimit(HINTERNET handle, DWORD option, DWORD value)
{
    ::InternetSetOptionW(handle, option, &value, sizeof(value));
}

bool HasHeader(HINTERNET request, DWORD header)
{
    DWORD size = 0;
    ::HttpQueryInfoW(request, header, nullptr, &size, nullptr);
    return ::GetLastError() == ERROR_INSUFFICIENT_BUFFER;
}

// The length that the answer declares for its body; 0 when it declares none or has no body by its nature.
ULONGLONG DeclaredBodySize(HINTERNET request)
{
    DWORD status = 0;
    if (!ReadStatus(request, &status) || status == HTTP_STATUS_NO_CONTENT || status == HTTP_STATUS_NOT_MODIFIED ||
        HasHeader(request, HTTP_QUERY_TRANSFER_ENCODING)) {
        return 0;
    }
    std::array<wchar_t, 32> text = {};
    DWORD size = sizeof text - sizeof(wchar_t);
    if (!::HttpQueryInfoW(request, HTTP_QUERY_CONTENT_LENGTH, text.data(), &size, nullptr)) {
        return 0;
    }
    return std::wcstoull(text.data(), nullptr, 10);
}

} // namespace

class CHttpSession {
public:
    CInternetHandle handle;
    DWORD context;
    DWORD waitLimitMs = 0; // 0: the system's own limits
};

class CHttpConnection {
public:
    HttpSessionPtr session;
    CInternetHandle handle;
};

class CHttpRequest {
public:
    HttpConnectionPtr connection;
    CInternetHandle handle;
    ULONGLONG bodyRead = 0; // bytes so far
    ULONGLONG endMs = 0;    // when the body must have come, on the scale of GetTickCount64
};

BOOL QueryConnectedState(DWORD* flags)
{
    *flags = 0;
    return ::InternetGetConnectedState(flags, 0);
}

HttpSessionPtr OpenHttpSession(const wchar_t* agent, DWORD context)
{
    CInternetHandle handle(::InternetOpenW(agent, INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0));
    return handle ? std::make_shared<CHttpSession>(CHttpSession{std::move(handle), context}) : nullptr;
}

void LimitHttpWaits(const HttpSessionPtr& session, DWORD timeoutMs)
{
    SetLimit(session->handle.Get(), INTERNET_OPTION_CONNECT_TIMEOUT, timeoutMs);
    SetLimit(session->handle.Get(), INTERNET_OPTION_CONNECT_RETRIES, 1);
    session->waitLimitMs = timeoutMs;
}

void CloseHttpSession(const HttpSessionPtr& session)
{
    if (session != nullptr) {
        session->handle.Reset();
    }
}

HttpConnectionPtr OpenHttpConnection(const HttpSessionPtr& session, const CString& server, WORD port)
{
    CInternetHandle handle(::InternetConnectW(session->handle.Get(), server.c_str(), port, nullptr, nullptr,
                                              INTERNET_SERVICE_HTTP, 0, session->context));
    return handle ? std::make_shared<CHttpConnection>(CHttpConnection{session, std::move(handle)}) : nullptr;
}

HttpRequestPtr OpenHttpRequest(const HttpConnectionPtr& connection, const CString& object, DWORD context)
{
    CInternetHandle handle(::HttpOpenRequestW(connection->handle.Get(), L"GET", object.empty() ? L"/" : object.c_str(),
                                              L"HTTP/1.1", nullptr, nullptr, kRequestFlags, context));
    if (const DWORD limitMs = connection->session->waitLimitMs; handle && limitMs != 0) {
        SetLimit(handle.Get(), INTERNET_OPTION_SEND_TIMEOUT, limitMs);
        SetLimit(handle.Get(), INTERNET_OPTION_RECEIVE_TIMEOUT, limitMs);
    }
    return handle ? std::make_shared<CHttpRequest>(CHttpRequest{connection, std::move(handle)}) : nullptr;
}

BOOL SendHttpRequest(const HttpRequestPtr& request)
{
    if (!::HttpSendRequestW(request->handle.Get(), nullptr, 0, nullptr, 0)) {
        return FALSE;
    }
    // A connection that ends before any answer counts as an answer without status in some versions of the system.
    DWORD status = 0;
    if (!ReadStatus(request->handle.Get(), &status)) {
        ::SetLastError(ERROR_HTTP_INVALID_SERVER_RESPONSE);
        return FALSE;
    }
    request->endMs = ::GetTickCount64() + kMaxHttpRequestMs;
    return TRUE;
}

BOOL QueryHttpStatusCode(const HttpRequestPtr& request, DWORD* status)
{
    DWORD read = 0;
    if (!ReadStatus(request->handle.Get(), &read)) {
        return FALSE;
    }
    *status = read;
    return TRUE;
}

std::size_t ReadHttpBody(const HttpRequestPtr& request, void* buffer, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    // No more than the answer declares: wine's WinINet would go on to the connection's end.
    const ULONGLONG declared = DeclaredBodySize(request->handle.Get());
    const ULONGLONG left = declared == 0 ? MAXDWORD : declared - request->bodyRead;
    if (left == 0) {
        return 0;
    }
    // InternetReadFile waits for all bytes that it is asked for, so only those that have arrived are.
    DWORD available = 0;
    if (!::InternetQueryDataAvailable(request->handle.Get(), &available, 0, 0)) {
        throw CInternetException(::GetLastError());
    }
    if (::GetTickCount64() >= request->endMs) {
        throw CInternetException(ERROR_INTERNET_TIMEOUT);
    }
    DWORD read = 0;
    const DWORD wanted = static_cast<DWORD>(std::min<ULONGLONG>({size, left, available}));
    if (!::InternetReadFile(request->handle.Get(), buffer, wanted, &read)) {
        throw CInternetException(::GetLastError());
    }
    request->bodyRead += read;
    // The system takes a connection that ends too early for the body's end.
    if (read == 0 && declared > 0) {
        throw CInternetException(ERROR_INTERNET_CONNECTION_ABORTED);
    }
    return read;
}

} // namespace platform
