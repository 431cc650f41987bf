// The store's file: made, refused, brought up to date, damaged, replaced.
#include "server/store/Database.h"
#include "server/store/Schema.h"
#include "server/store/StoreSource.h"
#include "testing/store/Polls.h"
#include "testing/store/StoreTest.h"

#include <fstream>

namespace reportd {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing_support::AppendPoll;
using testing_support::FileBytes;
using testing_support::LastPoll;

using Access = CFigureStore::Access;

class StoreFile : public StoreTest {
protected:
    // A store of more than ten pages, which nobody has open.
    void MakeStore()
    {
        const auto store = OpenStore();
        for (std::uint64_t poll = 1; poll <= kPolls; ++poll) {
            AppendPoll(*store, poll);
        }
    }

    // Carries out SQL on the file as another program would.
    void Execute(const char* sql) const { CDatabase(File(), true).Execute(sql); }

    std::int64_t ReadInteger(const char* sql) const { return CDatabase(File(), true).ReadInteger(sql); }

    // Overwrites the file from an offset on.
    void Damage(std::size_t offset) const
    {
        const std::size_t size = fs::file_size(File());
        std::fstream file(File(), std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(offset));
        file << std::string(size - offset, '\xA5');
    }

    // The text of the error that opening must end with.
    std::string OpenError(Access access = Access::kReadWrite)
    {
        try {
            OpenStore(access);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "no error";
    }

    // The files that were set aside, without logs.
    std::vector<std::string> AsideNames() const
    {
        std::vector<std::string> names = Names();
        std::erase_if(names, [](const std::string& name) {
            return name.find(".damaged-") == std::string::npos || name.ends_with("-wal") || name.ends_with("-shm");
        });
        return names;
    }

    // One damaged file was set aside and told of, and there is a new, empty store that works.
    void ExpectSetAside(CFigureStore& store) const
    {
        const std::vector<std::string> names = AsideNames();
        ASSERT_THAT(names, ElementsAre(testing::MatchesRegex(R"(figures\.sqlite\.damaged-[0-9]{8}-[0-9]{6})")));
        ASSERT_THAT(m_told.Texts(), ElementsAre(HasSubstr(names.front())));
        EXPECT_EQ(store.LoadPollState(kSite), PollState{});
        EXPECT_TRUE(store.IsReady());
    }

    static constexpr std::uint64_t kPolls = 50;
};

TEST_F(StoreFile, IsMadeInAFolderForItsOwnerAlone)
{
    const fs::path file = m_folder.Path() / "a" / "b" / "figures.sqlite";
    CFigureStore store(file, Access::kReadWrite, {});
    AppendPoll(store, 1);
    EXPECT_EQ(fs::status(file.parent_path()).permissions(), fs::perms::owner_all);
}

TEST_F(StoreFile, LeavesTheRightsOfAFolderThatIsThere)
{
    constexpr auto kRights = fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec;
    fs::permissions(m_folder.Path(), kRights);
    OpenStore();
    EXPECT_EQ(fs::status(m_folder.Path()).permissions(), kRights);
}

TEST_F(StoreFile, CannotBeMadeBelowAFile)
{
    const fs::path place = m_folder.Write("file", "") / "folder";
    EXPECT_THAT([&] { CFigureStore(place / "figures.sqlite", Access::kReadWrite, {}); },
                testing::ThrowsMessage<std::runtime_error>(HasSubstr(place.string())));
}

TEST_F(StoreFile, IsNotMadeByAReader)
{
    EXPECT_THAT(OpenError(Access::kReadOnly), HasSubstr(File().string() + ": unable to open database file"));
    EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(StoreFile, MayBeEmpty)
{
    m_folder.Write("figures.sqlite", "");
    AppendPoll(*OpenStore(), 1);
    EXPECT_EQ(LastPoll(*OpenStore()), 1U);
    EXPECT_THAT(m_told.Texts(), IsEmpty());
}

TEST_F(StoreFile, IsRefusedUntouchedWhenItIsNewer)
{
    MakeStore();
    Execute("PRAGMA user_version = 99");
    OpenError(); // what the write-ahead log holds was not ours to merge
    Execute("PRAGMA wal_checkpoint(TRUNCATE)");
    const std::string bytes = FileBytes(File());
    EXPECT_THAT(OpenError(), HasSubstr("has version 99; this program knows versions up to "));
    EXPECT_THAT(OpenError(Access::kReadOnly), HasSubstr("has version 99"));
    EXPECT_EQ(FileBytes(File()), bytes);
    EXPECT_THAT(AsideNames(), IsEmpty());
}

TEST_F(StoreFile, IsRefusedUntouchedWhenItBelongsToAnotherProgram)
{
    Execute("CREATE TABLE letters(text); INSERT INTO letters VALUES('dear')");
    const std::string bytes = FileBytes(File());
    EXPECT_THAT(OpenError(), HasSubstr("is the database of another program"));
    EXPECT_THAT(OpenError(Access::kReadOnly), HasSubstr("is the database of another program"));
    EXPECT_EQ(FileBytes(File()), bytes);
    EXPECT_THAT(AsideNames(), IsEmpty());
}

// The schema as version 1 made it, with a figure.
constexpr const char* kVersion1 = R"sql(
CREATE TABLE day(site INTEGER NOT NULL, day INTEGER NOT NULL, revision INTEGER NOT NULL CHECK(revision >= 0),
    published INTEGER NOT NULL, observed INTEGER NOT NULL, source INTEGER NOT NULL, kinds INTEGER NOT NULL,
    PRIMARY KEY(site, day)) STRICT, WITHOUT ROWID;
CREATE TABLE five_minute(site INTEGER NOT NULL, day INTEGER NOT NULL, slot INTEGER NOT NULL CHECK(slot BETWEEN 0 AND 287),
    published INTEGER NOT NULL, observed INTEGER NOT NULL, instant INTEGER CHECK(instant >= 0),
    solar INTEGER CHECK(solar >= 0), wind INTEGER CHECK(wind >= 0), PRIMARY KEY(site, day, slot, published, observed),
    FOREIGN KEY(site, day) REFERENCES day ON DELETE CASCADE) STRICT, WITHOUT ROWID;
CREATE TABLE hourly(site INTEGER NOT NULL, day INTEGER NOT NULL, slot INTEGER NOT NULL CHECK(slot BETWEEN 0 AND 23),
    published INTEGER NOT NULL, observed INTEGER NOT NULL, actual INTEGER CHECK(actual >= 0),
    estimated INTEGER CHECK(estimated >= 0), supply INTEGER CHECK(supply >= 0),
    PRIMARY KEY(site, day, slot, published, observed),
    FOREIGN KEY(site, day) REFERENCES day ON DELETE CASCADE) STRICT, WITHOUT ROWID;
CREATE TABLE peak(site INTEGER NOT NULL, day INTEGER NOT NULL, slot INTEGER NOT NULL CHECK(slot = 0),
    published INTEGER NOT NULL, observed INTEGER NOT NULL, supply INTEGER CHECK(supply >= 0),
    supply_minute INTEGER CHECK(supply_minute BETWEEN 0 AND 1439), demand INTEGER CHECK(demand >= 0),
    demand_minute INTEGER CHECK(demand_minute BETWEEN 0 AND 1439), PRIMARY KEY(site, day, slot, published, observed),
    FOREIGN KEY(site, day) REFERENCES day ON DELETE CASCADE) STRICT, WITHOUT ROWID;
INSERT INTO day VALUES(3, 20563, 77, 1776645000, 1776645120, 20563, 3);
INSERT INTO five_minute VALUES(3, 20563, 114, 1776645000, 1776645120, 32100, NULL, NULL);
INSERT INTO hourly VALUES(3, 20563, 8, 1776645000, 1776645120, 31000, NULL, NULL);
PRAGMA application_id = 0x416D7072;
PRAGMA user_version = 1;
)sql";

TEST_F(StoreFile, IsBroughtUpToDateFromVersion1)
{
    Execute(kVersion1);
    EXPECT_THAT(OpenError(Access::kReadOnly), HasSubstr("was made by an older version of this program"));
    const auto store = OpenStore();
    EXPECT_THAT(store->Read(kSite, Series::kInstantUsage, kDate, {}),
                ElementsAre(ReportRecord{At(9, 30), At(9, 35), 32100}));
    EXPECT_THAT(store->Read(kSite, Series::kActualUsage, kDate, {}),
                ElementsAre(ReportRecord{At(8, 0), At(9, 0), 31000}));
    const DayState state = store->State(kSite, kDate);
    EXPECT_EQ(state.revision, 77U);
    EXPECT_EQ(state.published, At(9, 30));
    EXPECT_EQ(state.observed, At(9, 32));
    store->SavePollState(kSite, {.failures = 2});
    EXPECT_EQ(OpenStore(Access::kReadOnly)->LoadPollState(kSite).failures, 2U);
    EXPECT_EQ(ReadInteger("PRAGMA user_version"), SchemaVersion());
}

TEST_F(StoreFile, KeepsItsVersionWhenItCannotBeBroughtUpToDate)
{
    Execute(kVersion1);
    Execute("CREATE TABLE poll_state(other INTEGER) STRICT");
    EXPECT_THAT(OpenError(), HasSubstr("table poll_state already exists"));
    EXPECT_EQ(ReadInteger("PRAGMA user_version"), 1);
    EXPECT_EQ(ReadInteger("SELECT instant FROM five_minute"), 32100);
}

TEST_F(StoreFile, IsSetAsideWhenItIsNoDatabase)
{
    const std::string garbage = std::string(10'000, 'x');
    m_folder.Write("figures.sqlite", garbage);
    EXPECT_THAT(OpenError(Access::kReadOnly), HasSubstr("file is not a database"));
    const auto store = OpenStore();
    ExpectSetAside(*store);
    EXPECT_THAT(m_told.Texts().front(), HasSubstr("file is not a database"));
    EXPECT_EQ(FileBytes(m_folder.Path() / AsideNames().front()), garbage);
    AppendPoll(*store, 1);
    EXPECT_EQ(LastPoll(*OpenStore()), 1U);
}

TEST_F(StoreFile, IsSetAsideWhenItsHeaderIsDamaged)
{
    MakeStore();
    std::string bytes = FileBytes(File());
    bytes.replace(0, 16, std::string(16, '\0'));
    m_folder.Write("figures.sqlite", bytes);
    ExpectSetAside(*OpenStore());
    EXPECT_EQ(FileBytes(m_folder.Path() / AsideNames().front()), bytes);
}

TEST_F(StoreFile, IsSetAsideWhenItIsCutInTheMiddle)
{
    MakeStore();
    fs::resize_file(File(), fs::file_size(File()) / 2);
    const std::string bytes = FileBytes(File());
    ExpectSetAside(*OpenStore());
    EXPECT_EQ(FileBytes(m_folder.Path() / AsideNames().front()), bytes);
}

TEST_F(StoreFile, IsSetAsideWithItsLogs)
{
    OpenStore();
    const std::string bytes(5000, 'x');
    m_folder.Write("figures.sqlite", bytes);
    m_folder.Write("figures.sqlite-wal", "log");
    m_folder.Write("figures.sqlite-shm", "index");
    ExpectSetAside(*OpenStore());
    EXPECT_EQ(FileBytes(m_folder.Path() / (AsideNames().front() + "-wal")), "log");
    EXPECT_TRUE(fs::exists(m_folder.Path() / (AsideNames().front() + "-shm")));
}

TEST_F(StoreFile, IsSetAsideWhenAPageProvesDamagedInAWrite)
{
    MakeStore();
    const auto store = OpenStore();
    Damage(4096);
    AppendPoll(*store, 1);
    ExpectSetAside(*store);
    EXPECT_EQ(LastPoll(*store), 1U);
}

TEST_F(StoreFile, KeepsADamagedPageFromAReaderOnly)
{
    MakeStore();
    const auto writer = OpenStore();
    CStoreSource reader(File());
    Damage(4096);
    EXPECT_THROW(reader.Read(kSite, Series::kSolar, kDate, At(12, 0), {}), std::runtime_error);
    EXPECT_FALSE(reader.IsReady());
    EXPECT_THAT(AsideNames(), IsEmpty());
    AppendPoll(*writer, 1);
    EXPECT_TRUE(reader.IsReady());
    EXPECT_EQ(reader.Read(kSite, Series::kSolar, kDate, At(12, 0), {}).size(), 1U);
}

TEST_F(StoreFile, IsSetAsideUnderAnotherNameEachTime)
{
    constexpr std::size_t kTimes = 5; // several within one second
    for (std::size_t time = 0; time < kTimes; ++time) {
        m_folder.Write("figures.sqlite", std::string(1000, 'x'));
        OpenStore();
    }
    EXPECT_EQ(AsideNames().size(), kTimes);
    EXPECT_EQ(m_told.Texts().size(), kTimes);
}

TEST_F(StoreFile, EveryConnectionUsesTheFileThatReplacesIt)
{
    const auto writer = OpenStore();
    AppendPoll(*writer, 1);
    CStoreSource reader(File());
    EXPECT_EQ(reader.Read(kSite, Series::kSolar, kDate, At(12, 0), {}).size(), 1U);
    fs::rename(File(), m_folder.Path() / "moved");
    EXPECT_FALSE(reader.IsReady());
    EXPECT_THROW(reader.State(kSite, kDate, At(12, 0)), std::runtime_error);
    EXPECT_EQ(LastPoll(*writer), 0U);
    EXPECT_THAT(m_told.Texts(), ElementsAre(HasSubstr("was moved or deleted")));
    AppendPoll(*writer, 1);
    AppendPoll(*writer, 2);
    EXPECT_EQ(reader.Read(kSite, Series::kSolar, kDate, At(12, 0), {}).size(), 2U);
}

TEST_F(StoreFile, IsReadByTheSourceOfLiveData)
{
    const auto writer = OpenStore();
    CStoreSource source(File());
    EXPECT_EQ(source.Name(), "live");
    EXPECT_TRUE(source.IsReady());
    EXPECT_EQ(source.State(kSite, kDate, At(9, 0)).revision, 0U);
    writer->Append(kSite, kDate, {MakeFigure(Series::kInstantUsage, At(9, 0), 5)}, At(9, 5), At(9, 7));
    writer->Append(kSite, kDate, {MakeFigure(Series::kInstantUsage, At(9, 0), 6)}, At(9, 10), At(9, 12));
    EXPECT_THAT(ValuesOf(source.Read(kSite, Series::kInstantUsage, kDate, At(10, 0), {})), ElementsAre(6));
    EXPECT_THAT(ValuesOf(source.Read(kSite, Series::kInstantUsage, kDate, At(10, 0), At(9, 8))), ElementsAre(5));
    EXPECT_EQ(source.Newest(kSite, Series::kInstantUsage), At(9, 0));
    const DayState state = source.State(kSite, kDate, At(10, 0));
    EXPECT_EQ(state.revision, writer->State(kSite, kDate).revision);
    EXPECT_EQ(state.published, At(9, 10));
    EXPECT_EQ(state.observed, At(9, 12));
}

} // namespace
} // namespace reportd
