#include "platform/TraceChannel.h"

#include "platform/contract/linux/RefusedCall.h"
#include "platform/LastError.h"
#include "platform/Thread.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <thread>

namespace platform {
namespace {

TEST(LinuxTraceChannel, IsThereWhenTheJournalIs)
{
    std::thread([] {
        for (const auto& [error, code] : {std::pair(ENOENT, ERROR_NOT_SUPPORTED), {0, ERROR_SUCCESS}}) {
            testing_support::RefuseCall(SYS_access, static_cast<unsigned>(error));
            SetLastErrorCode(ERROR_SUCCESS);
            EXPECT_EQ(OpenTraceChannel(L"amporasrv.service", 0) == nullptr, error != 0);
            EXPECT_EQ(GetLastErrorCode(), code);
            EXPECT_EQ(OpenTraceChannel(L"amporasrv.service", CurrentProcessIdentifier()), nullptr) << "of no unit";
            EXPECT_EQ(GetLastErrorCode(), ERROR_NOT_SUPPORTED);
        }
        testing_support::RefuseCall(SYS_inotify_init1, EMFILE);
        EXPECT_EQ(OpenTraceChannel(L"amporasrv.service", 0), nullptr);
        EXPECT_EQ(GetLastErrorCode(), 4U);
    }).join();
}

} // namespace
} // namespace platform
