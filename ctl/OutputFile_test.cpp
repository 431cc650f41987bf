#include "ctl/OutputFile.h"
#include "platform/sim/Machine.h"
#include "testing/ScratchFolder.h"

#include <gmock/gmock.h>

#include <sstream>

namespace {

namespace fs = std::filesystem;

class OutputFile : public testing::Test {
protected:
    static std::string NameOf(const fs::path& file)
    {
        const std::u8string name = file.u8string();
        return {name.begin(), name.end()};
    }
    // What it throws; empty when it throws nothing.
    std::string Write(const fs::path& file, const std::string& content)
    {
        try {
            ctl::WriteOutputFile(NameOf(file), content, {m_out, m_err, m_terminal});
        } catch (const ctl::CFailure& failure) {
            return failure.what();
        }
        return {};
    }
    std::size_t FileCount() const
    {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(m_scratch.Path()), {}));
    }

    platform::sim::CMachine m_machine;
    platform::CTerminal m_terminal;
    std::ostringstream m_out;
    std::ostringstream m_err;
    testing_support::CScratchFolder m_scratch;
};

TEST_F(OutputFile, DashIsStandardOutput)
{
    EXPECT_EQ(Write("-", "text\n"), "");
    EXPECT_EQ(m_out.str(), "text\n");
}

TEST_F(OutputFile, ReplacesAFileByAnotherOne)
{
    const fs::path file = m_scratch.Path() / u8"\u96FB\u529B.svg";
    EXPECT_EQ(Write(file, "first\n"), "");
    EXPECT_EQ(testing_support::FileBytes(file), "first\n");
    // Whoever has the old file open keeps its content.
    fs::create_hard_link(file, m_scratch.Path() / "old");
    EXPECT_EQ(Write(file, "second"), "");
    EXPECT_EQ(testing_support::FileBytes(file), "second");
    EXPECT_EQ(testing_support::FileBytes(m_scratch.Path() / "old"), "first\n");
    EXPECT_EQ(FileCount(), 2U);
    EXPECT_EQ(m_out.str(), "");
}

TEST_F(OutputFile, LeavesNothingBehindWhenItCannotWrite)
{
    const fs::path missing = m_scratch.Path() / "none" / "file";
    EXPECT_EQ(Write(missing, "text"), NameOf(missing) + " cannot be written");
    EXPECT_EQ(Write(m_scratch.Path(), "text"), NameOf(m_scratch.Path()) + " cannot be written");
    EXPECT_EQ(FileCount(), 0U);
}

} // namespace
