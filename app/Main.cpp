#include "app/AmporaSrvApp.h"
#include "platform/Thread.h"

namespace {

CAmporaSrvApp g_theApp;

} // namespace

int main(int argc, char** argv)
{
    // A worker that hangs in a download must not delay the end.
    platform::EndProcess(g_theApp.Run(argc, argv));
}
