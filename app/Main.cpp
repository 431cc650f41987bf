#include "app/AmporaSrvApp.h"
#include "platform/Arguments.h"
#include "platform/Thread.h"

#include <new>

namespace {

CAmporaSrvApp g_theApp;

int Run(int argc, const char* const* argv)
{
    try {
        return g_theApp.Run(platform::ProgramArguments(argc, argv));
    } catch (const std::bad_alloc&) {
        return 1;
    }
}

} // namespace

int main(int argc, char** argv)
{
    // A worker that hangs in a download must not delay the end.
    platform::EndProcess(Run(argc, argv));
}
