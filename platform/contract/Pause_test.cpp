#include "platform/Pause.h"

#include "platform/contract/ContractTest.h"

using namespace platform;

namespace contract {
namespace {

class PauseContract : public ContractTest {};

TEST_F(PauseContract, LastsAtLeastItsTime)
{
    const std::int64_t begin = ClockMs();
    Pause(0);
    Pause(60);
    EXPECT_GE(ClockMs() - begin, 60 - kEarlyMs);
}

} // namespace
} // namespace contract
