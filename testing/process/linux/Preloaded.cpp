// A library that tests load into the Linux program before its own (LD_PRELOAD). Two variables of the environment, which
// nothing else reads, say what it does:
//
//   AMPORA_FAILING_MEMORY=FILE  Allocations fail, whoever in the process asks for them. FILE holds three numbers of
//                               eight bytes: how many allocations there were, the number of the one that fails (0:
//                               none), and how many from it on fail. It may be changed at any time. Counted is from
//                               when the libraries have been loaded.
//   AMPORA_TRACER=COMMAND       When the libraries have been loaded, a shell runs this command, and the program waits
//                               until something traces it. The command knows it as $PPID.
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): these are the C library's
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

struct Orders {
    std::atomic<std::uint64_t> count;
    std::atomic<std::uint64_t> first;
    std::atomic<std::uint64_t> length;
};

constinit Orders* g_orders = nullptr;

bool Fails()
{
    if (g_orders == nullptr) {
        return false;
    }
    const std::uint64_t number = ++g_orders->count;
    const std::uint64_t first = g_orders->first;
    const bool fails = first != 0 && number >= first && number - first < g_orders->length;
    if (fails) {
        errno = ENOMEM;
    }
    return fails;
}

Orders* OpenOrders(const char* path)
{
    const int file = ::open(path, O_RDWR | O_CLOEXEC);
    void* const orders = ::mmap(nullptr, sizeof(Orders), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ::close(file);
    if (orders == MAP_FAILED) {
        std::abort();
    }
    return static_cast<Orders*>(orders);
}

bool IsTraced()
{
    constexpr std::string_view kNobody = "TracerPid:\t0\n";
    std::array<char, 4096> status = {};
    const int file = ::open("/proc/self/status", O_RDONLY | O_CLOEXEC);
    const ssize_t size = ::read(file, status.data(), status.size());
    ::close(file);
    return size > 0 &&
           std::string_view(status.data(), static_cast<std::size_t>(size)).find(kNobody) == std::string::npos;
}

void AwaitTracer(const char* command)
{
    ::prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY);
    if (::fork() == 0) {
        ::unsetenv("LD_PRELOAD");
        ::execl("/bin/sh", "sh", "-c", command, nullptr);
        ::_exit(1);
    }
    for (int attempt = 0; !IsTraced(); ++attempt) {
        if (attempt == 25'000) { // some 5 s
            std::abort();
        }
        ::usleep(200);
    }
    ::usleep(2000); // until it has the program stopped and let it go on
}

__attribute__((constructor)) void Begin()
{
    if (const char* const path = std::getenv("AMPORA_FAILING_MEMORY")) {
        g_orders = OpenOrders(path);
    }
    if (const char* const command = std::getenv("AMPORA_TRACER")) {
        AwaitTracer(command);
    }
}

} // namespace

extern "C" {

void* malloc(std::size_t size) { return Fails() ? nullptr : __libc_malloc(size); }

void* calloc(std::size_t count, std::size_t size) { return Fails() ? nullptr : __libc_calloc(count, size); }

void* realloc(void* block, std::size_t size) { return Fails() ? nullptr : __libc_realloc(block, size); }

void* memalign(std::size_t alignment, std::size_t size) { return Fails() ? nullptr : __libc_memalign(alignment, size); }

void* aligned_alloc(std::size_t alignment, std::size_t size) { return memalign(alignment, size); }

int posix_memalign(void** block, std::size_t alignment, std::size_t size)
{
    *block = memalign(alignment, size);
    return *block == nullptr ? ENOMEM : 0;
}

} // extern "C"
