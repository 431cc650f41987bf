#include "server/live/Archive.h"

#include "testing/Zip.h"

#include <gmock/gmock.h>

namespace reportd {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing_support::MakeZip;

std::vector<ArchiveMember> MembersOf(std::string_view zip)
{
    std::vector<ArchiveMember> members;
    ReadZip(zip, [&](const ArchiveMember& member) { members.push_back(member); });
    return members;
}

std::vector<std::string> NamesOf(const std::vector<ArchiveMember>& members)
{
    std::vector<std::string> names;
    for (const ArchiveMember& member : members) {
        names.push_back(member.name);
    }
    return names;
}

TEST(Archive, ReadsMembersInTheirOrderWithoutTheirFolders)
{
    const std::string zip = MakeZip({{"202604/", ""}, {"202604/b.csv", "second"}, {"a.csv", "first"}, {"empty", ""}});
    ASSERT_TRUE(LooksLikeZip(zip));
    const std::vector<ArchiveMember> members = MembersOf(zip);
    ASSERT_THAT(NamesOf(members), ElementsAre("b.csv", "a.csv", "empty"));
    EXPECT_EQ(members[0].bytes, "second");
    EXPECT_EQ(members[1].bytes, "first");
    EXPECT_EQ(members[2].bytes, "");
    for (const ArchiveMember& member : members) {
        EXPECT_EQ(member.fault, "");
    }
}

TEST(Archive, NamesOfOtherEncodingsDoNotStopIt)
{
    const std::vector<ArchiveMember> members = MembersOf(MakeZip({{"\x83\x65\x83\x58\x83\x67/a.csv", "x"}}));
    ASSERT_EQ(members.size(), 1U);
    EXPECT_EQ(members[0].bytes, "x");
    EXPECT_EQ(members[0].name.find('/'), std::string::npos);
}

TEST(Archive, AMemberThatUnpacksToTooMuchIsAFaultAndTheOthersAreRead)
{
    const std::string zip = MakeZip({{"bomb", std::string(64 * kMostMemberBytes, '\0')},
                                     {"largest", std::string(kMostMemberBytes, 'x')},
                                     {"tiny", "x"}});
    EXPECT_LT(zip.size(), kMostMemberBytes);
    const std::vector<ArchiveMember> members = MembersOf(zip);
    ASSERT_THAT(NamesOf(members), ElementsAre("bomb", "largest", "tiny"));
    EXPECT_EQ(members[0].fault, "holds more than 1 MiB");
    EXPECT_EQ(members[0].bytes, "");
    EXPECT_EQ(members[1].bytes.size(), kMostMemberBytes);
    EXPECT_EQ(members[2].bytes, "x");
}

TEST(Archive, TooManyMembersAreRefused)
{
    std::vector<std::pair<std::string, std::string>> members(kMostMembers, {"a", ""});
    EXPECT_EQ(MembersOf(MakeZip(members)).size(), kMostMembers);
    members.emplace_back("one more", "");
    EXPECT_THROW(MembersOf(MakeZip(members)), CArchiveError);
}

TEST(Archive, DamagedOrForeignBytesAreRefusedOrMembersFaulted)
{
    const std::string zip = MakeZip({{"a.csv", std::string(5000, 'x') + "y"}});
    for (const std::string& bytes : {std::string("PK\x03\x04"), std::string("not a zip"), zip.substr(0, 20)}) {
        EXPECT_THROW(MembersOf(bytes), CArchiveError) << bytes.size();
    }
    for (std::size_t size = 0; size < zip.size(); ++size) { // never the content in part
        try {
            for (const ArchiveMember& member : MembersOf(zip.substr(0, size))) {
                EXPECT_TRUE(!member.fault.empty() || member.bytes.size() == 5001U) << size;
            }
        } catch (const CArchiveError& error) {
            EXPECT_STRNE(error.what(), "");
        }
    }
}

TEST(Archive, GzipComesBackAsItWas)
{
    for (const std::string& bytes : {std::string("a,b\r\n"), std::string(), std::string(kMostMemberBytes, '\xE9')}) {
        const std::string packed = MakeGzip(bytes);
        EXPECT_TRUE(LooksLikeGzip(packed));
        EXPECT_EQ(ReadGzip(packed), bytes);
    }
    EXPECT_FALSE(LooksLikeGzip("2026/4/20 0:06 UPDATE"));
    EXPECT_FALSE(LooksLikeZip("2026/4/20 0:06 UPDATE"));
}

TEST(Archive, BytesThatDoNotCompressAreKeptToo)
{
    std::string bytes(300'000, '\0');
    std::uint32_t state = 1;
    for (char& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24U);
    }
    EXPECT_EQ(ReadGzip(MakeGzip(bytes)), bytes);
}

TEST(Archive, DamagedGzipIsRefused)
{
    const std::string packed = MakeGzip(std::string(5000, 'x') + "y");
    std::string changed = packed;
    changed[packed.size() - 6] ^= 1; // the checksum
    for (const std::string& bytes :
         {packed.substr(0, packed.size() / 2), packed.substr(0, 5), changed, std::string("text"), std::string()}) {
        EXPECT_THROW(ReadGzip(bytes), CArchiveError) << bytes.size();
    }
    EXPECT_THROW(ReadGzip(MakeGzip(std::string(kMostMemberBytes + 1, '\0'))), CArchiveError);
}

} // namespace
} // namespace reportd
