#include "platform/Http.h"

#include "platform/LastError.h"
#include "platform/LetterCase.h"
#include "platform/sim/MachineState.h"
#include "platform/Text.h"

#include <algorithm>
#include <cstring>

namespace platform {

using sim::Call;
using testing_support::HttpAnswer;
using testing_support::HttpFault;

namespace {

// Source: Windows SDK, wininet.h.
constexpr DWORD kErrorConnectionReset = 12031;
constexpr DWORD kErrorInvalidServerResponse = 12152;
constexpr DWORD kErrorRedirectFailed = 12156;

constexpr DWORD kSilenceLimitMs = 30'000;
constexpr int kMaxRedirects = 10;
constexpr WORD kHttpPort = 80;

} // namespace

class CHttpSession {
public:
    std::string agent = {};
    bool isOpen = true;
    DWORD silenceLimitMs = kSilenceLimitMs;
    std::map<std::string, unsigned> keptConnections = {}; // by server and port
};

class CHttpConnection {
public:
    HttpSessionPtr session;
    std::string host; // server, with its port unless that is 80
};

class CHttpRequest {
public:
    HttpConnectionPtr connection;
    std::string target;
    HttpAnswer answer = {};
    std::size_t bodyRead = 0;
    std::string answeredBy = {}; // host that sent the answer, after redirects
    std::int64_t end = 0;        // virtual time at which the request must be over
};

namespace {

// Where a request goes.
struct Destination {
    std::string host;
    std::string target;
};

// Where an answer redirects to; null when it does not.
const std::string* RedirectOf(const HttpAnswer& answer)
{
    constexpr DWORD kRedirects[] = {301, 302, 303, 307, 308};
    if (std::find(std::begin(kRedirects), std::end(kRedirects), answer.status) == std::end(kRedirects)) {
        return nullptr;
    }
    for (const auto& [name, value] : answer.headers) {
        if (EqualsWithoutCase(name, "Location")) {
            return &value;
        }
    }
    return nullptr;
}

// Goes where a Location header says: an http URL, a path from the root or one beside the present. False for another
// scheme.
bool Redirect(Destination& destination, std::string location)
{
    const std::size_t scheme = location.find("://");
    if (scheme != std::string::npos) {
        if (!EqualsWithoutCase(location.substr(0, scheme), "http")) {
            return false;
        }
        location.erase(0, scheme + 3);
        const std::size_t path = std::min(location.find('/'), location.size());
        destination = {location.substr(0, path), path == location.size() ? "/" : location.substr(path)};
    } else if (location.starts_with('/')) {
        destination.target = location;
    } else {
        const std::string path = destination.target.substr(0, destination.target.find('?'));
        destination.target = path.substr(0, path.rfind('/') + 1) + location;
    }
    return true;
}

// Lets this time pass while the client waits for the server. False when a limit, that of silence or that of the
// request, comes first; then time has passed up to the limit.
bool PassTime(const CHttpRequest& request, DWORD timeMs)
{
    const sim::MachineState& machine = sim::Machine();
    const std::int64_t arrival = machine.DeadlineAfter(timeMs);
    const std::int64_t limit =
        std::min(machine.DeadlineAfter(request.connection->session->silenceLimitMs), request.end);
    const std::int64_t end = std::min(arrival, limit);
    if (end > machine.scheduler.Now()) {
        sim::Machine().scheduler.Wait([] { return std::string("an HTTP answer"); }, end);
    }
    return arrival <= limit;
}

// What a fault before the end of the header is for the client; ERROR_SUCCESS when the header arrives.
DWORD HeaderError(HttpFault fault)
{
    switch (fault) {
    case HttpFault::kRefused:
        return kHttpCannotConnect;
    case HttpFault::kClosedEarly:
        return kHttpConnectionAborted;
    case HttpFault::kGarbage:
        return kErrorInvalidServerResponse;
    case HttpFault::kStalled:
        return kHttpTimedOut;
    default:
        return ERROR_SUCCESS;
    }
}

DWORD BodyError(HttpFault fault)
{
    switch (fault) {
    case HttpFault::kStalledBody:
        return kHttpTimedOut;
    case HttpFault::kShortBody:
        return kHttpConnectionAborted;
    case HttpFault::kReset:
        return kErrorConnectionReset;
    default:
        return ERROR_SUCCESS;
    }
}

// How much of the body arrives, whole or in part.
std::size_t ArrivingBodySize(const HttpAnswer& answer)
{
    const bool isWhole = BodyError(answer.fault) == ERROR_SUCCESS && answer.fault != HttpFault::kLongBody;
    return isWhole ? answer.body.size() : answer.body.size() / 2;
}

// One request and the header of its answer. Returns ERROR_SUCCESS or why there is no header.
DWORD Exchange(CHttpRequest& request, const Destination& destination)
{
    CHttpSession& session = *request.connection->session;
    HttpAnswer& answer = request.answer;
    sim::MachineState& machine = sim::Machine();
    unsigned connection = session.keptConnections[destination.host];
    if (connection == 0) {
        connection = ++machine.httpConnections;
        session.keptConnections[destination.host] = connection;
    }
    const sim::Caller caller = sim::CallingThread();
    const testing_support::HttpExchange exchange{"GET",      destination.target, destination.host, session.agent,
                                                 connection, caller.processId,   caller.session};
    // A copy: the handler may put another in its place.
    const testing_support::HttpHandler handler = machine.httpHandler;
    answer = handler(exchange);
    if (answer.fault != HttpFault::kRefused && machine.keepsHttpExchanges) {
        machine.httpExchanges.push_back(exchange);
    }
    DWORD error = HeaderError(answer.fault);
    if (!PassTime(request, error == kHttpTimedOut ? INFINITE : answer.latencyMs)) {
        error = kHttpTimedOut;
    }
    if (error != ERROR_SUCCESS) {
        session.keptConnections.erase(destination.host);
    }
    return error;
}

// A call that has a fault for its failure and one for its exception. Whether it has to fail; throws for the other.
bool FailsOrThrows(Call failing, Call throwing)
{
    if (const auto code = sim::Machine().faults.Take(throwing)) {
        throw CInternetException(*code);
    }
    return sim::FailsByFault(failing);
}

// A connection or request, which the machine counts as long as somebody holds it.
template <class Handle>
std::shared_ptr<Handle> MakeHandle(Handle content)
{
    auto handle = std::make_shared<Handle>(std::move(content));
    std::vector<std::weak_ptr<void>>& handles = sim::Machine().httpHandles;
    std::erase_if(handles, [](const auto& known) { return known.expired(); });
    handles.push_back(handle);
    return handle;
}

bool IsOpen(const CHttpSession& session)
{
    if (!session.isOpen) {
        SetLastErrorCode(ERROR_INVALID_HANDLE);
    }
    return session.isOpen;
}

} // namespace

BOOL QueryConnectedState(DWORD* flags)
{
    *flags = sim::Machine().connectedFlags;
    return sim::Machine().connectedResult;
}

HttpSessionPtr OpenHttpSession(const wchar_t* agent, DWORD /*context*/)
{
    if (sim::FailsByFault(Call::kOpenHttpSession)) {
        return nullptr;
    }
    auto session = std::make_shared<CHttpSession>();
    session->agent = EncodeUtf8(agent);
    return session;
}

void LimitHttpWaits(const HttpSessionPtr& session, DWORD timeoutMs) { session->silenceLimitMs = timeoutMs; }

void CloseHttpSession(const HttpSessionPtr& session)
{
    static_cast<void>(sim::FailsByFault(Call::kCloseHttpSession));
    if (session != nullptr) {
        session->isOpen = false;
        session->keptConnections.clear();
    }
}

HttpConnectionPtr OpenHttpConnection(const HttpSessionPtr& session, const CString& server, WORD port)
{
    if (FailsOrThrows(Call::kOpenHttpConnection, Call::kOpenHttpConnectionThrows) || !IsOpen(*session)) {
        return nullptr;
    }
    const std::string portText = port == kHttpPort ? "" : ":" + std::to_string(port);
    return MakeHandle(CHttpConnection{session, EncodeUtf8(server) + portText});
}

HttpRequestPtr OpenHttpRequest(const HttpConnectionPtr& connection, const CString& object, DWORD /*context*/)
{
    if (FailsOrThrows(Call::kOpenHttpRequest, Call::kOpenHttpRequestThrows) || !IsOpen(*connection->session)) {
        return nullptr;
    }
    return MakeHandle(CHttpRequest{connection, object.empty() ? "/" : EncodeUtf8(object)});
}

BOOL SendHttpRequest(const HttpRequestPtr& request)
{
    CHttpSession& session = *request->connection->session;
    if (FailsOrThrows(Call::kSendHttpRequest, Call::kSendHttpRequestThrows) || !IsOpen(session)) {
        return FALSE;
    }
    request->end = sim::Machine().DeadlineAfter(kMaxHttpRequestMs);
    Destination destination{request->connection->host, request->target};
    for (int redirects = 0; redirects <= kMaxRedirects; ++redirects) {
        const DWORD error = Exchange(*request, destination);
        if (error != ERROR_SUCCESS) {
            SetLastErrorCode(error);
            return FALSE;
        }
        const std::string* location = RedirectOf(request->answer);
        if (location == nullptr) {
            request->answeredBy = destination.host;
            return TRUE;
        }
        if (!Redirect(destination, *location)) {
            break;
        }
    }
    SetLastErrorCode(kErrorRedirectFailed);
    return FALSE;
}

BOOL QueryHttpStatusCode(const HttpRequestPtr& request, DWORD* status)
{
    if (FailsOrThrows(Call::kQueryHttpStatusCode, Call::kQueryHttpStatusCodeThrows)) {
        return FALSE;
    }
    if (request->answeredBy.empty()) {
        SetLastErrorCode(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    *status = request->answer.status;
    return TRUE;
}

std::size_t ReadHttpBody(const HttpRequestPtr& request, void* buffer, std::size_t size)
{
    if (const auto code = sim::Machine().faults.Take(Call::kReadHttpBody)) {
        throw CInternetException(*code);
    }
    if (size == 0) {
        return 0;
    }
    const HttpAnswer& answer = request->answer;
    const std::size_t left = ArrivingBodySize(answer) - request->bodyRead;
    const std::size_t read = std::min({size, left, answer.dripMs == 0 ? left : 1});
    DWORD error = read == 0 ? BodyError(answer.fault) : ERROR_SUCCESS;
    if (!PassTime(*request, error == kHttpTimedOut ? INFINITE : answer.dripMs)) {
        error = kHttpTimedOut;
    }
    if (error != ERROR_SUCCESS) {
        request->connection->session->keptConnections.erase(request->answeredBy);
        throw CInternetException(error);
    }
    std::memcpy(buffer, answer.body.data() + request->bodyRead, read);
    request->bodyRead += read;
    return read;
}

} // namespace platform
