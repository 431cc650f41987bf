// HTTP on libcurl: a session is a multi handle, whose pool keeps the connections; a request is an easy handle, driven
// only while somebody waits for it.
#include "platform/Http.h"

#include "platform/LastError.h"
#include "platform/LetterCase.h"
#include "platform/Text.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <curl/curl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace platform {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kConnectLimit{60'000};
constexpr milliseconds kSilenceLimit{30'000};
constexpr milliseconds kRequestLimit{kMaxHttpRequestMs};
constexpr int kMaxRedirects = 10;
// Of one answer, with the answers that announce it and the trailers after its body.
constexpr std::size_t kMaxHeaderBytes = std::size_t{256} * 1024;
constexpr long kSwitchingProtocols = 101;
// Of one answer's body including its chunk headers, which may be of any length. The longest body that is taken, in
// chunks of one byte, has 48 MiB.
constexpr std::size_t kMaxFramedBytes = std::size_t{64} * 1024 * 1024;
// How often a request may wait for bytes. A server that sends byte by byte wakes the client up for each of them; the
// longest body that is taken comes in 16,000 of the smallest packets that networks use.
constexpr int kMaxWaits = 20'000;
// What an unread body may cost to keep its connection; a new connection is cheaper than more.
constexpr std::size_t kDrainLimitBytes = 65536;
constexpr milliseconds kDrainLimit{200};

struct FreeMulti {
    void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};
using MultiPtr = std::unique_ptr<CURLM, FreeMulti>;

struct FreeEasy {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
using EasyPtr = std::unique_ptr<CURL, FreeEasy>;

struct FreeUrl {
    void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
using UrlPtr = std::unique_ptr<CURLU, FreeUrl>;

std::string UrlPart(CURLU* url, CURLUPart part)
{
    char* text = nullptr;
    if (curl_url_get(url, part, &text, 0) != CURLUE_OK) {
        return {};
    }
    const std::unique_ptr<char, decltype(&curl_free)> owner(text, curl_free);
    return text;
}

// Escapes what cannot stand in a request line; escapes that are there already are kept.
std::string Escape(std::string_view text)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string escaped;
    for (const char each : text) {
        const auto byte = static_cast<unsigned char>(each);
        if (byte > ' ' && byte < 0x7F) {
            escaped += each;
        } else {
            escaped.append({'%', kDigits[byte >> 4], kDigits[byte & 0xF]});
        }
    }
    return escaped;
}

// Whether a header line names a transfer coding other than chunked. The library would decode it before its decoded size
// can be limited.
bool NamesTransferCoding(std::string_view line)
{
    constexpr std::string_view kName = "Transfer-Encoding:";
    if (!EqualsWithoutCase(line.substr(0, kName.size()), kName)) {
        return false;
    }
    line.remove_prefix(std::min(line.find_first_not_of(" \t", kName.size()), line.size()));
    return !EqualsWithoutCase(line.substr(0, line.find_last_not_of(" \t\r\n") + 1), "chunked");
}

} // namespace

class CHttpSession {
public:
    MultiPtr multi; // null: closed
    std::string agent;
    milliseconds connectLimit = kConnectLimit;
    milliseconds silenceLimit = kSilenceLimit;
    std::vector<CHttpRequest*> driven = {}; // requests whose handles are in the multi handle
};

class CHttpConnection {
public:
    HttpSessionPtr session;
    std::string origin; // "http://server:port"
};

class CHttpRequest {
public:
    CHttpRequest(HttpConnectionPtr connection, EasyPtr easy, std::string url);
    ~CHttpRequest();
    CHttpRequest(const CHttpRequest&) = delete;
    CHttpRequest& operator=(const CHttpRequest&) = delete;

    // False when the handle does not take what every request needs.
    bool Prepare();
    // Sends, and receives the header of the last answer. False when there is none.
    bool Send();
    // Of the last answer; 0 when there is none.
    DWORD Status() const { return m_status; }
    // Why there is none.
    CURLcode Result() const { return m_result; }
    // Moves up to size received bytes; see ReadHttpBody.
    std::size_t Read(char* buffer, std::size_t size);

    // The transfer is over; takes it out of the session.
    void Finish(CURLcode result);

private:
    static int OnReceived(CURL*, curl_infotype type, char*, std::size_t size, void* request);
    static std::size_t OnHeaderLine(char* line, std::size_t size, std::size_t count, void* request);
    static std::size_t OnBody(char* bytes, std::size_t size, std::size_t count, void* request);
    static int OnConnecting(void* request, curl_socket_t socket, curlsocktype purpose);
    static int OnConnected(void* request, char*, char*, int, int);

    bool SendOnce();
    std::optional<std::string> RedirectTarget() const;
    void Drain();
    void DriveUntil(Clock::time_point limit);
    void CollectFinished();
    void NoteByte() { m_silentSince = Clock::now(); }

    HttpConnectionPtr m_connection;
    EasyPtr m_easy;
    std::string m_url;
    DWORD m_status = 0;
    std::string m_received = {}; // body received, of which the first m_read bytes are read
    std::size_t m_read = 0;
    std::size_t m_headerBytes = 0;                 // of the current answer
    std::size_t m_framedBytes = 0;                 // of its body, chunk headers included
    std::optional<std::size_t> m_discardable = {}; // while draining: bytes that may still come
    int m_waits = 0;                               // for bytes, redirections included
    bool m_isDriven = false;
    bool m_isAnswerDue = false; // connected: the silence counts
    CURLcode m_result = CURLE_OK;
    Clock::time_point m_silentSince = {};
    Clock::time_point m_end = {}; // when the request must be over
};

CHttpRequest::CHttpRequest(HttpConnectionPtr connection, EasyPtr easy, std::string url)
    : m_connection(std::move(connection)), m_easy(std::move(easy)), m_url(std::move(url))
{
}

CHttpRequest::~CHttpRequest()
{
    if (m_isDriven && m_status != 0) {
        Drain();
    }
    Finish(CURLE_OK);
}

bool CHttpRequest::Prepare()
{
    CURL* easy = m_easy.get();
    const CHttpSession& session = *m_connection->session;
    const bool isSet[] = {
        curl_easy_setopt(easy, CURLOPT_PRIVATE, this) == CURLE_OK,
        curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L) == CURLE_OK,
        curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http") == CURLE_OK,
        curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1)) == CURLE_OK,
        curl_easy_setopt(easy, CURLOPT_HTTP09_ALLOWED, 0L) == CURLE_OK,
        curl_easy_setopt(easy, CURLOPT_DISALLOW_USERNAME_IN_URL, 1L) == CURLE_OK,
        curl_easy_setopt(easy, CURLOPT_PATH_AS_IS, 1L) == CURLE_OK,
        curl_easy_setopt(easy, CURLOPT_USERAGENT, session.agent.c_str()) == CURLE_OK,
        curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(session.connectLimit.count())) == CURLE_OK,
        // Only the debug callback sees all bytes of an answer, chunk headers included.
        curl_easy_setopt(easy, CURLOPT_VERBOSE, 1L) == CURLE_OK,
        curl_easy_setopt(easy, CURLOPT_DEBUGFUNCTION, OnReceived) == CURLE_OK,
        curl_easy_setopt(easy, CURLOPT_DEBUGDATA, this) == CURLE_OK,
        curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, OnHeaderLine) == CURLE_OK,
        curl_easy_setopt(easy, CURLOPT_HEADERDATA, this) == CURLE_OK,
        curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, OnBody) == CURLE_OK,
        curl_easy_setopt(easy, CURLOPT_WRITEDATA, this) == CURLE_OK,
        curl_easy_setopt(easy, CURLOPT_SOCKOPTFUNCTION, OnConnecting) == CURLE_OK,
        curl_easy_setopt(easy, CURLOPT_SOCKOPTDATA, this) == CURLE_OK,
        curl_easy_setopt(easy, CURLOPT_PREREQFUNCTION, OnConnected) == CURLE_OK,
        curl_easy_setopt(easy, CURLOPT_PREREQDATA, this) == CURLE_OK,
    };
    return std::all_of(std::begin(isSet), std::end(isSet), [](bool each) { return each; });
}

int CHttpRequest::OnReceived(CURL*, curl_infotype type, char*, std::size_t size, void* request)
{
    auto* self = static_cast<CHttpRequest*>(request);
    if (type == CURLINFO_HEADER_IN || type == CURLINFO_DATA_IN) {
        self->NoteByte();
        self->m_framedBytes += type == CURLINFO_DATA_IN ? size : 0;
    }
    return 0;
}

// The empty line after the last header line makes the answer's status known. Those from 100 to 199 only announce
// another answer, but for 101, after which the connection speaks another protocol.
std::size_t CHttpRequest::OnHeaderLine(char* line, std::size_t size, std::size_t count, void* request)
{
    auto* self = static_cast<CHttpRequest*>(request);
    const std::string_view text(line, size * count);
    self->m_headerBytes += text.size();
    if (self->m_headerBytes > kMaxHeaderBytes || NamesTransferCoding(text)) {
        return 0; // ends the transfer as failed
    }
    if (text == "\r\n" || text == "\n") {
        long status = 0;
        curl_easy_getinfo(self->m_easy.get(), CURLINFO_RESPONSE_CODE, &status);
        if (status >= 200 || status == kSwitchingProtocols) {
            self->m_status = static_cast<DWORD>(status);
        }
    }
    return text.size();
}

std::size_t CHttpRequest::OnBody(char* bytes, std::size_t size, std::size_t count, void* request)
{
    auto* self = static_cast<CHttpRequest*>(request);
    if (self->m_discardable) {
        const bool isTooMuch = size * count > *self->m_discardable;
        *self->m_discardable -= isTooMuch ? 0 : size * count;
        return isTooMuch ? 0 : size * count; // 0 ends the transfer with its connection
    }
    try {
        self->m_received.append(bytes, size * count);
    } catch (const std::bad_alloc&) {
        return 0; // ends the transfer as failed; exceptions may not pass through the library
    }
    return size * count;
}

int CHttpRequest::OnConnecting(void* request, curl_socket_t, curlsocktype)
{
    static_cast<CHttpRequest*>(request)->m_isAnswerDue = false;
    return CURL_SOCKOPT_OK;
}

int CHttpRequest::OnConnected(void* request, char*, char*, int, int)
{
    auto* self = static_cast<CHttpRequest*>(request);
    self->m_isAnswerDue = true;
    self->NoteByte();
    return CURL_PREREQFUNC_OK;
}

bool CHttpRequest::Send()
{
    m_end = Clock::now() + kRequestLimit;
    for (int redirects = 0; SendOnce(); ++redirects) {
        std::optional<std::string> target = RedirectTarget();
        if (!target) {
            return true;
        }
        Drain();
        if (redirects == kMaxRedirects || target->empty()) {
            Finish(CURLE_OK);
            m_status = 0;
            m_result = CURLE_TOO_MANY_REDIRECTS;
            return false;
        }
        m_url = std::move(*target);
        // A used handle keeps a pointer into the header of its last answer beyond that header's life (libcurl 7.88).
        Finish(CURLE_OK);
        m_easy.reset(curl_easy_duphandle(m_easy.get()));
        if (!m_easy) {
            m_status = 0;
            m_result = CURLE_OUT_OF_MEMORY;
            return false;
        }
    }
    return false;
}

bool CHttpRequest::SendOnce()
{
    CHttpSession& session = *m_connection->session;
    Finish(CURLE_OK);
    m_received.clear();
    m_read = 0;
    m_headerBytes = 0;
    m_framedBytes = 0;
    m_status = 0;
    m_isAnswerDue = false;
    m_result = CURLE_OK;
    if (session.multi == nullptr || curl_easy_setopt(m_easy.get(), CURLOPT_URL, m_url.c_str()) != CURLE_OK ||
        curl_multi_add_handle(session.multi.get(), m_easy.get()) != CURLM_OK) {
        m_result = CURLE_FAILED_INIT;
        return false;
    }
    session.driven.push_back(this);
    m_isDriven = true;
    while (m_isDriven && m_status == 0) {
        DriveUntil(Clock::time_point::max());
    }
    // A whole answer may have come at once, and then it matters no more that its end was faulty.
    return m_status != 0;
}

// Where the answer sends the client; nothing when it is no redirection, empty when it may not be followed.
std::optional<std::string> CHttpRequest::RedirectTarget() const
{
    constexpr DWORD kRedirections[] = {301, 302, 303, 307, 308};
    curl_header* location = nullptr;
    if (std::find(std::begin(kRedirections), std::end(kRedirections), m_status) == std::end(kRedirections) ||
        curl_easy_header(m_easy.get(), "Location", 0, CURLH_HEADER, -1, &location) != CURLHE_OK) {
        return std::nullopt;
    }
    constexpr unsigned kFlags = CURLU_URLENCODE | CURLU_ALLOW_SPACE | CURLU_NON_SUPPORT_SCHEME | CURLU_PATH_AS_IS;
    const UrlPtr url(curl_url());
    if (!url || curl_url_set(url.get(), CURLUPART_URL, m_url.c_str(), kFlags) != CURLUE_OK ||
        curl_url_set(url.get(), CURLUPART_URL, location->value, kFlags) != CURLUE_OK ||
        UrlPart(url.get(), CURLUPART_SCHEME) != "http") {
        return std::string();
    }
    return UrlPart(url.get(), CURLUPART_URL);
}

std::size_t CHttpRequest::Read(char* buffer, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    while (m_read == m_received.size() && m_isDriven) {
        m_received.clear();
        m_read = 0;
        DriveUntil(Clock::time_point::max());
    }
    const std::size_t taken = std::min(size, m_received.size() - m_read);
    if (taken == 0 && (m_status == 0 || m_result != CURLE_OK)) {
        throw CInternetException(static_cast<DWORD>(m_result));
    }
    std::memcpy(buffer, m_received.data() + m_read, taken);
    m_read += taken;
    return taken;
}

// Receives what is left of the answer, as far as it comes promptly, so that the connection can serve the next request.
void CHttpRequest::Drain()
{
    const Clock::time_point limit = Clock::now() + kDrainLimit;
    m_discardable = kDrainLimitBytes;
    while (m_isDriven && Clock::now() < limit) {
        DriveUntil(limit);
    }
    m_discardable.reset();
}

// Moves the session's transfers on, waiting for something to happen at most until the limit.
void CHttpRequest::DriveUntil(Clock::time_point limit)
{
    CURLM* multi = m_connection->session->multi.get();
    const std::size_t before = m_received.size();
    const DWORD statusBefore = m_status;
    int running = 0;
    if (curl_multi_perform(multi, &running) != CURLM_OK) {
        Finish(CURLE_RECV_ERROR);
        return;
    }
    CollectFinished();
    if (!m_isDriven) {
        return;
    }
    const Clock::time_point now = Clock::now();
    // While connecting, the library has its own limit.
    const Clock::time_point end =
        std::min(m_end, m_isAnswerDue ? m_silentSince + m_connection->session->silenceLimit : m_end);
    if (now >= end || m_framedBytes > kMaxFramedBytes || m_waits > kMaxWaits) {
        Finish(now >= end ? CURLE_OPERATION_TIMEDOUT : CURLE_FILESIZE_EXCEEDED);
        return;
    }
    if (m_received.size() != before || m_status != statusBefore) {
        return;
    }
    ++m_waits;
    const Clock::time_point wakeUp = std::min(limit, end);
    const auto wait = std::chrono::ceil<milliseconds>(std::max(wakeUp - now, Clock::duration::zero()));
    curl_multi_poll(multi, nullptr, 0, static_cast<int>(wait.count()), nullptr);
}

void CHttpRequest::CollectFinished()
{
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(m_connection->session->multi.get(), &left)) {
        char* request = nullptr;
        if (message->msg == CURLMSG_DONE &&
            curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &request) == CURLE_OK) {
            reinterpret_cast<CHttpRequest*>(request)->Finish(message->data.result);
        }
    }
}

void CHttpRequest::Finish(CURLcode result)
{
    if (m_isDriven) {
        CHttpSession& session = *m_connection->session;
        curl_multi_remove_handle(session.multi.get(), m_easy.get());
        std::erase(session.driven, this);
        m_isDriven = false;
        // The transfer may end in the same step in which it exceeds the limit.
        m_result = result == CURLE_OK && m_framedBytes > kMaxFramedBytes ? CURLE_FILESIZE_EXCEEDED : result;
    }
}

namespace {

// What AMPORA_CONNECTED_STATE says instead of the network: "fail" or flags. Nothing when it says neither.
std::optional<DWORD> StateFromEnvironment(BOOL* result)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing changes the environment while threads run
    const char* text = std::getenv("AMPORA_CONNECTED_STATE");
    if (text == nullptr || *text == '\0') {
        return std::nullopt;
    }
    if (std::strcmp(text, "fail") == 0) {
        *result = FALSE;
        return 0;
    }
    char* end = nullptr;
    const unsigned long flags = std::strtoul(text, &end, 0);
    if (*end != '\0') {
        return std::nullopt;
    }
    *result = TRUE;
    return static_cast<DWORD>(flags);
}

// Whether an internet address is more than link-local.
bool IsRoutable(const sockaddr* address)
{
    if (address != nullptr && address->sa_family == AF_INET) {
        constexpr in_addr_t kLinkLocal = 0xA9FE0000; // 169.254.0.0/16
        const auto* internet = reinterpret_cast<const sockaddr_in*>(address);
        return (ntohl(internet->sin_addr.s_addr) & IN_CLASSB_NET) != kLinkLocal;
    }
    return address != nullptr && address->sa_family == AF_INET6 &&
           !IN6_IS_ADDR_LINKLOCAL(&reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr);
}

bool IsNetworkUp()
{
    ifaddrs* first = nullptr;
    if (getifaddrs(&first) != 0) {
        return false;
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(first, freeifaddrs);
    constexpr unsigned kConnected = IFF_UP | IFF_RUNNING; // running: it has a carrier
    for (const ifaddrs* each = first; each != nullptr; each = each->ifa_next) {
        if ((each->ifa_flags & (kConnected | IFF_LOOPBACK)) == kConnected && IsRoutable(each->ifa_addr)) {
            return true;
        }
    }
    return false;
}

} // namespace

BOOL QueryConnectedState(DWORD* flags)
{
    BOOL result = FALSE;
    if (const std::optional<DWORD> told = StateFromEnvironment(&result)) {
        *flags = *told;
        return result;
    }
    const bool isUp = IsNetworkUp();
    *flags = isUp ? kConnectionLan : 0;
    return isUp ? TRUE : FALSE;
}

namespace {

// The Windows number of a failure before the end of the header.
DWORD ErrorCodeOf(CURLcode result)
{
    switch (result) {
    case CURLE_OPERATION_TIMEDOUT:
        return kHttpTimedOut;
    case CURLE_COULDNT_RESOLVE_HOST:
        return kHttpNameNotResolved;
    case CURLE_COULDNT_CONNECT:
        return kHttpCannotConnect;
    default:
        return kHttpConnectionAborted;
    }
}

} // namespace

HttpSessionPtr OpenHttpSession(const wchar_t* agent, DWORD /*context*/)
{
    // Once for the process, without what only encrypted connections need.
    static const CURLcode initialised = curl_global_init(CURL_GLOBAL_NOTHING);
    MultiPtr multi(initialised == CURLE_OK ? curl_multi_init() : nullptr);
    if (!multi) {
        return nullptr;
    }
    auto session = std::make_shared<CHttpSession>();
    session->multi = std::move(multi);
    session->agent = EncodeUtf8(agent);
    return session;
}

void LimitHttpWaits(const HttpSessionPtr& session, DWORD timeoutMs)
{
    session->connectLimit = milliseconds(timeoutMs);
    session->silenceLimit = milliseconds(timeoutMs);
}

void CloseHttpSession(const HttpSessionPtr& session)
{
    if (session != nullptr) {
        while (!session->driven.empty()) {
            session->driven.back()->Finish(CURLE_ABORTED_BY_CALLBACK);
        }
        session->multi.reset();
    }
}

HttpConnectionPtr OpenHttpConnection(const HttpSessionPtr& session, const CString& server, WORD port)
{
    std::string host = EncodeUtf8(server);
    if (host.find(':') != std::string::npos && !host.starts_with('[')) {
        host = "[" + host + "]";
    }
    return std::make_shared<CHttpConnection>(CHttpConnection{session, "http://" + host + ":" + std::to_string(port)});
}

HttpRequestPtr OpenHttpRequest(const HttpConnectionPtr& connection, const CString& object, DWORD /*context*/)
{
    EasyPtr easy(curl_easy_init());
    if (!easy) {
        return nullptr;
    }
    const std::string target = object.starts_with(L'/') ? EncodeUtf8(object) : "/" + EncodeUtf8(object);
    auto request = std::make_shared<CHttpRequest>(connection, std::move(easy), connection->origin + Escape(target));
    return request->Prepare() ? request : nullptr;
}

BOOL SendHttpRequest(const HttpRequestPtr& request)
{
    if (request->Send()) {
        return TRUE;
    }
    SetLastErrorCode(ErrorCodeOf(request->Result()));
    return FALSE;
}

BOOL QueryHttpStatusCode(const HttpRequestPtr& request, DWORD* status)
{
    if (request->Status() == 0) {
        return FALSE;
    }
    *status = request->Status();
    return TRUE;
}

std::size_t ReadHttpBody(const HttpRequestPtr& request, void* buffer, std::size_t size)
{
    return request->Read(static_cast<char*>(buffer), size);
}

} // namespace platform
