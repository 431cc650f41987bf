// System calls that fail, on purpose.
#pragma once

#include <array>
#include <cstddef>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <optional>
#include <sys/prctl.h>

namespace testing_support {

// From here on a system call of the calling thread, and of the threads that it starts, fails with this errno; for good.
// second: only with this second argument.
inline void RefuseCall(unsigned call, unsigned error, std::optional<unsigned> second = {})
{
    const auto load = [](std::size_t offset) {
        return sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<unsigned>(offset));
    };
    const auto passUnless = [](unsigned value, unsigned char skip) {
        return sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, skip);
    };
    const unsigned argument = offsetof(seccomp_data, args) + sizeof(seccomp_data::args[0]);
    std::array<sock_filter, 6> filter = {load(offsetof(seccomp_data, nr)),
                                         passUnless(call, 3),
                                         load(second ? argument : offsetof(seccomp_data, nr)),
                                         passUnless(second.value_or(call), 1),
                                         BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
                                         BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const sock_fprog program = {filter.size(), filter.data()};
    ASSERT_EQ(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
    ASSERT_EQ(::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0);
}

} // namespace testing_support
