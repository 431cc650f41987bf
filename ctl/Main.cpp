// amporactl: shows what the data files hold.
#include "ctl/Control.h"
#include "platform/Text.h"

#include <exception>
#include <iostream>

int main(int argc, char** argv)
{
    try {
        std::vector<CString> arguments;
        for (int i = 1; i < argc; ++i) {
            arguments.push_back(platform::DecodeUtf8(argv[i]));
        }
        return RunControl(arguments, std::cout, std::cerr);
    } catch (const std::exception& error) {
        std::cerr << "amporactl: " << error.what() << "\n";
        return kExitFailure;
    }
}
