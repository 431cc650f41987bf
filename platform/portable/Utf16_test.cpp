#include "platform/portable/Utf16.h"

#include "platform/Settings.h"

#include <gmock/gmock.h>

namespace platform::portable {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::vector<BYTE> kMixed = {'a', 0, 0x71, 0x67, 0x3D, 0xD8, 0x00, 0xDE}; // a, U+6771, U+1F600
const CString kMixedText = L"a\u6771\U0001F600";

TEST(Utf16, DecodesUnitsAndPairs)
{
    EXPECT_EQ(DecodeUtf16(kMixed), kMixedText);
    EXPECT_EQ(DecodeUtf16({}), L"");
    EXPECT_EQ(DecodeUtf16(std::vector<BYTE>{'a', 0, 0, 0, 'b', 0}), CString(L"a\0b", 3));
}

TEST(Utf16, DropsAnOddLastByte)
{
    EXPECT_EQ(DecodeUtf16(std::vector<BYTE>{'a', 0, 'b'}), L"a");
    EXPECT_EQ(DecodeUtf16(std::vector<BYTE>{'a'}), L"");
    EXPECT_EQ(DecodeUtf16(std::vector<BYTE>{0x3D, 0xD8, 0x00}), CString(1, static_cast<wchar_t>(0xD83D)));
}

TEST(Utf16, LoneSurrogatesStay)
{
    const std::vector<BYTE> bytes = {0x00, 0xDE, 0x3D, 0xD8, 'a', 0, 0x3D, 0xD8};
    const CString text = {static_cast<wchar_t>(0xDE00), static_cast<wchar_t>(0xD83D), L'a',
                          static_cast<wchar_t>(0xD83D)};
    EXPECT_EQ(DecodeUtf16(bytes), text);
    EXPECT_EQ(EncodeUtf16(text), bytes);
}

TEST(Utf16, EncodesWhatItDecodes)
{
    EXPECT_EQ(EncodeUtf16(kMixedText), kMixed);
    EXPECT_THAT(EncodeUtf16(L""), IsEmpty());
    EXPECT_THAT(EncodeUtf16(std::wstring_view(L"\0", 1)), ElementsAre(0, 0));
}

TEST(Utf16, EncodesTheLastCharacterAndNoneBeyond)
{
    EXPECT_THAT(EncodeUtf16(L"\U0010FFFF"), ElementsAre(0xFF, 0xDB, 0xFF, 0xDF));
    if (sizeof(wchar_t) > 2) {
        EXPECT_THAT(EncodeUtf16(CString(1, static_cast<wchar_t>(0x110000))), ElementsAre(0xFD, 0xFF));
    }
}

TEST(SettingsText, JoinsSurrogatePairs)
{
    std::vector<BYTE> data = kMixed;
    EXPECT_EQ(TextOfSetting({REG_SZ, data}), kMixedText);
    data.insert(data.end(), {0, 0, 'x', 0});
    EXPECT_EQ(TextOfSetting({REG_SZ, data}), kMixedText);
}

} // namespace
} // namespace platform::portable
