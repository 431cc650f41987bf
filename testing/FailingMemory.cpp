#include "testing/FailingMemory.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

thread_local unsigned g_allocationsLeft = 0; // until the failing one; 0: none fails
thread_local bool g_hasFailed = false;
std::atomic<testing_support::CFailingMemory::Chooser> g_fails = nullptr;

} // namespace

namespace testing_support {

CFailingMemory::CFailingMemory(unsigned nth)
{
    g_allocationsLeft = nth;
    g_hasFailed = false;
}

CFailingMemory::CFailingMemory(Chooser fails) { g_fails = fails; }

CFailingMemory::~CFailingMemory()
{
    g_allocationsLeft = 0;
    g_fails = nullptr;
}

bool CFailingMemory::HasFailed() const { return g_hasFailed; }

} // namespace testing_support

// Replace the whole program's.
void* operator new(std::size_t size)
{
    if (g_allocationsLeft != 0 && --g_allocationsLeft == 0) {
        g_hasFailed = true;
        throw std::bad_alloc();
    }
    if (const auto fails = g_fails.load(); fails != nullptr && fails()) {
        throw std::bad_alloc();
    }
    if (void* memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }

void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
