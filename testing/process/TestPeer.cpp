// test_peer: another process of a test's session, on a native backend. Takes one command a line from standard input and
// answers each with a line, "1" for success or "0". NAME and FILE are UTF-8.
//
//   acquire NAME   takes the mutex at once, creating it when there is none
//   release NAME   gives it back and closes it
//   set NAME       sets the event, unless nobody has it
//   window NAME    makes a window of that class, with a loop that nobody runs
//   find NAME      finds the window of that class
//   post NAME MESSAGE WPARAM LPARAM
//                  finds it and posts a message to it; the numbers are decimal
//   hold FILE      opens an existing file for reading, as a reader of the data files does
//   drop FILE      closes it
//   online FLAGS   whether the system is on line with exactly these flags; 0: not on line
//
// Ends, with what it has taken, when standard input closes.
#include "platform/Http.h"
#include "platform/LastError.h"
#include "platform/Sync.h"
#include "platform/Text.h"
#include "platform/Window.h"
#include "testing/process/HeldFile.h"

#include <functional>
#include <iostream>
#include <map>
#include <sstream>
#include <string>

using namespace platform;

namespace {

std::map<std::string, WaitHandle>& Mutexes()
{
    static std::map<std::string, WaitHandle> mutexes;
    return mutexes;
}

bool Acquire(const std::string& name)
{
    const WaitHandle mutex = CreateNamedMutex(DecodeUtf8(name).c_str(), FALSE, nullptr);
    if (!mutex || WaitForOne(mutex, 0, FALSE) != WAIT_OBJECT_0) {
        return false;
    }
    Mutexes()[name] = mutex;
    return true;
}

bool Release(const std::string& name)
{
    const auto taken = Mutexes().extract(name);
    return taken && ReleaseOwnedMutex(taken.mapped());
}

bool Set(const std::string& name) { return SetNamedEvent(OpenNamedEvent(DecodeUtf8(name).c_str())); }

class CNobody : public CMessageReceiver {
public:
    LRESULT ReceiveMessage(CWindow&, UINT, WPARAM, LPARAM) override { return 0; }
};

bool MakeWindow(const std::string& name)
{
    static CNobody nobody;
    static WindowPtr window;
    const CString className = DecodeUtf8(name);
    RegisterDialogClass(className.c_str());
    window = CreateDialogWindow(0, className.c_str(), nobody);
    return window != nullptr;
}

bool Find(const std::string& className) { return FindWindowOfClass(DecodeUtf8(className).c_str()) != nullptr; }

// nameAndNumbers: as they follow the command.
bool Post(const std::string& nameAndNumbers)
{
    std::istringstream input(nameAndNumbers);
    std::string className;
    UINT message = 0;
    WPARAM wParam = 0;
    LPARAM lParam = 0;
    return input >> className >> message >> wParam >> lParam &&
           PostToWindow(FindWindowOfClass(DecodeUtf8(className).c_str()), message, wParam, lParam);
}

std::map<std::string, std::shared_ptr<const void>>& HeldFiles()
{
    static std::map<std::string, std::shared_ptr<const void>> files;
    return files;
}

bool Hold(const std::string& path)
{
    std::shared_ptr<const void>& file = HeldFiles()[path];
    file = testing_support::HoldFileOpen(path);
    return file != nullptr;
}

bool Drop(const std::string& path) { return HeldFiles().erase(path) != 0; }

bool IsOnline(const std::string& expected)
{
    DWORD flags = 0;
    const bool isOnline = QueryConnectedState(&flags);
    return isOnline == (flags != 0) && flags == std::stoul(expected);
}

bool Do(const std::string& command, const std::string& argument)
{
    static const std::map<std::string, std::function<bool(const std::string&)>> words = {
        {"acquire", Acquire}, {"release", Release}, {"set", Set},   {"window", MakeWindow}, {"find", Find},
        {"post", Post},       {"hold", Hold},       {"drop", Drop}, {"online", IsOnline}};
    const auto word = words.find(command);
    return word != words.end() && word->second(argument);
}

} // namespace

int main()
{
    for (std::string line; std::getline(std::cin, line);) {
        const std::size_t space = line.find(' ');
        const bool done = space != std::string::npos && Do(line.substr(0, space), line.substr(space + 1));
        std::cout << (done ? "1" : "0") << std::endl;
    }
}
