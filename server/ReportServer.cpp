#include "server/ReportServer.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <csignal>
#include <optional>
#include <sstream>

namespace reportd {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using asio::ip::tcp;
using boost::system::error_code;

constexpr std::chrono::seconds kSilenceLimit{30};
constexpr std::uint32_t kHeaderLimitBytes = 8 * 1024;
constexpr std::uint64_t kBodyLimitBytes = std::uint64_t{64} * 1024;
constexpr std::size_t kBufferLimitBytes = std::size_t{128} * 1024;
constexpr std::size_t kConnectionLimit = 200;
constexpr std::chrono::milliseconds kRestAfterFailure{100};

// One connection. Its pending operations own it: it is destroyed when none is left.
class CReportConnection : public std::enable_shared_from_this<CReportConnection> {
    // A handler that goes on with this step, or closes the connection after an error.
    auto OrClose(void (CReportConnection::*step)())
    {
        return [self = shared_from_this(), step](error_code error, std::size_t) {
            if (!error) {
                (self.get()->*step)();
            } else {
                self->Close();
            }
        };
    }

public:
    // atEnd: called when it has been closed.
    CReportConnection(tcp::socket&& socket, const LocalClock& clock, std::function<void()> atEnd)
        : m_stream(std::move(socket)), m_clock(clock), m_atEnd(std::move(atEnd))
    {
    }

    void ReadRequest()
    {
        m_parser.emplace();
        m_parser->header_limit(kHeaderLimitBytes);
        m_parser->body_limit(kBodyLimitBytes);
        m_stream.expires_after(kSilenceLimit);
        http::async_read_header(m_stream, m_buffer, *m_parser, OrClose(&CReportConnection::AskForBody));
    }

private:
    // Answers "Expect: 100-continue".
    void AskForBody()
    {
        const http::request<http::string_body>& request = m_parser->get();
        if (!m_parser->is_done() && request.version() >= 11 &&
            beast::iequals(request[http::field::expect], "100-continue")) {
            static constexpr std::string_view kContinue = "HTTP/1.1 100 Continue\r\n\r\n";
            asio::async_write(m_stream, asio::buffer(kContinue), OrClose(&CReportConnection::ReadBody));
        } else {
            ReadBody();
        }
    }

    void ReadBody() { http::async_read(m_stream, m_buffer, *m_parser, OrClose(&CReportConnection::WriteAnswer)); }

    void WriteAnswer()
    {
        const http::request<http::string_body>& request = m_parser->get();
        ReportAnswer report = AnswerReportRequest(request.method_string(), request.target(), m_clock());
        m_answer = http::response<http::string_body>(http::int_to_status(report.status), request.version());
        m_answer.set(http::field::server, "ampora-reportd/" AMPORA_VERSION);
        m_answer.set("X-Ampora-Source", "sample");
        if (report.status == 200) {
            m_answer.set(http::field::content_type, "application/xml; charset=utf-8");
        } else if (report.status == 405) {
            m_answer.set(http::field::allow, "GET");
        }
        m_answer.keep_alive(request.keep_alive());
        m_answer.body() = std::move(report.body);
        m_answer.prepare_payload();
        m_stream.expires_after(kSilenceLimit);
        http::async_write(m_stream, m_answer, OrClose(&CReportConnection::GoOn));
    }

    void GoOn()
    {
        if (m_answer.keep_alive()) {
            ReadRequest();
        } else {
            Close();
        }
    }

    void Close()
    {
        // Fails when the client has closed already, which changes nothing.
        error_code ignored;
        m_stream.socket().shutdown(tcp::socket::shutdown_send, ignored);
        m_stream.close();
        m_atEnd();
    }

    beast::tcp_stream m_stream;
    const LocalClock& m_clock;
    const std::function<void()> m_atEnd;
    beast::flat_buffer m_buffer{kBufferLimitBytes};
    std::optional<http::request_parser<http::string_body>> m_parser;
    http::response<http::string_body> m_answer;
};

} // namespace

struct CReportServer::Impl {
    Impl(const std::string& address, unsigned short port, LocalClock&& localClock)
        : clock(std::move(localClock)), acceptor(context), rest(context), signals(context)
    {
        const tcp::endpoint endpoint(asio::ip::make_address(address), port);
        acceptor.open(endpoint.protocol());
#ifdef SO_EXCLUSIVEADDRUSE
        // On systems with this option, address reuse would let another program take the port.
        acceptor.set_option(asio::detail::socket_option::boolean<SOL_SOCKET, SO_EXCLUSIVEADDRUSE>(true));
#else
        acceptor.set_option(tcp::acceptor::reuse_address(true));
#endif
        acceptor.bind(endpoint);
        acceptor.listen();
    }

    // Takes the next connection once there is room for one.
    void Accept()
    {
        if (isAccepting || connectionCount == kConnectionLimit) {
            return;
        }
        isAccepting = true;
        acceptor.async_accept([this](error_code error, tcp::socket socket) {
            if (error) {
                RestAndAccept();
                return;
            }
            isAccepting = false;
            ++connectionCount;
            std::make_shared<CReportConnection>(std::move(socket), clock, [this] {
                --connectionCount;
                Accept();
            })->ReadRequest();
            Accept();
        });
    }

    // The usual cause is that the process is out of descriptors, which lasts for a while.
    void RestAndAccept()
    {
        rest.expires_after(kRestAfterFailure);
        rest.async_wait([this](error_code) {
            isAccepting = false;
            Accept();
        });
    }

    LocalClock clock;
    bool isAccepting = false; // or resting after a failure
    std::size_t connectionCount = 0;
    asio::io_context context{1}; // one thread runs it
    tcp::acceptor acceptor;
    asio::steady_timer rest;
    asio::signal_set signals;
};

LocalTime ReadSystemClock()
{
    using boost::posix_time::ptime;
    static const ptime epoch(boost::gregorian::date(1970, 1, 1));
    const auto passed = boost::posix_time::second_clock::local_time() - epoch;
    return LocalTime(std::chrono::seconds(passed.total_seconds()));
}

CReportServer::CReportServer(const std::string& address, unsigned short port, LocalClock clock)
    : m_impl(std::make_unique<Impl>(address, port, std::move(clock)))
{
}

CReportServer::~CReportServer() = default;

std::string CReportServer::Endpoint() const
{
    std::ostringstream text;
    text << m_impl->acceptor.local_endpoint();
    return text.str();
}

unsigned short CReportServer::Port() const { return m_impl->acceptor.local_endpoint().port(); }

void CReportServer::StopOnSignals()
{
    m_impl->signals.add(SIGINT);
    m_impl->signals.add(SIGTERM);
    m_impl->signals.async_wait([this](error_code error, int) {
        if (!error) {
            Stop();
        }
    });
}

void CReportServer::Run()
{
    m_impl->Accept();
    m_impl->context.run();
}

void CReportServer::Stop() { m_impl->context.stop(); }

} // namespace reportd
