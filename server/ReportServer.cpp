#include "server/ReportServer.h"

#include "server/RequestParser.h"
#include "server/TimeText.h"

#include <boost/asio/basic_socket_acceptor.hpp>
#include <boost/asio/basic_stream_socket.hpp>
#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/buffers_suffix.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/status.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <csignal>
#include <optional>
#include <sstream>
#include <unordered_set>

namespace reportd {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using asio::ip::tcp;
using boost::system::error_code;

constexpr int kSilenceLimitTicks = 30;
constexpr std::chrono::seconds kTick{1};
constexpr std::uint32_t kHeaderLimitBytes = 8 * 1024;
constexpr std::uint64_t kBodyLimitBytes = std::uint64_t{64} * 1024;
constexpr std::size_t kBufferLimitBytes = std::size_t{128} * 1024;
constexpr std::size_t kReadBytes = std::size_t{4} * 1024;
constexpr std::size_t kConnectionLimit = 200;
constexpr std::chrono::milliseconds kRestAfterFailure{100};

// One thread runs the context, which needs no lock for sockets and timers; Stop may still come from another one.
constexpr int kOneThread = BOOST_ASIO_CONCURRENCY_HINT_UNSAFE_IO;

using Executor = asio::io_context::executor_type; // known to the compiler, unlike the one that may be any
using Socket = asio::basic_stream_socket<tcp, Executor>;

class CReportConnection;

// What the connections of a server share.
struct ServerParts {
    CAnswers& answers;
    const LocalClock clock;
    const std::string fixedFields; // header lines of every answer
    std::chrono::sys_seconds dateMoment = {};
    std::string date = {}; // the text of that moment
    std::unordered_set<CReportConnection*> connections = {};
    std::function<void()> onClosed = {}; // a connection has gone from the set
};

// Value of the header field Date.
const std::string& CurrentDate(ServerParts& parts)
{
    const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    if (now != parts.dateMoment || parts.date.empty()) {
        parts.dateMoment = now;
        parts.date = HttpDateText(now);
    }
    return parts.date;
}

// One connection. Its pending operation owns it: it is destroyed when none is left.
class CReportConnection : public std::enable_shared_from_this<CReportConnection> {
public:
    CReportConnection(Socket&& socket, ServerParts& parts) : m_socket(std::move(socket)), m_parts(parts)
    {
        m_parts.connections.insert(this);
    }

    ~CReportConnection() { m_parts.connections.erase(this); }

    void Start()
    {
        error_code ignored; // whatever is wrong with the socket, reading will tell
        m_socket.set_option(tcp::no_delay(true), ignored);
        m_socket.non_blocking(true, ignored);
        BeginRequest();
        Read();
    }

    // Another second without progress has passed.
    void Tick()
    {
        if (++m_silentTicks > kSilenceLimitTicks) {
            Close();
        }
    }

private:
    // A handler that goes on with this step, or closes the connection after an error.
    template <typename Step>
    auto OrClose(Step step)
    {
        return [self = shared_from_this(), step](error_code error, std::size_t size) {
            if (!error) {
                (self.get()->*step)(size);
            } else {
                self->Close();
            }
        };
    }

    void BeginRequest()
    {
        m_silentTicks = 0;
        m_isContinueSent = false;
        m_parser.emplace(m_text);
        m_parser->header_limit(kHeaderLimitBytes);
        m_parser->body_limit(kBodyLimitBytes);
    }

    void Read()
    {
        const std::size_t room = std::min(kReadBytes, m_buffer.max_size() - m_buffer.size());
        if (room == 0) {
            Close();
            return;
        }
        m_socket.async_read_some(m_buffer.prepare(room), OrClose(&CReportConnection::TakeBytes));
    }

    void TakeBytes(std::size_t size)
    {
        m_buffer.commit(size);
        GoOn();
    }

    // Answers the requests that have come in whole, then reads on.
    void GoOn()
    {
        Progress progress = Progress::kDone;
        while (progress == Progress::kDone) {
            progress = Parse();
            if (progress == Progress::kDone) {
                progress = Answer(m_parts.answers.Answer(m_text.AsRequest(), m_parts.clock()));
            }
        }
        if (progress == Progress::kNeedsBytes) {
            Read();
        }
    }

    enum class Progress {
        kDone,       // go on at once
        kNeedsBytes, // of the request
        kElsewhere,  // an operation is pending that will go on, or the connection is closed
    };

    // Takes the buffer's bytes for the request, up to its end.
    Progress Parse()
    {
        while (!m_parser->is_done()) {
            if (m_parser->is_header_done() && m_text.isContinueAwaited && !m_isContinueSent) {
                AskForBody();
                return Progress::kElsewhere;
            }
            if (m_buffer.size() == 0) {
                return Progress::kNeedsBytes;
            }
            error_code error;
            m_buffer.consume(m_parser->put(m_buffer.data(), error));
            if (error == http::error::need_more) {
                return Progress::kNeedsBytes;
            }
            if (error) {
                Close();
                return Progress::kElsewhere;
            }
        }
        return Progress::kDone;
    }

    // Answers "Expect: 100-continue".
    void AskForBody()
    {
        static constexpr std::string_view kContinue = "HTTP/1.1 100 Continue\r\n\r\n";
        m_isContinueSent = true;
        asio::async_write(m_socket, asio::buffer(kContinue), OrClose(&CReportConnection::ReadBody));
    }

    void ReadBody(std::size_t /*sent*/) { GoOn(); }

    Progress Answer(WebAnswer&& answer)
    {
        if (answer.unfinished != nullptr) {
            m_unfinished = std::move(answer.unfinished);
            PostStep();
            return Progress::kElsewhere;
        }
        MakeHead(answer);
        m_body = std::move(answer.body);
        return Write();
    }

    // Leaves the thread to other connections before the next step of an answer that is made in steps.
    void PostStep()
    {
        asio::post(m_socket.get_executor(), [self = shared_from_this()] { self->TakeStep(); });
    }

    void TakeStep()
    {
        if (!m_socket.is_open()) {
            return;
        }
        std::optional<WebAnswer> answer = m_unfinished->Continue();
        if (!answer) {
            PostStep();
            return;
        }
        m_unfinished.reset();
        if (Answer(std::move(*answer)) == Progress::kDone) {
            GoOn();
        }
    }

    void MakeHead(const WebAnswer& answer)
    {
        const bool isOld = m_text.version < 11;
        m_isKept = m_parser->keep_alive();
        m_head.assign(isOld ? "HTTP/1.0 " : "HTTP/1.1 ");
        m_head.append(std::to_string(answer.status)).append(" ");
        const beast::string_view reason = http::obsolete_reason(http::int_to_status(answer.status));
        m_head.append(reason.data(), reason.size()).append("\r\n").append(m_parts.fixedFields);
        m_head.append("Date: ").append(CurrentDate(m_parts)).append("\r\n");
        if (answer.fields != nullptr) {
            m_head += *answer.fields;
        }
        if (answer.age) {
            m_head.append("Age: ").append(std::to_string(answer.age->count())).append("\r\n");
        }
        if (!answer.contentType.empty()) {
            m_head.append("Content-Type: ").append(answer.contentType).append("\r\n");
        }
        if (answer.status != 304) {
            const std::size_t size = answer.body == nullptr ? 0 : answer.body->size();
            m_head.append("Content-Length: ").append(std::to_string(size)).append("\r\n");
        }
        if (isOld == m_isKept) { // the other way is what the version does of itself
            m_head.append(m_isKept ? "Connection: keep-alive\r\n" : "Connection: close\r\n");
        }
        m_head += "\r\n";
    }

    // Sends head and body, most often at once.
    Progress Write()
    {
        m_silentTicks = 0;
        const std::array<asio::const_buffer, 2> whole = {
            asio::buffer(m_head), m_body == nullptr ? asio::const_buffer() : asio::buffer(*m_body)};
        error_code error;
        const std::size_t sent = m_socket.write_some(whole, error);
        if (error && error != asio::error::would_block) {
            Close();
            return Progress::kElsewhere;
        }
        beast::buffers_suffix rest(whole);
        rest.consume(sent);
        if (beast::buffer_bytes(rest) > 0) {
            asio::async_write(m_socket, rest, OrClose(&CReportConnection::GoOnAfterWrite));
            return Progress::kElsewhere;
        }
        return EndRequest();
    }

    void GoOnAfterWrite(std::size_t /*sent*/)
    {
        if (EndRequest() == Progress::kDone) {
            GoOn();
        }
    }

    Progress EndRequest()
    {
        m_body.reset();
        if (!m_isKept) {
            Close();
            return Progress::kElsewhere;
        }
        BeginRequest();
        return Progress::kDone;
    }

    void Close()
    {
        if (m_parts.connections.erase(this) == 0) {
            return;
        }
        // Fails when the client has closed already, which changes nothing.
        error_code ignored;
        m_socket.shutdown(tcp::socket::shutdown_send, ignored);
        m_socket.close(ignored);
        m_parts.onClosed();
    }

    Socket m_socket;
    ServerParts& m_parts;
    int m_silentTicks = 0;
    bool m_isContinueSent = false;
    bool m_isKept = true;
    beast::flat_buffer m_buffer{kBufferLimitBytes};
    RequestText m_text;
    std::optional<CRequestParser> m_parser;
    std::unique_ptr<CUnfinishedAnswer> m_unfinished;
    std::string m_head;
    std::shared_ptr<const std::string> m_body;
};

} // namespace

struct CReportServer::Impl {
    Impl(const std::string& address, unsigned short port, CAnswers& answers, LocalClock&& localClock)
        : parts{.answers = answers,
                .clock = std::move(localClock),
                .fixedFields = "Server: ampora-reportd/" AMPORA_VERSION "\r\nX-Ampora-Source: " +
                               std::string(answers.SourceName()) + "\r\n"},
          acceptor(context), rest(context), ticker(context), signals(context)
    {
        parts.onClosed = [this] { Accept(); };
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
        if (isAccepting || parts.connections.size() == kConnectionLimit) {
            return;
        }
        isAccepting = true;
        acceptor.async_accept([this](error_code error, Socket socket) {
            if (error) {
                RestAndAccept();
                return;
            }
            isAccepting = false;
            std::make_shared<CReportConnection>(std::move(socket), parts)->Start();
            TickWhileThereAreConnections();
            Accept();
        });
    }

    void TickWhileThereAreConnections()
    {
        if (isTicking || parts.connections.empty()) {
            return;
        }
        isTicking = true;
        ticker.expires_after(kTick);
        ticker.async_wait([this](error_code) {
            isTicking = false;
            // A copy, because a tick may close the connection.
            const std::vector<CReportConnection*> all(parts.connections.begin(), parts.connections.end());
            for (CReportConnection* const connection : all) {
                connection->Tick();
            }
            TickWhileThereAreConnections();
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

    ServerParts parts;
    bool isAccepting = false; // or resting after a failure
    bool isTicking = false;
    asio::io_context context{kOneThread};
    asio::basic_socket_acceptor<tcp, Executor> acceptor;
    asio::basic_waitable_timer<std::chrono::steady_clock, asio::wait_traits<std::chrono::steady_clock>, Executor> rest;
    asio::basic_waitable_timer<std::chrono::steady_clock, asio::wait_traits<std::chrono::steady_clock>, Executor>
        ticker;
    asio::signal_set signals;
};

LocalTime ReadSystemClock()
{
    using boost::posix_time::ptime;
    static const ptime epoch(boost::gregorian::date(1970, 1, 1));
    const auto passed = boost::posix_time::second_clock::local_time() - epoch;
    return LocalTime(std::chrono::seconds(passed.total_seconds()));
}

CReportServer::CReportServer(const std::string& address, unsigned short port, CAnswers& answers, LocalClock clock)
    : m_impl(std::make_unique<Impl>(address, port, answers, std::move(clock)))
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
