// HTTP in the three steps of the system's internet layer: session, connection, request.
//
// A session and what was opened from it belong to one thread at a time. Connections are kept alive within a session and
// used again. Proxies as the system has them set (Linux: from the environment). The system's own limits apply. On Linux
// they are 60 s to connect, 30 s without a byte, at most 10 redirects and to http only; 256 KiB of header in an answer,
// together with the answers that announce it and with its trailers; 64 MiB of body including its chunk headers; 20,000
// waits for bytes in a request; and no transfer coding but chunked. A transfer that exceeds one of them fails. The
// caller limits the body itself.
#pragma once

#include "platform/CodeException.h"
#include "platform/Types.h"

#include <memory>

namespace platform {

// Bits that QueryConnectedState reports. Source: Windows SDK, wininet.h.
inline constexpr DWORD kConnectionModem = 1;
inline constexpr DWORD kConnectionLan = 2;
inline constexpr DWORD kConnectionProxy = 4;
inline constexpr DWORD kConnectionOffline = 32;

// Longest time that a request may take, redirects and the whole body included, even while data keeps arriving; then it
// fails. On Windows only the time after the header counts.
inline constexpr DWORD kMaxHttpRequestMs = 5 * 60'000;

// A fault of the internet layer.
class CInternetException : public CCodeException<DWORD> {
public:
    // code: the system's error number: Windows' own, or the HTTP library's.
    explicit CInternetException(DWORD code) : CCodeException("internet exception", code) {}
};

// Whether the machine is on line. *flags: the bits above, 0 when nothing is known; must not be null. FALSE also when no
// connection is active at all. Any thread.
// On Linux: kConnectionLan when an interface other than loopback has a carrier and an address that is not link-local.
BOOL QueryConnectedState(DWORD* flags);

// Last errors of SendHttpRequest. Source: Windows SDK, wininet.h.
inline constexpr DWORD kHttpTimedOut = 12002;
inline constexpr DWORD kHttpNameNotResolved = 12007;
inline constexpr DWORD kHttpCannotConnect = 12029;
inline constexpr DWORD kHttpConnectionAborted = 12030;

class CHttpSession;
class CHttpConnection;
class CHttpRequest;
using HttpSessionPtr = std::shared_ptr<CHttpSession>;
using HttpConnectionPtr = std::shared_ptr<CHttpConnection>;
using HttpRequestPtr = std::shared_ptr<CHttpRequest>;

// Opens a session with the system's proxy settings. agent: sent as User-Agent; context: handed to the system only.
// Null on failure. The session ends with CloseHttpSession or its last reference.
HttpSessionPtr OpenHttpSession(const wchar_t* agent, DWORD context);

// Shortens the limits of the session's requests that are opened from now on: timeoutMs, at least 1, to connect and
// without a byte. For a look whether a server answers. On Windows looking up its name is not limited.
void LimitHttpWaits(const HttpSessionPtr& session, DWORD timeoutMs);

// Closes the session and its kept connections; nothing opened from it may be used afterwards. Null: does nothing.
void CloseHttpSession(const HttpSessionPtr& session);

// Names the server to talk to; the network is not touched yet. server: host name or address, not empty; port: 1 to
// 65535. Null on failure; may throw CInternetException.
HttpConnectionPtr OpenHttpConnection(const HttpSessionPtr& session, const CString& server, WORD port);

// Prepares a GET request (HTTP/1.1; existing connections may be used, nothing is written to a cache). object: path and
// query as they go on the wire, empty for "/". Null on failure; may throw CInternetException.
HttpRequestPtr OpenHttpRequest(const HttpConnectionPtr& connection, const CString& object, DWORD context);

// Sends the request, follows redirects and receives the answer's header. FALSE when there is none: refused, timed out,
// closed, not HTTP, redirected too often; the last error is one of those above or another one. May throw
// CInternetException.
BOOL SendHttpRequest(const HttpRequestPtr& request);

// The answer's status code, after a successful send. FALSE on failure; may throw CInternetException.
BOOL QueryHttpStatusCode(const HttpRequestPtr& request, DWORD* status);

// Reads up to size bytes of the body, content as sent (no decompression), waiting until at least one has arrived. 0 at
// the body's end. Throws CInternetException when the transfer breaks, times out or ends before its declared length.
std::size_t ReadHttpBody(const HttpRequestPtr& request, void* buffer, std::size_t size);

} // namespace platform
