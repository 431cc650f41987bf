// amporactl: shows and controls AmporaSrv and the data that it keeps.
#include "ctl/CommandLine.h"
#include "ctl/Control.h"
#include "platform/Arguments.h"

#include <exception>
#include <iostream>

int main(int argc, char** argv)
{
    try {
        return RunControl(platform::ProgramArguments(argc, argv), std::cout, std::cerr);
    } catch (const std::exception& error) {
        std::cerr << "amporactl: " << error.what() << "\n";
        return ctl::kExitFailure;
    }
}
