#include "server/live/StopSignal.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <thread>

namespace reportd {

struct CStopSignal::Impl {
    std::function<void()> onStop;
    mutable std::mutex lock;
    std::condition_variable come;
    bool hasCome = false;
    boost::asio::io_context io;
    boost::asio::signal_set signals{io, SIGINT, SIGTERM};
    std::thread thread;
};

CStopSignal::CStopSignal(std::function<void()> onStop) : m_impl(std::make_unique<Impl>())
{
    m_impl->onStop = std::move(onStop);
    m_impl->signals.async_wait([impl = m_impl.get()](const boost::system::error_code& error, int) {
        if (error) {
            return; // cancelled
        }
        {
            const std::lock_guard guard(impl->lock);
            impl->hasCome = true;
        }
        impl->come.notify_all();
        if (impl->onStop) {
            impl->onStop();
        }
    });
    m_impl->thread = std::thread([impl = m_impl.get()] { impl->io.run(); });
}

CStopSignal::~CStopSignal()
{
    m_impl->io.stop();
    m_impl->thread.join();
}

bool CStopSignal::HasCome() const
{
    const std::lock_guard guard(m_impl->lock);
    return m_impl->hasCome;
}

bool CStopSignal::WaitFor(std::chrono::milliseconds time)
{
    std::unique_lock guard(m_impl->lock);
    return m_impl->come.wait_for(guard, time, [this] { return m_impl->hasCome; });
}

} // namespace reportd
