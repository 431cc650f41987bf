#include "platform/CriticalSection.h"

#include <mutex>

namespace platform {

struct CCriticalSection::Impl {
    std::recursive_mutex mutex;
};

CCriticalSection::CCriticalSection() : m_impl(std::make_unique<Impl>()) {}

CCriticalSection::~CCriticalSection() = default;

void CCriticalSection::Enter() { m_impl->mutex.lock(); }

void CCriticalSection::Leave() { m_impl->mutex.unlock(); }

} // namespace platform
