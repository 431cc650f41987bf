#include "testing/TlsFront.h"

#include "testing/LoopbackAcceptor.h"
#include "testing/process/Process.h"

#include <array>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <optional>
#include <stdexcept>
#include <utility>

namespace testing_support {

namespace asio = boost::asio;
using asio::ip::tcp;

namespace {

void RunOpenssl(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "openssl");
    const ProcessResult result = RunProcess(arguments, {}, std::chrono::seconds(60));
    if (result.exitCode != 0) {
        throw std::runtime_error("openssl: " + result.err);
    }
}

// A key and a certificate for a day, which the further arguments describe.
void MakeCertificate(const std::string& folder, const std::string& name, const std::vector<std::string>& further)
{
    std::vector<std::string> arguments = {"req",
                                          "-x509",
                                          "-newkey",
                                          "ec",
                                          "-pkeyopt",
                                          "ec_paramgen_curve:prime256v1",
                                          "-noenc",
                                          "-days",
                                          "1",
                                          "-subj",
                                          "/CN=" + name,
                                          "-keyout",
                                          folder + "/" + name + ".key",
                                          "-out",
                                          folder + "/" + name + ".pem"};
    arguments.insert(arguments.end(), further.begin(), further.end());
    RunOpenssl(arguments);
}

void MakeCertificates(const std::string& folder)
{
    MakeCertificate(folder, "authority", {"-addext", "basicConstraints=critical,CA:TRUE"});
    MakeCertificate(folder, "server",
                    {"-CA", folder + "/authority.pem", "-CAkey", folder + "/authority.key", "-addext",
                     "basicConstraints=critical,CA:FALSE", "-addext", "subjectAltName=IP:127.0.0.1"});
}

// The two sides of one client's connection.
struct Link {
    Link(tcp::socket socket, asio::ssl::context& context)
        : plain(socket.get_executor()), encrypted(std::move(socket), context)
    {
    }

    tcp::socket plain;
    asio::ssl::stream<tcp::socket> encrypted;
};

template <class From, class To>
asio::awaitable<void> PumpUntilTheEnd(From& from, To& to)
{
    std::array<char, 16384> bytes = {};
    for (;;) {
        const std::size_t size = co_await from.async_read_some(asio::buffer(bytes), asio::use_awaitable);
        co_await asio::async_write(to, asio::buffer(bytes.data(), size), asio::use_awaitable);
    }
}

// Passes on what one side says until either ends, and ends both then.
template <class From, class To>
asio::awaitable<void> Pump(std::shared_ptr<Link> link, From& from, To& to)
{
    try {
        co_await PumpUntilTheEnd(from, to);
    } catch (const boost::system::system_error&) {
        link->plain.close();
        link->encrypted.next_layer().close();
    }
}

} // namespace

struct CTlsFront::Impl {
    Impl(WORD port, std::filesystem::path theFolder) : plainPort(port), folder(std::move(theFolder))
    {
        MakeCertificates(folder.string());
        context.use_certificate_chain_file((folder / "server.pem").string());
        context.use_private_key_file((folder / "server.key").string(), asio::ssl::context::pem);
        acceptor.emplace([this](tcp::socket socket) { return Serve(std::move(socket)); });
    }

    asio::awaitable<void> Serve(tcp::socket socket)
    {
        const auto link = std::make_shared<Link>(std::move(socket), context);
        try {
            co_await link->encrypted.async_handshake(asio::ssl::stream_base::server, asio::use_awaitable);
            co_await link->plain.async_connect({asio::ip::address_v4::loopback(), plainPort}, asio::use_awaitable);
        } catch (const boost::system::system_error&) {
            co_return; // the client does not trust the certificate, or nobody serves
        }
        asio::co_spawn(link->plain.get_executor(), Pump(link, link->plain, link->encrypted), asio::detached);
        co_await Pump(link, link->encrypted, link->plain);
    }

    const WORD plainPort;
    const std::filesystem::path folder;
    asio::ssl::context context{asio::ssl::context::tls_server};

    // The last to be made and the first to go, with what is still running in it.
    std::optional<CLoopbackAcceptor> acceptor = {};
};

CTlsFront::CTlsFront(WORD plainPort, const std::filesystem::path& folder)
    : m_impl(std::make_unique<Impl>(plainPort, folder))
{
}

CTlsFront::~CTlsFront() = default;

WORD CTlsFront::Port() const { return m_impl->acceptor->Port(); }

std::filesystem::path CTlsFront::AuthorityFile() const { return m_impl->folder / "authority.pem"; }

} // namespace testing_support
