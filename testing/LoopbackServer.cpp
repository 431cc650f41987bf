#include "testing/LoopbackServer.h"

#include "platform/LetterCase.h"
#include "testing/LoopbackAcceptor.h"

#include <algorithm>
#include <array>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <condition_variable>
#include <mutex>
#include <set>
#include <sstream>
#include <string_view>
#include <utility>

namespace testing_support {

namespace asio = boost::asio;
using asio::ip::tcp;
using std::chrono::milliseconds;

std::string FieldOf(const HttpExchange& exchange, const std::string& name)
{
    const auto found = std::find_if(exchange.headers.begin(), exchange.headers.end(), [&name](const auto& header) {
        return platform::EqualsWithoutCase(header.first, name);
    });
    return found == exchange.headers.end() ? std::string() : found->second;
}

namespace {

const tcp::endpoint kAnyLoopbackPort(asio::ip::address_v4::loopback(), 0);

// The request that a header, its empty line included, asks for.
HttpExchange ParseRequest(const std::string& header, unsigned connection)
{
    HttpExchange exchange;
    exchange.connection = connection;
    std::istringstream stream(header);
    stream >> exchange.method >> exchange.target;
    std::string line;
    std::getline(stream, line);
    while (std::getline(stream, line) && line != "\r") {
        const std::size_t colon = std::min(line.find(':'), line.size());
        const std::size_t first = std::min(line.find_first_not_of(" \t", colon + 1), line.size());
        const std::string value = line.substr(first, line.find_last_not_of(" \t\r") + 1 - first);
        exchange.headers.emplace_back(line.substr(0, colon), value);
    }
    exchange.host = FieldOf(exchange, "Host");
    exchange.agent = FieldOf(exchange, "User-Agent");
    return exchange;
}

bool MayHaveBody(DWORD status) { return status >= 200 && status != 204 && status != 304; }

std::string HeaderOf(const HttpAnswer& answer)
{
    std::ostringstream header;
    header << "HTTP/1.1 " << answer.status << " Status\r\n";
    for (const auto& [name, value] : answer.headers) {
        header << name << ": " << value << "\r\n";
    }
    if (answer.chunked || answer.endless) {
        header << "Transfer-Encoding: chunked\r\n";
    } else if (MayHaveBody(answer.status)) {
        const std::size_t size = answer.body.size();
        header << "Content-Length: " << (answer.fault == HttpFault::kLongBody ? size / 2 : size) << "\r\n";
    }
    header << "\r\n";
    return header.str();
}

std::string SizeLine(std::size_t size)
{
    std::ostringstream line;
    line << std::hex << size << "\r\n";
    return line.str();
}

// The body as it goes on the wire; in chunks of a size that is no power of two, so that they end in odd places.
std::string BodyOf(const HttpAnswer& answer)
{
    if (!answer.chunked) {
        return MayHaveBody(answer.status) ? answer.body : std::string();
    }
    constexpr std::size_t kChunkSize = 1000;
    std::string body;
    for (std::size_t from = 0; from < answer.body.size(); from += kChunkSize) {
        const std::string chunk = answer.body.substr(from, kChunkSize);
        body += SizeLine(chunk.size()) + chunk + "\r\n";
    }
    return body + "0\r\n" + answer.trailers + "\r\n";
}

// The first half of the body, on the wire as the beginning of the whole.
std::string HalfBodyOf(const HttpAnswer& answer)
{
    const std::string half = answer.body.substr(0, answer.body.size() / 2);
    return answer.chunked ? SizeLine(answer.body.size()) + half : half;
}

bool ClosesConnection(const HttpAnswer& answer)
{
    return std::any_of(answer.headers.begin(), answer.headers.end(), [](const auto& header) {
        return platform::EqualsWithoutCase(header.first, "Connection") &&
               platform::EqualsWithoutCase(header.second, "close");
    });
}

asio::awaitable<void> Send(tcp::socket& socket, const std::string& bytes)
{
    co_await asio::async_write(socket, asio::buffer(bytes), asio::use_awaitable);
}

asio::awaitable<void> Wait(milliseconds time)
{
    if (time == milliseconds::zero()) {
        co_return;
    }
    asio::steady_timer timer(co_await asio::this_coro::executor, time);
    co_await timer.async_wait(asio::use_awaitable);
}

asio::awaitable<void> SendWhole(tcp::socket& socket, const std::string& header, const HttpAnswer& answer)
{
    const std::string body = BodyOf(answer);
    if (answer.dripMs == 0 && !answer.endless) {
        co_await Send(socket, header + body);
        co_return;
    }
    co_await Send(socket, header);
    while (answer.endless) {
        co_await Send(socket, SizeLine(answer.body.size()) + answer.body + "\r\n");
    }
    for (const char byte : body) {
        co_await Wait(milliseconds(answer.dripMs));
        co_await Send(socket, std::string(1, byte));
    }
}

bool Stalls(const HttpAnswer& answer)
{
    return answer.fault == HttpFault::kStalled || answer.fault == HttpFault::kStalledBody;
}

void ResetAtEnd(tcp::socket& socket) { socket.set_option(asio::socket_base::linger(true, 0)); }

// Reads until the connection ends: then it throws.
asio::awaitable<void> Ignore(tcp::socket& socket)
{
    for (;;) {
        std::array<char, 256> ignored = {};
        co_await socket.async_read_some(asio::buffer(ignored), asio::use_awaitable);
    }
}

// Whether the connection can serve another request.
asio::awaitable<bool> Play(tcp::socket& socket, const HttpScript& script)
{
    socket.set_option(tcp::no_delay(true));
    for (const HttpBytes& step : script.steps) {
        for (std::size_t time = 0; time < step.times; ++time) {
            co_await Wait(step.wait);
            co_await Send(socket, step.bytes);
        }
    }
    if (script.end == HttpScript::End::kReset) {
        ResetAtEnd(socket);
    } else if (script.end == HttpScript::End::kHalfClose) {
        socket.shutdown(tcp::socket::shutdown_send);
        co_await Ignore(socket);
    }
    co_return script.end == HttpScript::End::kGoOn;
}

// Gives the answer, as far as it goes. Whether the connection can serve another request.
asio::awaitable<bool> Give(tcp::socket& socket, const HttpAnswer& answer, const std::string& prelude)
{
    if (answer.script) {
        co_return co_await Play(socket, *answer.script);
    }
    const std::string header = prelude + HeaderOf(answer);
    switch (answer.fault) {
    case HttpFault::kNone:
    case HttpFault::kLongBody:
        co_await SendWhole(socket, header, answer);
        co_return !ClosesConnection(answer);
    case HttpFault::kRefused:
    case HttpFault::kClosedEarly:
    case HttpFault::kStalled:
        co_return false;
    case HttpFault::kGarbage:
        co_await Send(socket, "\x01\x02 These are not the bytes you are looking for.\r\n\r\n");
        co_return false;
    case HttpFault::kStalledBody:
    case HttpFault::kShortBody:
        co_await Send(socket, header + HalfBodyOf(answer));
        co_return false;
    case HttpFault::kReset:
        co_await Send(socket, header + HalfBodyOf(answer));
        ResetAtEnd(socket);
        co_return false;
    }
    co_return false;
}

} // namespace

struct CLoopbackServer::Impl {
    explicit Impl(HttpHandler answerer) : handler(std::move(answerer)) {}

    asio::awaitable<void> Serve(tcp::socket socket)
    {
        const unsigned number = CountConnection();
        try {
            std::string received;
            bool goesOn = co_await Play(socket, TakeGreeting());
            while (goesOn) {
                goesOn = co_await ServeOne(socket, received, number);
            }
        } catch (const boost::system::system_error&) {
            // The client has ended the connection, or EndStalled has.
        }
        socket.close();
        const std::lock_guard lock(mutex);
        stalled.erase(&socket);
        --openConnections;
    }

    asio::awaitable<bool> ServeOne(tcp::socket& socket, std::string& received, unsigned number)
    {
        const std::size_t size =
            co_await asio::async_read_until(socket, asio::dynamic_buffer(received), "\r\n\r\n", asio::use_awaitable);
        const HttpExchange exchange = ParseRequest(received.substr(0, size), number);
        received.erase(0, size);
        const std::string bytesBefore = Record(exchange);
        const HttpAnswer answer = handler(exchange);
        co_await Wait(milliseconds(answer.latencyMs));
        const bool goesOn = co_await Give(socket, answer, bytesBefore);
        if (Stalls(answer)) {
            co_await Stall(socket);
        }
        co_return goesOn;
    }

    // Says nothing more until the connection ends: then the read throws.
    asio::awaitable<void> Stall(tcp::socket& socket)
    {
        NoteStall(socket);
        co_await Ignore(socket);
    }

    void NoteStall(tcp::socket& socket)
    {
        const std::lock_guard lock(mutex);
        stalled.insert(&socket);
        hasStalled.notify_all();
    }

    bool EndStalled(std::chrono::seconds limit)
    {
        std::unique_lock lock(mutex);
        if (!hasStalled.wait_for(lock, limit, [this] { return !stalled.empty(); })) {
            return false;
        }
        asio::post(acceptor.Context(), [this] {
            const std::lock_guard posted(mutex);
            for (tcp::socket* socket : stalled) {
                socket->close();
            }
        });
        return true;
    }

    unsigned CountConnection()
    {
        const std::lock_guard lock(mutex);
        ++openConnections;
        return ++connections;
    }

    HttpScript TakeGreeting()
    {
        const std::lock_guard lock(mutex);
        if (greetings == 0) {
            return {.end = HttpScript::End::kGoOn};
        }
        --greetings;
        return greeting;
    }

    // The bytes to send before the answer's header.
    std::string Record(const HttpExchange& exchange)
    {
        const std::lock_guard lock(mutex);
        exchanges.push_back(exchange);
        return prelude;
    }

    const HttpHandler handler;

    std::mutex mutex; // guards what follows
    std::string prelude = {};
    HttpScript greeting = {};
    unsigned greetings = 0; // connections that are still to get it
    std::vector<HttpExchange> exchanges = {};
    unsigned connections = 0;
    unsigned openConnections = 0;
    std::set<tcp::socket*> stalled = {}; // the sockets themselves are the server's thread's alone
    std::condition_variable hasStalled;  // when a connection has come to the stalled ones

    // The last to be made and the first to go, with what is still running in it.
    CLoopbackAcceptor acceptor{[this](tcp::socket socket) { return Serve(std::move(socket)); }};
};

CLoopbackServer::CLoopbackServer(HttpHandler handler) : m_impl(std::make_unique<Impl>(std::move(handler))) {}

CLoopbackServer::~CLoopbackServer() = default;

WORD CLoopbackServer::Port() const { return m_impl->acceptor.Port(); }

void CLoopbackServer::SetPrelude(std::string bytes)
{
    const std::lock_guard lock(m_impl->mutex);
    m_impl->prelude = std::move(bytes);
}

void CLoopbackServer::SetGreeting(HttpScript script, unsigned connections)
{
    const std::lock_guard lock(m_impl->mutex);
    m_impl->greeting = std::move(script);
    m_impl->greetings = connections;
}

bool CLoopbackServer::EndStalled(std::chrono::seconds limit) { return m_impl->EndStalled(limit); }

std::vector<HttpExchange> CLoopbackServer::Exchanges() const
{
    const std::lock_guard lock(m_impl->mutex);
    return m_impl->exchanges;
}

unsigned CLoopbackServer::ConnectionCount() const
{
    const std::lock_guard lock(m_impl->mutex);
    return m_impl->connections;
}

unsigned CLoopbackServer::OpenConnectionCount() const
{
    const std::lock_guard lock(m_impl->mutex);
    return m_impl->openConnections;
}

// A bound socket that does not listen: nobody else gets the port, and connecting to it is refused.
struct CClosedPort::Impl {
    asio::io_context io{1};
    tcp::socket socket{io, kAnyLoopbackPort};
};

CClosedPort::CClosedPort() : m_impl(std::make_unique<Impl>()) {}

CClosedPort::~CClosedPort() = default;

WORD CClosedPort::Port() const { return m_impl->socket.local_endpoint().port(); }

} // namespace testing_support
