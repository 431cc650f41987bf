#include "format/DataFileReader.h"

#include "format/Catalogue.h"
#include "format/DataFilePath.h"
#include "platform/Files.h"
#include "platform/Pause.h"
#include "platform/sim/Machine.h"
#include "platform/Thread.h"
#include "testing/GoldenDataFile.h"

#include <cstring>
#include <gmock/gmock.h>

namespace {

using namespace catalogue;

using platform::sim::CMachine;
using testing_support::kGoldenDataFile;

std::vector<BYTE> WithWord(std::vector<BYTE> bytes, std::size_t offset, DWORD word)
{
    std::memcpy(bytes.data() + offset, &word, sizeof(word));
    return bytes;
}

std::vector<BYTE> Cut(std::vector<BYTE> bytes, std::size_t size)
{
    bytes.resize(size);
    return bytes;
}

bool Equal(const SYSTEMTIME& time, WORD day, WORD hour, WORD minute, WORD second, WORD milliseconds)
{
    return time.wYear == 2012 && time.wMonth == 7 && time.wDayOfWeek == 1 && time.wDay == day && time.wHour == hour &&
           time.wMinute == minute && time.wSecond == second && time.wMilliseconds == milliseconds;
}

void ExpectFault(const DataFile& file, DataFileFault fault, const CString& reason)
{
    EXPECT_EQ(file.fault, fault);
    EXPECT_EQ(file.reason, reason);
    EXPECT_EQ(file.header.version, 0U);
    EXPECT_TRUE(file.records.empty());
}

class DataFileReader : public testing::Test {
protected:
    DataFileReader() { m_machine.PutFile(DataFolder(), {.isFolder = true}); }

    // Writes the file; it is open until the last reference goes.
    platform::OutputFilePtr Write()
    {
        const platform::SecurityDescriptorPtr security = platform::InitializeDescriptor();
        platform::OutputFilePtr writer = platform::OpenForReplace(m_path, security.get());
        EXPECT_TRUE(writer);
        platform::WriteFileBytes(writer, kGoldenDataFile.data(), kGoldenDataFile.size());
        return writer;
    }

    CMachine m_machine;
    CString m_path = DataFileIn(DataFolder(), kTokyo, kActualUsage);
};

TEST(ParseDataFile, GivesHeaderAndRecords)
{
    const DataFile file = ParseDataFile(kGoldenDataFile, kActualUsage);
    EXPECT_EQ(file.fault, DataFileFault::kNone);
    EXPECT_EQ(file.reason, L"");
    EXPECT_EQ(file.header.version, 0x00010000U);
    EXPECT_EQ(file.header.dataType, 2U);
    EXPECT_EQ(file.header.count, 2U);
    EXPECT_TRUE(Equal(file.header.writeTime, 2, 13, 30, 15, 500));
    ASSERT_EQ(file.records.size(), 2U);
    EXPECT_EQ(file.records[0].ullValue, 0x0123456789ABCDEFULL);
    EXPECT_TRUE(Equal(file.records[0].stStart, 2, 12, 0, 0, 0));
    EXPECT_TRUE(Equal(file.records[0].stEnd, 2, 13, 0, 0, 0));
    EXPECT_EQ(file.records[1].ullValue, 4000U);
    EXPECT_TRUE(Equal(file.records[1].stStart, 2, 11, 0, 0, 0));
    const SYSTEMTIME noEnd{};
    EXPECT_EQ(std::memcmp(&file.records[1].stEnd, &noEnd, sizeof(noEnd)), 0);
}

TEST(ParseDataFile, AcceptsAFileWithoutRecords)
{
    const DataFile file = ParseDataFile(Cut(WithWord(kGoldenDataFile, 8, 0), 32), kActualUsage);
    EXPECT_EQ(file.fault, DataFileFault::kNone);
    EXPECT_EQ(file.header.count, 0U);
    EXPECT_TRUE(file.records.empty());
}

TEST(ParseDataFile, RefusesAFaultyFileWithItsReason)
{
    const struct {
        std::vector<BYTE> bytes;
        DataFileFault fault;
        const wchar_t* reason;
    } files[] = {
        {{}, DataFileFault::kTooShort, L"it has 0 bytes, less than a header (32 bytes)"},
        {Cut(kGoldenDataFile, 31), DataFileFault::kTooShort, L"it has 31 bytes, less than a header (32 bytes)"},
        {WithWord(kGoldenDataFile, 0, 0x00020000), DataFileFault::kForeignVersion,
         L"its format version is 0x00020000, not 0x00010000"},
        {WithWord(kGoldenDataFile, 4, 16), DataFileFault::kForeignDataType, L"it holds data type 16, not 2"},
        {WithWord(kGoldenDataFile, 12, 1), DataFileFault::kForeignReserved, L"its reserved word is 0x00000001, not 0"},
        {Cut(kGoldenDataFile, 32), DataFileFault::kTorn, L"it has 32 bytes, but its record count of 2 makes 112"},
        {Cut(kGoldenDataFile, 72), DataFileFault::kTorn, L"it has 72 bytes, but its record count of 2 makes 112"},
        {Cut(kGoldenDataFile, 111), DataFileFault::kTorn, L"it has 111 bytes, but its record count of 2 makes 112"},
        {Cut(kGoldenDataFile, 113), DataFileFault::kTorn, L"it has 113 bytes, but its record count of 2 makes 112"},
        {WithWord(kGoldenDataFile, 8, 0xFFFFFFFF), DataFileFault::kTorn,
         L"it has 112 bytes, but its record count of 4294967295 makes 171798691832"},
    };
    for (const auto& file : files) {
        SCOPED_TRACE(testing::PrintToString(file.reason));
        ExpectFault(ParseDataFile(file.bytes, kActualUsage), file.fault, file.reason);
    }
}

TEST_F(DataFileReader, ReportsAMissingFileWithOrWithoutItsFolder)
{
    ExpectFault(ReadDataFile(m_path, kActualUsage), DataFileFault::kMissing, L"there is no such file");
    m_machine.RemoveFile(DataFolder());
    ExpectFault(ReadDataFile(m_path, kActualUsage), DataFileFault::kMissing, L"there is no such file");
}

TEST_F(DataFileReader, ReportsAFileUntilItsWriterHasClosedIt)
{
    platform::OutputFilePtr writer = Write();
    ExpectFault(ReadDataFile(m_path, kActualUsage), DataFileFault::kHeldByWriter,
                L"it is being written by another program");
    EXPECT_EQ(m_machine.ElapsedMs(), kHeldLimitMs);
    writer.reset();
    EXPECT_EQ(ReadDataFile(m_path, kActualUsage).records.size(), 2U);
    EXPECT_EQ(m_machine.ElapsedMs(), kHeldLimitMs);
}

TEST_F(DataFileReader, WaitsForAWriterThatClosesTheFileInTime)
{
    platform::OutputFilePtr writer = Write();
    const auto close = [](void* held) -> DWORD {
        platform::Pause(kHeldLimitMs - 1);
        static_cast<platform::OutputFilePtr*>(held)->reset();
        return 0;
    };
    const platform::ThreadPtr thread = platform::StartThread(close, &writer);
    EXPECT_EQ(ReadDataFile(m_path, kActualUsage).records.size(), 2U);
    EXPECT_EQ(platform::WaitForThread(thread, INFINITE), WAIT_OBJECT_0);
}

TEST_F(DataFileReader, ReportsWhatIsNoFile)
{
    m_machine.PutFile(m_path, {.isFolder = true});
    ExpectFault(ReadDataFile(m_path, kActualUsage), DataFileFault::kUnreadable, L"it cannot be read (error 5)");
}

TEST_F(DataFileReader, TakesAFileBeyondTheLargestSizeAsTorn)
{
    // Consistent in itself, but longer than anything the program writes.
    std::vector<BYTE> bytes = WithWord(Cut(kGoldenDataFile, 32), 8, kMaxDataFileRecords + 1);
    bytes.resize(kMaxDataFileBytes + sizeof(_AmporaOneData));
    m_machine.PutFile(m_path, {.bytes = std::move(bytes)});
    EXPECT_EQ(ReadDataFile(m_path, kActualUsage).fault, DataFileFault::kTorn);
}

} // namespace
