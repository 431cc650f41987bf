#include "platform/CriticalSection.h"

#include "platform/Types.h"

namespace platform {

struct CCriticalSection::Impl {
    Impl() { ::InitializeCriticalSection(&section); }
    ~Impl() { ::DeleteCriticalSection(&section); }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    CRITICAL_SECTION section{};
};

CCriticalSection::CCriticalSection() : m_impl(std::make_unique<Impl>()) {}

CCriticalSection::~CCriticalSection() = default;

void CCriticalSection::Enter() { ::EnterCriticalSection(&m_impl->section); }

void CCriticalSection::Leave() { ::LeaveCriticalSection(&m_impl->section); }

} // namespace platform
