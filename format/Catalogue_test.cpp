#include "format/Catalogue.h"

#include <gmock/gmock.h>
#include <string>
#include <vector>

// What the catalogue has to say is written down here again: these texts are addresses, file names and element names
// that others rely on.
namespace {

using testing::ElementsAre;

TEST(CatalogueWord, IsTheSameInBothWidths)
{
    constexpr catalogue::CWord word = "estimated_usage";
    EXPECT_EQ(word.Narrow(), "estimated_usage");
    EXPECT_STREQ(word.Wide(), L"estimated_usage");
}

TEST(CatalogueWord, MayBeEmpty)
{
    constexpr catalogue::CWord word = "";
    EXPECT_EQ(word.Narrow(), "");
    EXPECT_STREQ(word.Wide(), L"");
}

// "number key name mask"
std::string Text(const catalogue::Company& company)
{
    return std::to_string(company.siteNumber) + " " + std::string(company.key.Narrow()) + " " +
           std::string(company.name.Narrow()) + " " + std::to_string(company.defaultMask);
}

// "code /category/word element/item name", and "trimmed".
std::string Text(const catalogue::Kind& kind)
{
    return std::to_string(kind.dataType) + " /" + std::string(kind.category.Narrow()) + "/" +
           std::string(kind.word.Narrow()) + " " + std::string(kind.element.Narrow()) + "/" +
           std::string(kind.item.Narrow()) + " " + std::string(kind.name.Narrow()) + (kind.isTrimmed ? " trimmed" : "");
}

TEST(Catalogue, ListsTheCompaniesInTheirOrder)
{
    std::vector<std::string> rows;
    rows.reserve(catalogue::kCompanies.size());
    for (const catalogue::Company& company : catalogue::kCompanies) {
        rows.push_back(Text(company));
    }
    EXPECT_THAT(rows, ElementsAre("3 tokyo Tokyo 31", "2 tohoku Tohoku 31", "5 chubu Chubu 26", "6 kansai Kansai 31",
                                  "9 kyushu Kyushu 25"));
}

TEST(Catalogue, ListsTheKindsInTheirOrder)
{
    std::vector<std::string> rows;
    rows.reserve(catalogue::kKinds.size());
    for (const catalogue::Kind& kind : catalogue::kKinds) {
        rows.push_back(Text(kind));
    }
    EXPECT_THAT(rows, ElementsAre("1 /usage/instant instant_usage/usage instant usage trimmed",
                                  "2 /usage/actual actual_usage/usage actual usage trimmed",
                                  "4 /usage/estimated estimated_usage/usage estimated usage trimmed",
                                  "8 /peak/supply peak_supply/supply peak supply",
                                  "16 /peak/demand peak_demand/demand peak demand"));
}

TEST(Catalogue, FindsACompanyByItsSiteNumber)
{
    const std::pair<int, std::string_view> companies[] = {
        {2, "tohoku"}, {3, "tokyo"}, {5, "chubu"}, {6, "kansai"}, {9, "kyushu"}};
    for (const auto& [siteNumber, key] : companies) {
        const catalogue::Company* const company = catalogue::FindCompany(siteNumber);
        ASSERT_TRUE(company) << siteNumber;
        EXPECT_EQ(company->key.Narrow(), key);
    }
    for (const int siteNumber : {-1, 0, 1, 4, 7, 8, 10, 11, 259, 0x7FFFFFFF}) {
        EXPECT_FALSE(catalogue::FindCompany(siteNumber)) << siteNumber;
    }
}

TEST(Catalogue, FindsAKindByItsDataTypeCodeAlone)
{
    for (const std::uint32_t dataType : {1U, 2U, 4U, 8U, 16U}) {
        const catalogue::Kind* const kind = catalogue::FindKind(dataType);
        ASSERT_TRUE(kind) << dataType;
        EXPECT_EQ(kind->dataType, dataType);
    }
    for (const std::uint32_t dataType : {0U, 3U, 24U, 31U, 32U, 0x80000001U}) {
        EXPECT_FALSE(catalogue::FindKind(dataType)) << dataType;
    }
}

} // namespace
