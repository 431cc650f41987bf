// Connections, statements and transactions.
#include "testing/store/StoreTest.h"

namespace reportd {
namespace {

class Database : public StoreTest {
protected:
    void SetUp() override { m_database.Execute("CREATE TABLE entry(number INTEGER, text TEXT)"); }

    std::int64_t Count() { return m_database.ReadInteger("SELECT count(*) FROM entry"); }

    CDatabase m_database{File(), true};
};

TEST_F(Database, UndoesATransactionThatIsNotCommitted)
{
    {
        const CTransaction transaction(m_database);
        m_database.Execute("INSERT INTO entry VALUES(1, 'a')");
        EXPECT_EQ(Count(), 1);
    }
    EXPECT_EQ(Count(), 0);
    CTransaction next(m_database);
    m_database.Execute("INSERT INTO entry VALUES(2, 'b')");
    next.Commit();
    EXPECT_EQ(CDatabase(File(), false).ReadInteger("SELECT number FROM entry"), 2);
}

TEST_F(Database, GivesBackWhatWasBound)
{
    CStatement insert(m_database.Handle(), "INSERT INTO entry VALUES(?1, ?2)");
    const std::string text("a\0b", 3);
    EXPECT_FALSE(CRun(insert, 7, text).Next());
    EXPECT_FALSE(CRun(insert, std::optional<std::int64_t>(), std::string_view()).Next());
    CStatement select(m_database.Handle(), "SELECT number, text, text IS NULL FROM entry ORDER BY rowid");
    CRun run(select);
    ASSERT_TRUE(run.Next());
    EXPECT_EQ(run.OptionalInteger(0), 7);
    EXPECT_EQ(run.Text(1), text);
    ASSERT_TRUE(run.Next());
    EXPECT_EQ(run.OptionalInteger(0), std::nullopt);
    EXPECT_EQ(run.Text(1), "");
    EXPECT_EQ(run.Integer(2), 0) << "an empty text is not NULL";
    EXPECT_FALSE(run.Next());
}

TEST_F(Database, ReleasesWhatARunHasReadWhenItEndsEarly)
{
    m_database.Execute("INSERT INTO entry VALUES(1, 'a'), (2, 'b')");
    CStatement select(m_database.Handle(), "SELECT number FROM entry");
    for (int time = 0; time < 2; ++time) {
        CRun run(select);
        ASSERT_TRUE(run.Next());
        EXPECT_EQ(run.Integer(0), 1);
    }
    EXPECT_NO_THROW(m_database.Execute("DROP TABLE entry")); // refused while a statement reads it
}

TEST_F(Database, SaysWhatIsWrongWithAStatement)
{
    EXPECT_THAT([this] { m_database.Execute("SELECT * FROM missing"); },
                testing::ThrowsMessage<CSqlError>("the store " + File().string() +
                                                  ": SQL logic error: no such table: missing"));
}

TEST_F(Database, WritesNothingWhenItIsOpenForReading)
{
    CDatabase reader(File(), false);
    EXPECT_THAT([&] { reader.Execute("DELETE FROM entry"); },
                testing::ThrowsMessage<CSqlError>(testing::HasSubstr("readonly database")));
}

} // namespace
} // namespace reportd
