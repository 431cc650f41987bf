// Part of every program, which need not call anything: standard input, output and error are open before anything else
// happens. A program that is started without one of them would give its number to a file of its own, a lock file say,
// and everything that is written to the stream would go there.
#include <fcntl.h>
#include <unistd.h>

namespace {

// Before the constructors of static objects, which may open files.
[[gnu::constructor(101)]] void OpenMissingStreams()
{
    int descriptor = -1;
    do {
        // The lowest free number each time. Without the null device something else that holds the number.
        descriptor = ::open("/dev/null", O_RDWR);
        if (descriptor < 0) {
            descriptor = ::open("/", O_RDONLY);
        }
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor >= 0) {
        ::close(descriptor);
    }
}

} // namespace
