#include "platform/LastError.h"

#include "platform/contract/ContractTest.h"

using namespace platform;

namespace contract {
namespace {

class LastErrorContract : public ContractTest {};

TEST_F(LastErrorContract, TheCodeIsTheOneSetLast)
{
    for (const DWORD code : {50U, 14U, 0xFFFFFFFFU, 0U}) {
        SetLastErrorCode(code);
        EXPECT_EQ(GetLastErrorCode(), code);
        EXPECT_EQ(GetLastErrorCode(), code) << "reading changes nothing";
    }
}

TEST_F(LastErrorContract, EachThreadHasItsOwnWhichStartsAtZero)
{
    SetLastErrorCode(ERROR_NOT_SUPPORTED);
    DWORD atStart = 1;
    DWORD later = 0;
    CRunningThread([&] {
        atStart = GetLastErrorCode();
        SetLastErrorCode(112);
        later = GetLastErrorCode();
    }).Join();
    EXPECT_EQ(atStart, 0U);
    EXPECT_EQ(later, 112U);
    SetLastErrorCode(ERROR_NOT_SUPPORTED);
    CRunningThread([] { SetLastErrorCode(ERROR_DISK_FULL); }).Join();
    // Nothing on this thread has failed since.
    EXPECT_TRUE(LastErrorIs(ERROR_NOT_SUPPORTED));
}

} // namespace
} // namespace contract
