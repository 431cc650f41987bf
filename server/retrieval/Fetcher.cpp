#include "server/retrieval/Fetcher.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <curl/curl.h>
#include <new>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace reportd {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

// Of all header lines of one answer: they are kept in memory.
constexpr std::size_t kHeaderLimitBytes = std::size_t{64} << 10U;
// A validator that is longer is not sent back.
constexpr std::size_t kValidatorLimitBytes = 256;

struct EndEasy {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct EndMulti {
    void operator()(CURLM* handle) const { curl_multi_cleanup(handle); }
};
struct EndList {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using EasyPtr = std::unique_ptr<CURL, EndEasy>;
using MultiPtr = std::unique_ptr<CURLM, EndMulti>;
using ListPtr = std::unique_ptr<curl_slist, EndList>;

// Of values that the library takes as they are, setting one fails for lack of memory alone.
template <typename Value>
void SetOption(CURL* handle, CURLoption option, Value value)
{
    if (curl_easy_setopt(handle, option, value) != CURLE_OK) {
        throw std::bad_alloc();
    }
}

// What arrives of one answer.
struct Arrival {
    CURL* handle;
    std::size_t bodyLimitBytes;
    std::string body = {};
    std::size_t bodyBytes = 0;
    std::size_t headerBytes = 0;
    bool isTooBig = false;
    bool lacksMemory = false;
};

// Both callbacks: a result other than the size ends the transfer. No exception may pass through the library.
std::size_t TakeBody(char* bytes, std::size_t /*one*/, std::size_t size, void* context)
{
    auto& arrival = *static_cast<Arrival*>(context);
    arrival.bodyBytes += size;
    arrival.isTooBig = arrival.bodyBytes > arrival.bodyLimitBytes;
    if (arrival.isTooBig) {
        return CURL_WRITEFUNC_ERROR;
    }
    long status = 0;
    curl_easy_getinfo(arrival.handle, CURLINFO_RESPONSE_CODE, &status);
    try {
        if (status == 200) {
            arrival.body.append(bytes, size);
        }
        return size;
    } catch (const std::bad_alloc&) {
        arrival.lacksMemory = true;
        return CURL_WRITEFUNC_ERROR;
    }
}

std::size_t CountHeader(char* /*line*/, std::size_t /*one*/, std::size_t size, void* context)
{
    auto& arrival = *static_cast<Arrival*>(context);
    arrival.headerBytes += size;
    arrival.isTooBig = arrival.headerBytes > kHeaderLimitBytes;
    return arrival.isTooBig ? CURL_WRITEFUNC_ERROR : size;
}

std::string HeaderField(CURL* handle, const char* name)
{
    curl_header* field = nullptr;
    return curl_easy_header(handle, name, 0, CURLH_HEADER, -1, &field) == CURLHE_OK ? field->value : std::string();
}

bool CanBeSent(std::string_view validator)
{
    return validator.size() <= kValidatorLimitBytes &&
           std::all_of(validator.begin(), validator.end(), [](char byte) { return byte >= ' ' && byte <= '~'; });
}

std::string Validator(CURL* handle, const char* name)
{
    std::string value = HeaderField(handle, name);
    return CanBeSent(value) ? value : std::string();
}

void AddValidator(ListPtr& list, const std::string& name, const std::string& value)
{
    if (value.empty() || !CanBeSent(value)) {
        return;
    }
    curl_slist* longer = curl_slist_append(list.get(), (name + ": " + value).c_str());
    if (longer == nullptr) {
        throw std::bad_alloc();
    }
    static_cast<void>(list.release()); // the longer list has taken it
    list.reset(longer);
}

ListPtr ValidatorList(const FetchRequest& request)
{
    ListPtr list;
    AddValidator(list, "If-None-Match", request.etag);
    AddValidator(list, "If-Modified-Since", request.lastModified);
    return list;
}

bool IsHttps(const std::string& url)
{
    constexpr std::string_view kScheme = "https:";
    return curl_strnequal(url.c_str(), kScheme.data(), kScheme.size()) != 0;
}

bool HasSentRequest(CURL* handle)
{
    long sizeBytes = 0;
    curl_easy_getinfo(handle, CURLINFO_REQUEST_SIZE, &sizeBytes);
    return sizeBytes > 0;
}

// Failures of the library that have a key of their own.
struct FailureKey {
    CURLcode result;
    const char* key;
};
constexpr std::array kFailureKeys = {
    FailureKey{CURLE_UNSUPPORTED_PROTOCOL, "url"},
    FailureKey{CURLE_URL_MALFORMAT, "url"},
    FailureKey{CURLE_LOGIN_DENIED, "url"},
    FailureKey{CURLE_COULDNT_RESOLVE_HOST, "dns"},
    FailureKey{CURLE_COULDNT_RESOLVE_PROXY, "dns"},
    FailureKey{CURLE_COULDNT_CONNECT, "connect"},
    FailureKey{CURLE_OPERATION_TIMEDOUT, "timeout"},
    FailureKey{CURLE_SSL_CACERT_BADFILE, "authority"},
    FailureKey{CURLE_PEER_FAILED_VERIFICATION, "tls"},
    FailureKey{CURLE_SSL_CONNECT_ERROR, "tls"},
    FailureKey{CURLE_SSL_ISSUER_ERROR, "tls"},
    FailureKey{CURLE_SSL_CIPHER, "tls"},
};

std::string FailureOf(CURL* handle, CURLcode result)
{
    const auto* found = std::find_if(kFailureKeys.begin(), kFailureKeys.end(),
                                     [result](const FailureKey& entry) { return entry.result == result; });
    // An answer that is not HTTP is an unsupported protocol to the library as well.
    const bool isAnswered = result == CURLE_UNSUPPORTED_PROTOCOL && HasSentRequest(handle);
    return found == kFailureKeys.end() || isAnswered ? "broken" : found->key;
}

FetchAnswer Failure(std::string key, std::string detail)
{
    return {.failure = std::move(key), .detail = std::move(detail)};
}

// The handle in the group for as long as a transfer lasts.
class CMembership {
public:
    CMembership(CURLM* group, CURL* handle) : m_group(group), m_handle(handle)
    {
        if (curl_multi_add_handle(group, handle) != CURLM_OK) {
            throw std::bad_alloc();
        }
    }
    ~CMembership() { curl_multi_remove_handle(m_group, m_handle); }
    CMembership(const CMembership&) = delete;
    CMembership& operator=(const CMembership&) = delete;

private:
    CURLM* m_group;
    CURL* m_handle;
};

void StartLibrary()
{
    static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (result != CURLE_OK) {
        throw std::runtime_error("the HTTP library cannot be started");
    }
}

} // namespace

struct CFetcher::Impl {
    explicit Impl(const FetchLimits& theLimits) : limits(theLimits)
    {
        StartLibrary();
        easy.reset(curl_easy_init());
        multi.reset(curl_multi_init());
        if (easy == nullptr || multi == nullptr) {
            throw std::runtime_error("the HTTP library gives no handle");
        }
    }

    // What holds for every request.
    void SetUp(const FetchRequest& request)
    {
        curl_easy_reset(easy.get());
        SetOption(easy.get(), CURLOPT_PROTOCOLS_STR, "http,https");
        SetOption(easy.get(), CURLOPT_DISALLOW_USERNAME_IN_URL, 1L);
        SetOption(easy.get(), CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
        SetOption(easy.get(), CURLOPT_ACCEPT_ENCODING, "gzip");
        SetOption(easy.get(), CURLOPT_USERAGENT, request.agent.c_str());
        SetOption(easy.get(), CURLOPT_SSL_VERIFYPEER, 1L);
        SetOption(easy.get(), CURLOPT_SSL_VERIFYHOST, 2L);
        SetOption(easy.get(), CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
        if (!request.authorityFile.empty()) {
            SetOption(easy.get(), CURLOPT_CAINFO, request.authorityFile.c_str());
        }
        SetOption(easy.get(), CURLOPT_NOSIGNAL, 1L);
        SetOption(easy.get(), CURLOPT_QUICK_EXIT, 1L); // else an interrupt waits for a name server
        SetOption(easy.get(), CURLOPT_FRESH_CONNECT, 1L);
        SetOption(easy.get(), CURLOPT_FORBID_REUSE, 1L);
        SetOption(easy.get(), CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(limits.connect.count()));
        SetOption(easy.get(), CURLOPT_WRITEFUNCTION, &TakeBody);
        SetOption(easy.get(), CURLOPT_HEADERFUNCTION, &CountHeader);
    }

    // Runs the transfer that has been set up.
    CURLcode Transfer()
    {
        const CMembership membership(multi.get(), easy.get());
        int running = 1;
        while (running != 0) {
            if (isInterrupted) {
                return CURLE_ABORTED_BY_CALLBACK;
            }
            if (curl_multi_perform(multi.get(), &running) != CURLM_OK ||
                (running != 0 && curl_multi_poll(multi.get(), nullptr, 0, kLongestPollMs, nullptr) != CURLM_OK)) {
                return CURLE_FAILED_INIT;
            }
        }
        int left = 0;
        const CURLMsg* message = curl_multi_info_read(multi.get(), &left);
        return message == nullptr ? CURLE_FAILED_INIT : message->data.result;
    }

    // One answer, a redirect perhaps.
    FetchAnswer FetchOne(const std::string& url, milliseconds limit)
    {
        // A used handle keeps a pointer into the header of its last answer beyond that header's life (libcurl 7.88).
        CURL* const fresh = curl_easy_duphandle(easy.get());
        if (fresh == nullptr) {
            throw std::bad_alloc(); // the used one stays for the next request to be made of
        }
        easy.reset(fresh);
        Arrival arrival{.handle = easy.get(), .bodyLimitBytes = limits.bodyBytes};
        char reason[CURL_ERROR_SIZE] = "";
        SetOption(easy.get(), CURLOPT_URL, url.c_str());
        SetOption(easy.get(), CURLOPT_TIMEOUT_MS, static_cast<long>(limit.count()));
        SetOption(easy.get(), CURLOPT_WRITEDATA, static_cast<void*>(&arrival));
        SetOption(easy.get(), CURLOPT_HEADERDATA, static_cast<void*>(&arrival));
        SetOption(easy.get(), CURLOPT_ERRORBUFFER, &reason[0]);
        const CURLcode result = Transfer();
        SetOption(easy.get(), CURLOPT_ERRORBUFFER, static_cast<char*>(nullptr));
        if (arrival.lacksMemory || result == CURLE_OUT_OF_MEMORY) {
            throw std::bad_alloc();
        }
        if (result == CURLE_OK) {
            return Read(std::move(arrival.body));
        }
        if (isInterrupted) {
            return Failure("interrupted", "the server is ending");
        }
        if (arrival.isTooBig) {
            return Failure("too_big", "more than " + std::to_string(limits.bodyBytes) +
                                          " bytes, or a header of more than " + std::to_string(kHeaderLimitBytes));
        }
        return Failure(FailureOf(easy.get(), result), reason[0] != '\0' ? &reason[0] : curl_easy_strerror(result));
    }

    // The answer that has arrived.
    FetchAnswer Read(std::string body)
    {
        FetchAnswer answer;
        curl_easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &answer.status);
        answer.body = std::move(body);
        answer.etag = Validator(easy.get(), "ETag");
        answer.lastModified = Validator(easy.get(), "Last-Modified");
        const DelayFields fields{.retryAfter = HeaderField(easy.get(), "Retry-After"),
                                 .cacheControl = HeaderField(easy.get(), "Cache-Control"),
                                 .age = HeaderField(easy.get(), "Age"),
                                 .expires = HeaderField(easy.get(), "Expires"),
                                 .date = HeaderField(easy.get(), "Date")};
        const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
        answer.retryAfter = ReadRetryAfter(fields, now);
        answer.freshFor = ReadFreshness(fields, now);
        return answer;
    }

    // Where the answer that has arrived leads to; empty: it is no redirect.
    std::string NextUrl() const
    {
        char* url = nullptr;
        curl_easy_getinfo(easy.get(), CURLINFO_REDIRECT_URL, &url);
        return url == nullptr ? std::string() : url;
    }

    // Redirects are followed here, since the library would lead from http to https and back.
    FetchAnswer Follow(std::string url)
    {
        const auto end = steady_clock::now() + limits.total;
        for (long redirects = 0;; ++redirects) {
            const auto rest = std::chrono::ceil<milliseconds>(end - steady_clock::now());
            if (rest <= milliseconds(0)) {
                return Failure("timeout", "redirects took too long");
            }
            FetchAnswer answer = FetchOne(url, rest);
            if (answer.failure == "url" && redirects > 0) {
                return Failure("redirect", "to an address that may not be asked: " + answer.detail);
            }
            const std::string next = answer.failure.empty() ? NextUrl() : std::string();
            if (next.empty()) {
                return answer;
            }
            if (redirects == limits.redirects) {
                return Failure("redirect", "more than " + std::to_string(limits.redirects) + " redirects");
            }
            if (IsHttps(url) && !IsHttps(next)) {
                return Failure("redirect", "from https to another protocol");
            }
            url = next;
        }
    }

    static constexpr int kLongestPollMs = 60'000; // the library's own timers and Interrupt end a wait earlier

    const FetchLimits limits;
    std::atomic<bool> isInterrupted = false;
    EasyPtr easy;
    MultiPtr multi;
};

CFetcher::CFetcher(const FetchLimits& limits) : m_impl(std::make_unique<Impl>(limits)) {}

CFetcher::~CFetcher() = default;

FetchAnswer CFetcher::Fetch(const FetchRequest& request)
{
    m_impl->SetUp(request);
    const ListPtr validators = ValidatorList(request);
    SetOption(m_impl->easy.get(), CURLOPT_HTTPHEADER, validators.get());
    return m_impl->Follow(request.url);
}

void CFetcher::Interrupt()
{
    m_impl->isInterrupted = true;
    curl_multi_wakeup(m_impl->multi.get());
}

} // namespace reportd
