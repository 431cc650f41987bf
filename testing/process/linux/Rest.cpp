#include "testing/process/linux/Rest.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <sys/syscall.h>

namespace testing_support {

namespace fs = std::filesystem;

namespace {

bool WaitsWithoutLimit(const fs::path& task)
{
    std::ifstream file(task / "syscall");
    long number = -1;
    std::string descriptors;
    std::string count;
    std::string timeout;
    return file >> number >> descriptors >> count >> timeout && number == SYS_ppoll && timeout == "0x0";
}

} // namespace

bool IsAtRest(int processId)
{
    std::error_code error;
    int tasks = 0;
    for (fs::directory_iterator each("/proc/" + std::to_string(processId) + "/task", error), end; !error && each != end;
         each.increment(error), ++tasks) {
        if (!WaitsWithoutLimit(each->path())) {
            return false;
        }
    }
    return tasks != 0 && !error;
}

} // namespace testing_support
