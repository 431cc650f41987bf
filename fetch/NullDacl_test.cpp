#include "fetch/NullDacl.h"

#include "platform/Files.h"
#include "testing/MachineTest.h"
#include "testing/Trace.h"

#include <gmock/gmock.h>

namespace {

using platform::sim::Call;
using testing::ElementsAre;
using testing::IsEmpty;
using testing_support::TraceLine;
using testing_support::TraceMessages;

constexpr CTraceLog kLog(L"Test::Caller");

class NullDacl : public testing_support::CMachineTest {};

TEST_F(NullDacl, IsGivenSilently)
{
    const platform::SecurityDescriptorPtr descriptor = MakeNullDacl(kLog);
    ASSERT_TRUE(descriptor);
    ASSERT_TRUE(platform::MakeFolder(L"folder", descriptor.get()));
    EXPECT_TRUE(m_machine.FindFile(L"folder")->nullDacl);
    EXPECT_THAT(TraceMessages(), IsEmpty());
}

TEST_F(NullDacl, FailedInitializationIsTracedUnderTheCallersName)
{
    m_machine.FailCall(Call::kInitializeDescriptor, 1, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(MakeNullDacl(kLog));
    EXPECT_THAT(TraceMessages(), ElementsAre(TraceLine{"ERR", "Test::Caller", "InitializeSecurityDescriptor Fail."}));
    EXPECT_EQ(m_machine.CallCount(Call::kSetNullDacl), 0U);
}

TEST_F(NullDacl, FailedDaclIsTracedUnderTheCallersName)
{
    m_machine.FailCall(Call::kSetNullDacl, 1, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(MakeNullDacl(kLog));
    EXPECT_THAT(TraceMessages(), ElementsAre(TraceLine{"ERR", "Test::Caller", "SetSecurityDescriptorDacl Fail."}));
}

} // namespace
