#include "platform/linux/ErrorCode.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <utility>

namespace platform::linux {
namespace {

TEST(LinuxErrorCode, ErrorsHaveTheNumbersOfWindows)
{
    const std::pair<int, DWORD> wanted[] = {
        {0, 0},        {ENOENT, 2},         {ENOTDIR, 3},   {EMFILE, 4},    {ENFILE, 4},       {EACCES, 5},
        {EPERM, 5},    {EISDIR, 5},         {ELOOP, 5},     {ENXIO, 5},     {EBADF, 6},        {ENOMEM, 14},
        {EROFS, 19},   {EBUSY, 32},         {ETXTBSY, 32},  {EINVAL, 87},   {ENOSPC, 112},     {EDQUOT, 112},
        {EEXIST, 183}, {ENAMETOOLONG, 206}, {EAGAIN, 1450}, {ENOLCK, 1450}, {ETIMEDOUT, 1460},
    };
    for (const auto& [error, code] : wanted) {
        EXPECT_EQ(ErrorCodeOf(error), code) << error;
    }
    EXPECT_EQ(ErrorCodeOf(EPIPE), 31U) << "one that has no number of its own";
}

} // namespace
} // namespace platform::linux
