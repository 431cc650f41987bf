// Answers of an HTTP server, from their bytes on the wire to the records that they give.
//
// The program is its own server, without a network, threads or time: a connection to anywhere becomes one end of a pair
// of sockets, and whenever the client would wait, the other end gets the next bytes or, when there are none, is closed.
#include "data/CalendarTime.h"
#include "data/GSXMLAnalyzer.h"
#include "fetch/AmporaHttpClient.h"
#include "fuzz/Require.h"
#include "platform/Apartment.h"
#include "platform/Text.h"
#include "testing/NoProxy.h"

#include <array>
#include <map>
#include <netdb.h>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr char kNextAnswer = '\x1E';

// The other ends.
class CServer {
public:
    // input: a byte that says how many bytes arrive at a time, then the answers, with kNextAnswer between them.
    explicit CServer(std::string_view input) : m_atATime(input.empty() ? 0 : static_cast<unsigned char>(input.front()))
    {
        m_answers = input.substr(std::min<std::size_t>(1, input.size()));
        s_current = this;
    }
    ~CServer()
    {
        s_current = nullptr;
        for (const auto& [end, unsent] : m_unsent) {
            ::close(end);
        }
    }
    CServer(const CServer&) = delete;
    CServer& operator=(const CServer&) = delete;
    static CServer& Current() { return *s_current; }

    // Makes the client's socket one end of a new connection.
    int Accept(int clientSocket)
    {
        std::array<int, 2> ends = {};
        Require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()) == 0);
        Require(::dup2(ends[0], clientSocket) == clientSocket);
        ::close(ends[0]);
        m_unsent[ends[1]] = "";
        return 0;
    }

    // Answers the requests that have come, as far as that is to arrive now. False when nothing was to be sent.
    bool Work()
    {
        bool hasSent = false;
        for (auto& [end, unsent] : m_unsent) {
            std::array<char, 4096> request = {};
            if (::recv(end, request.data(), request.size(), 0) > 0) {
                unsent += NextAnswer();
            }
            const std::string_view now = std::string_view(unsent).substr(0, m_atATime == 0 ? unsent.size() : m_atATime);
            const ssize_t sent = now.empty() ? 0 : ::send(end, now.data(), now.size(), MSG_NOSIGNAL);
            if (sent > 0) {
                unsent.erase(0, static_cast<std::size_t>(sent));
                hasSent = true;
            }
        }
        return hasSent;
    }

    void CloseAll()
    {
        for (const auto& [end, unsent] : m_unsent) {
            ::shutdown(end, SHUT_RDWR);
        }
    }

private:
    std::string NextAnswer()
    {
        std::string answer(m_answers.substr(0, m_answers.find(kNextAnswer)));
        m_answers.remove_prefix(std::min(answer.size() + 1, m_answers.size()));
        return answer;
    }

    static inline CServer* s_current = nullptr;
    std::size_t m_atATime;
    std::string_view m_answers;
    std::map<int, std::string> m_unsent; // by the server's end
};

// The body of an answer of which no more than a status and a length has to be understood; nothing for others.
std::optional<std::string_view> PlainBody(std::string_view answer)
{
    constexpr std::string_view kHead = "HTTP/1.1 200 OK\r\nContent-Length: ";
    constexpr std::string_view kHeadEnd = "\r\n\r\n";
    const std::string_view rest = answer.substr(std::min(kHead.size(), answer.size()));
    const std::string_view digits = rest.substr(0, rest.find_first_not_of("0123456789"));
    if (!answer.starts_with(kHead) || digits.empty() || digits.size() > 6 ||
        !rest.substr(digits.size()).starts_with(kHeadEnd)) {
        return std::nullopt;
    }
    const std::size_t length = std::stoul(std::string(digits));
    const std::string_view body = rest.substr(digits.size() + kHeadEnd.size());
    return body.size() >= length ? std::optional(body.substr(0, length)) : std::nullopt;
}

// answer: what the server gives first, empty for anything.
void Fetch(CAmporaHttpClient& client, std::string_view answer)
{
    CString body = L"before";
    DWORD status = 0;
    const BOOL isAnswered = client.GetData(L"http://127.0.0.1:8470/usage/tokyo/instant", body, status);
    Require(!isAnswered || (status >= 100 && status <= 999));
    Require(isAnswered || body == L"before");
    Require(status < 400 || body == L"before");
    Require(body.starts_with(L"before") && body.find(L'\0') == CString::npos);
    body.erase(0, 6);
    if (const std::optional<std::string_view> plain = PlainBody(answer)) {
        Require(isAnswered && status == 200 && body == platform::DecodeUtf8(plain->substr(0, plain->find('\0'))));
    }
    CGSXMLAnalyzer analyzer;
    try {
        static_cast<CAmporaAnalyzer&>(analyzer).AnalyzeData(body);
    } catch (const COleException&) { // NOLINT(bugprone-empty-catch): an impossible date, as its contract says
    }
}

} // namespace

// In the place of the system's own, for the HTTP library.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the system's names are reserved for it

extern "C" int connect(int socket, const sockaddr*, socklen_t) { return CServer::Current().Accept(socket); }

extern "C" int poll(pollfd* descriptors, nfds_t count, int timeoutMs)
{
    const timespec atOnce{};
    if (timeoutMs == 0) {
        return ::ppoll(descriptors, count, &atOnce, nullptr);
    }
    const bool hasSent = CServer::Current().Work();
    const int ready = ::ppoll(descriptors, count, &atOnce, nullptr);
    if (ready != 0 || hasSent) {
        return ready;
    }
    CServer::Current().CloseAll();
    const timespec moment{.tv_sec = 0, .tv_nsec = 10'000'000}; // the library may be waiting for a thread of its own
    return ::ppoll(descriptors, count, &moment, nullptr);
}

extern "C" int getaddrinfo(const char*, const char*, const addrinfo*, addrinfo**) { return EAI_NONAME; }

// NOLINTEND(readability-inconsistent-declaration-parameter-name)

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size)
{
    static const bool prepared = [] {
        testing_support::UseNoProxy();
        ::setenv("AMPORA_CONNECTED_STATE", "2", 1); // NOLINT(concurrency-mt-unsafe): there are no other threads yet
        platform::EnterApartment();
        return true;
    }();
    static_cast<void>(prepared);
    const std::string input(bytes, bytes + size);
    CServer server(input);
    CAmporaHttpClient client;
    const std::string_view answers = std::string_view(input).substr(std::min<std::size_t>(1, size));
    Fetch(client, answers.substr(0, answers.find(kNextAnswer)));
    Fetch(client, {}); // over the same connection, if it is still there
    return 0;
}
