#include "platform/Program.h"

#include "platform/contract/ContractTest.h"

using namespace platform;

namespace contract {
namespace {

class ProgramContract : public ContractTest {};

TEST_F(ProgramContract, StartedProgramRunsUntilItsEnd)
{
    const CString path = FindProgram(kShortProgram);
    ASSERT_FALSE(path.empty());
    constexpr std::int64_t kSecondsOff = 2;
    const std::int64_t begin = ReadTime();
    const ProgramPtr program = StartProgram(path);
    ASSERT_NE(program, nullptr) << GetLastErrorCode();
    EXPECT_NE(ProcessIdentifierOf(program), CurrentProcessIdentifier());
    const std::int64_t start = StartTimeOf(program);
    EXPECT_EQ(WaitForProgramEnd(program, kLongMs), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForProgramEnd(program, 0), WAIT_OBJECT_0) << "it does not run again";
    EXPECT_GE(start, begin - kSecondsOff);
    EXPECT_LE(start, ReadTime() + kSecondsOff);
}

TEST_F(ProgramContract, ProgramThatIsNotThereIsNeitherFoundNorStarted)
{
    EXPECT_EQ(FindProgram(L"no_such_program"), L"");
    EXPECT_TRUE(
        FailsWith(ERROR_FILE_NOT_FOUND, [] { return StartProgram(FindProgram(kShortProgram) + L"_not") != nullptr; }));
}

TEST_F(ProgramContract, WaitingForNoProgramFails)
{
    SetLastErrorCode(0);
    EXPECT_EQ(WaitForProgramEnd(nullptr, 0), WAIT_FAILED);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
}

} // namespace
} // namespace contract
