// Opens standard input, output and error on the null device where a program is started without them. Otherwise the
// first files that it opens, lock files for example, would get their numbers, and everything written to these streams
// would go there. It is linked into every program and needs no call.
#include <fcntl.h>
#include <unistd.h>

namespace {

// Before the constructors of static objects, which may open files.
[[gnu::constructor(101)]] void OpenMissingStreams()
{
    int descriptor = -1;
    do {
        // Takes the lowest free number each time; any other file will do where there is no null device.
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
