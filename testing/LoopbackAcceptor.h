// What the servers of tests have in common.
#pragma once

#include "platform/Types.h"

#include <boost/asio/awaitable.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <functional>
#include <thread>
#include <utility>

namespace testing_support {

// Listens on a free port of 127.0.0.1 and serves any number of connections at a time on one thread of its own.
class CLoopbackAcceptor {
public:
    using Serve = std::function<boost::asio::awaitable<void>(boost::asio::ip::tcp::socket)>;

    // serve: runs on that thread once for each connection; must not throw. Throws boost::system::system_error when it
    // cannot listen.
    explicit CLoopbackAcceptor(Serve serve) : m_serve(std::move(serve))
    {
        boost::asio::co_spawn(m_io, Accept(), boost::asio::detached);
        m_thread = std::thread([this] { m_io.run(); });
    }

    // Drops every connection.
    ~CLoopbackAcceptor()
    {
        m_io.stop();
        m_thread.join();
    }

    CLoopbackAcceptor(const CLoopbackAcceptor&) = delete;
    CLoopbackAcceptor& operator=(const CLoopbackAcceptor&) = delete;

    WORD Port() const { return m_acceptor.local_endpoint().port(); }
    // Where the thread runs.
    boost::asio::io_context& Context() { return m_io; }

private:
    boost::asio::awaitable<void> Accept()
    {
        for (;;) {
            boost::asio::ip::tcp::socket socket = co_await m_acceptor.async_accept(boost::asio::use_awaitable);
            boost::asio::co_spawn(m_io, m_serve(std::move(socket)), boost::asio::detached);
        }
    }

    const Serve m_serve;
    boost::asio::io_context m_io{1};
    boost::asio::ip::tcp::acceptor m_acceptor{m_io, {boost::asio::ip::address_v4::loopback(), 0}};
    std::thread m_thread;
};

} // namespace testing_support
