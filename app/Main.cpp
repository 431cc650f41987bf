#include "app/AmporaSrvApp.h"
#include "platform/Arguments.h"
#include "platform/Thread.h"

namespace {

CAmporaSrvApp g_theApp;

} // namespace

int main(int argc, char** argv)
{
    // A worker whose download hangs must not hold up the end.
    platform::EndProcess(g_theApp.Run(platform::ProgramArguments(argc, argv)));
}
