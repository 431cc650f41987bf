// A client of the loopback server that sees every byte.
#pragma once

#include "testing/LoopbackServer.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>
#include <string>
#include <utility>

namespace testing_support {

// One connection. Its operations block and throw boost::system::system_error on failure.
class CRawClient {
public:
    explicit CRawClient(WORD port) { m_socket.connect({boost::asio::ip::address_v4::loopback(), port}); }

    // Sends a request; target: path and query.
    void Ask(const std::string& target)
    {
        boost::asio::write(
            m_socket, boost::asio::buffer("GET " + target + " HTTP/1.1\r\nhost: here\r\nUser-Agent:  Tester \r\n\r\n"));
    }

    // Everything up to and with this text.
    std::string ReadTo(const std::string& end)
    {
        const std::size_t size = boost::asio::read_until(m_socket, boost::asio::dynamic_buffer(m_received), end);
        std::string text = m_received.substr(0, size);
        m_received.erase(0, size);
        return text;
    }

    // Everything up to the end of the connection, and how that ended. Does not throw.
    std::string ReadAll(boost::system::error_code* end)
    {
        boost::asio::read(m_socket, boost::asio::dynamic_buffer(m_received), boost::asio::transfer_all(), *end);
        return std::exchange(m_received, {});
    }

    void Close() { m_socket.close(); }

private:
    boost::asio::io_context m_io;
    boost::asio::ip::tcp::socket m_socket{m_io};
    std::string m_received;
};

// A handler that answers every request with this.
inline HttpHandler Always(const HttpAnswer& answer)
{
    return [answer](const HttpExchange&) { return answer; };
}

// What a client that asks once gets, with the end of the connection.
inline std::string AskOnce(const HttpAnswer& answer, boost::system::error_code* end)
{
    const CLoopbackServer server(Always(answer));
    CRawClient client(server.Port());
    client.Ask("/");
    return client.ReadAll(end);
}

} // namespace testing_support
