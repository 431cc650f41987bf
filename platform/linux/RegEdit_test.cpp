#include "platform/linux/RegEdit.h"

#include "platform/linux/RegFile.h"
#include "platform/portable/Utf16.h"
#include "platform/Text.h"

#include <gmock/gmock.h>
#include <random>

namespace platform::linux {
namespace {

constexpr std::wstring_view kKey = L"HKEY_CURRENT_USER\\Software\\Test";
const std::string kSection = "[HKEY_CURRENT_USER\\Software\\Test]\n";
const std::string kFirst = "Windows Registry Editor Version 5.00\n\n";
const SettingsValue kOne{REG_DWORD, {1, 0, 0, 0}};

std::span<const BYTE> BytesOf(const std::string& text)
{
    return {reinterpret_cast<const BYTE*>(text.data()), text.size()};
}

std::string Store(const std::string& file, std::wstring_view name, const SettingsValue& value = kOne)
{
    const std::optional<std::vector<BYTE>> changed = StoreRegValue(BytesOf(file), kKey, name, value);
    return changed ? std::string(changed->begin(), changed->end()) : "none";
}

std::string Remove(const std::string& file, std::wstring_view name)
{
    const std::vector<BYTE> changed = RemoveRegValue(BytesOf(file), kKey, name);
    return {changed.begin(), changed.end()};
}

std::optional<SettingsValue> Find(const std::string& file, std::wstring_view name, std::wstring_view key = kKey)
{
    SettingsValue value;
    return FindRegValue(BytesOf(file), key, name, &value) ? std::optional(value) : std::nullopt;
}

SettingsValue Text(const CString& text) { return {REG_SZ, portable::EncodeUtf16(text + L'\0')}; }

std::string Utf16File(const std::string& utf8)
{
    const std::vector<BYTE> units = portable::EncodeUtf16(DecodeUtf8(utf8));
    return "\xFF\xFE" + std::string(units.begin(), units.end());
}

TEST(RegEdit, ANewFileGetsFirstLineAndKey)
{
    EXPECT_EQ(Store("", L"N"), kFirst + kSection + "\"N\"=dword:00000001\n");
    EXPECT_EQ(Store("\xEF\xBB\xBF", L"N"), "\xEF\xBB\xBF" + kFirst + kSection + "\"N\"=dword:00000001\n");
    std::string windows;
    for (const char character : kFirst + kSection + "\"N\"=dword:00000001\n") {
        windows += character == '\n' ? "\r\n" : std::string(1, character);
    }
    EXPECT_EQ(Store("\xFF\xFE", L"N"), Utf16File(windows));
}

TEST(RegEdit, StoresWhereTheValueStandsAndKeepsTheRest)
{
    const struct {
        std::string before;
        std::string after;
    } cases[] = {
        // In the place of the value, with its spelling, comment and line end.
        {kSection + "\"N\"=dword:5\n; end\n", kSection + "\"N\"=dword:00000001\n; end\n"},
        {kSection + "  \"n\" = \"a;=b\" ; why; so\r\n", kSection + "  \"n\" = dword:00000001 ; why; so\r\n"},
        {kSection + "\"N\"=hex:01,\\\n  02 ; why\n\"M\"=\"x\"\n",
         kSection + "\"N\"=dword:00000001 ; why\n\"M\"=\"x\"\n"},
        {kSection + "\"N\"=dword:5", kSection + "\"N\"=dword:00000001"},
        {kSection + "\"N\"=dword:5\r", kSection + "\"N\"=dword:00000001\r"},
        // The last one counts, and a deletion that comes last.
        {kSection + "\"N\"=dword:5\n" + kSection + "\"N\"=dword:6\n",
         kSection + "\"N\"=dword:5\n" + kSection + "\"N\"=dword:00000001\n"},
        {kSection + "\"N\"=dword:5\n\"N\"=-\n", kSection + "\"N\"=dword:5\n\"N\"=dword:00000001\n"},
        // Behind the last value of the key, in the last section of it that is not deleted.
        {kSection + "; about M\n\"M\"=\"x\"\n; about B\n\n[B]\n",
         kSection + "; about M\n\"M\"=\"x\"\n\"N\"=dword:00000001\n; about B\n\n[B]\n"},
        {kSection + "\n[B]\n", kSection + "\"N\"=dword:00000001\n\n[B]\n"},
        {kSection + "\"X\"=hex:01\\\n\n; c\n", kSection + "\"X\"=hex:01\\\n\n\"N\"=dword:00000001\n; c\n"},
        {kSection + "\"X\"=hex:01\\\n", kSection + "\"X\"=hex:01\\\n\n\"N\"=dword:00000001\n"},
        {kSection + "\"X\"=dword:1\r\n", kSection + "\"X\"=dword:1\r\n\"N\"=dword:00000001\r\n"},
        {kSection + "\"X\"=dword:1", kSection + "\"X\"=dword:1\n\"N\"=dword:00000001\n"},
        {kSection + "\"X\"=dword:1\r", kSection + "\"X\"=dword:1\r\n\"N\"=dword:00000001\n"},
        {kSection + kSection + "[-HKEY_CURRENT_USER\\Software]\n" + kSection + "[B]\n",
         kSection + kSection + "[-HKEY_CURRENT_USER\\Software]\n" + kSection + "\"N\"=dword:00000001\n[B]\n"},
        // In a new section.
        {"[B]\n", "[B]\n\n" + kSection + "\"N\"=dword:00000001\n"},
        {"[B]\n\n", "[B]\n\n" + kSection + "\"N\"=dword:00000001\n"},
        {kSection + "\"N\"=dword:5\n[-HKEY_CURRENT_USER\\Software\\Test]\n",
         kSection + "\"N\"=dword:5\n[-HKEY_CURRENT_USER\\Software\\Test]\n\n" + kSection + "\"N\"=dword:00000001\n"},
        // Malformed lines stay as they are.
        {kSection + "\"N\"=dword:xyz\n", kSection + "\"N\"=dword:xyz\n\"N\"=dword:00000001\n"},
        {"[HKEY_CURRENT_USER\\Software\\Test\n\"M\"=\n",
         "[HKEY_CURRENT_USER\\Software\\Test\n\"M\"=\n\n" + kSection + "\"N\"=dword:00000001\n"},
    };
    for (const auto& [before, after] : cases) {
        EXPECT_EQ(Store(before, L"N"), after);
        EXPECT_EQ(Store(Utf16File(before), L"N"), Utf16File(after));
    }
    EXPECT_EQ(Store("rubbish \xFF", L"N"), "rubbish \xFF\n\n" + kSection + "\"N\"=dword:00000001\n");
    EXPECT_EQ(Store(Utf16File("[B]\r\n") + "x", L"N"),
              Utf16File("[B]\r\n\r\n[HKEY_CURRENT_USER\\Software\\Test]\r\n\"N\"=dword:00000001\r\n"));
}

TEST(RegEdit, WritesEveryTypeAsTheRegistryEditorDoes)
{
    for (const auto& [value, text] : {std::pair{SettingsValue{REG_DWORD, {0xF1, 0xFF, 0, 0x80}}, "dword:8000fff1"},
                                      {SettingsValue{REG_DWORD, {1}}, "hex(4):01"},
                                      {SettingsValue{REG_BINARY, {1, 0xFF}}, "hex:01,ff"},
                                      {SettingsValue{REG_BINARY, {}}, "hex:"},
                                      {SettingsValue{REG_NONE, {}}, "hex(0):"},
                                      {SettingsValue{REG_QWORD, {1, 2}}, "hex(b):01,02"},
                                      {Text(L"a \"b\" c:\\d; \x6771"), "\"a \\\"b\\\" c:\\\\d; \xE6\x9D\xB1\""},
                                      {Text(L""), "\"\""},
                                      {Text(L"a\nb"), "hex(1):61,00,0a,00,62,00,00,00"},
                                      {SettingsValue{REG_SZ, {'a', 0}}, "hex(1):61,00"},
                                      {SettingsValue{REG_SZ, {0, 0xD8, 0, 0}}, "hex(1):00,d8,00,00"}}) {
        EXPECT_EQ(Store(kSection, L"N", value), kSection + "\"N\"=" + text + "\n");
    }
    EXPECT_EQ(Store(kSection, L""), kSection + "@=dword:00000001\n");
    EXPECT_EQ(Store(kSection, L"a\"=\\;"), kSection + "\"a\\\"=\\\\;\"=dword:00000001\n");
}

TEST(RegEdit, RefusesWhatAFileCannotHold)
{
    EXPECT_EQ(Store(kSection, L"a\nb"), "none");
    EXPECT_EQ(StoreRegValue({}, L"HKEY_CURRENT_USER\\a] ;b", L"N", kOne), std::nullopt);
    EXPECT_EQ(StoreRegValue({}, L"HKEY_CURRENT_USER\\a]\n[b", L"N", kOne), std::nullopt);
}

TEST(RegEdit, RemovesTheValueWhereverItIsSet)
{
    const std::string two = kSection + "\"N\"=dword:5\n; c\n[B]\n\"N\"=dword:6\n" + kSection + "\"n\"=hex:01,\\\n02\n";
    EXPECT_EQ(Remove(two, L"N"), kSection + "; c\n[B]\n\"N\"=dword:6\n" + kSection);
    EXPECT_EQ(Remove(Utf16File(two), L"N"), Utf16File(kSection + "; c\n[B]\n\"N\"=dword:6\n" + kSection));
    EXPECT_EQ(Remove(two, L"M"), two);
    EXPECT_EQ(Remove("", L"N"), "");
    // Torn bytes of another value stay torn.
    const std::string torn = kSection + "\"X\"=hex:01,\\\n\"N\"=dword:5\n02\n";
    EXPECT_EQ(Remove(torn, L"N"), kSection + "\"X\"=hex:01,\\\n\"N\"=-\n02\n");
}

// Any text: the reader sees what was stored, every other value as before, and all other bytes are the same.

std::string RandomFile(std::mt19937& random)
{
    const std::vector<std::string> parts = {kSection,
                                            kSection,
                                            "[HKEY_CURRENT_USER\\Software\\Test2]\n",
                                            "[-HKEY_CURRENT_USER\\Software\\Test]\n",
                                            "[-HKEY_CURRENT_USER]\n",
                                            "[HKEY_CURRENT_USER\\Software\\Test\n",
                                            "\"N\"=dword:5\n",
                                            " \"n\" = \"x;y=\" ; z=\\\n",
                                            "\"N\"=-\n",
                                            "\"N\"=hex:01,\\\n  02 ; \xE6\x9D\xB1\n",
                                            "\"M\"=hex:01\\\n",
                                            "\"M\"=hex:01,02,\\\n",
                                            "  03\n",
                                            "03 ; c \\\n",
                                            "\"M\"=dword:7 ; c\n",
                                            "@=\"at\"\n",
                                            "\"N\"=dword:xyz\n",
                                            "; comment \xFF\xC3\n",
                                            "\n",
                                            "  \t\n",
                                            "\\\n",
                                            "\"\n",
                                            "\xE6\x9D",
                                            "\r",
                                            "\"M\"=\"a\\\\\"\n",
                                            "\"=;\"=dword:1\n"};
    std::string file;
    for (std::size_t count = random() % 12; count > 0; --count) {
        file += parts[random() % parts.size()];
    }
    if (random() % 3 == 0) {
        std::string windows;
        for (const char character : file) {
            windows += character == '\n' ? "\r\n" : std::string(1, character);
        }
        file = windows;
    }
    if (random() % 4 == 0 && !file.empty()) {
        file.pop_back();
    }
    const auto encoding = random() % 4;
    return encoding == 0 ? Utf16File(file) : encoding == 1 ? "\xEF\xBB\xBF" + file : file;
}

std::vector<std::string> LinesOf(const std::string& file)
{
    std::vector<std::string> lines(1);
    for (const char byte : file) {
        lines.back() += byte;
        if (byte == '\n') {
            lines.emplace_back();
        }
    }
    return lines;
}

// The lines of a file that another one has in another way, at most an uninterrupted run.
std::vector<std::string> Replaced(const std::vector<std::string>& file, const std::vector<std::string>& other)
{
    std::size_t head = 0;
    while (head < std::min(file.size(), other.size()) && file[head] == other[head]) {
        ++head;
    }
    std::size_t tail = 0;
    while (tail < std::min(file.size(), other.size()) - head &&
           file.rbegin()[static_cast<std::ptrdiff_t>(tail)] == other.rbegin()[static_cast<std::ptrdiff_t>(tail)]) {
        ++tail;
    }
    return {file.begin() + static_cast<std::ptrdiff_t>(head), file.end() - static_cast<std::ptrdiff_t>(tail)};
}

// Whether these lines are those of the value "N", with those that its bytes go on in.
bool IsValue(const std::vector<std::string>& lines)
{
    std::string first = lines.front();
    std::erase(first, '\0');
    return lines.size() <= 2 && (first.find("\"N\"") != CString::npos || first.find("\"n\"") != CString::npos);
}

void ExpectOthersAsBefore(const std::string& before, const std::string& after)
{
    for (const wchar_t* name : {L"M", L"", L"=;"}) {
        EXPECT_EQ(Find(before, name).has_value(), Find(after, name).has_value()) << name;
        EXPECT_EQ(Find(before, name).value_or(kOne).data, Find(after, name).value_or(kOne).data) << name;
    }
    const std::wstring_view other = L"HKEY_CURRENT_USER\\Software\\Test2";
    EXPECT_EQ(Find(before, L"N", other).has_value(), Find(after, L"N", other).has_value());
}

TEST(RegEdit, AnyFileKeepsWhatIsNotChanged)
{
    const unsigned seed = std::random_device{}();
    std::mt19937 random(seed);
    const std::vector<SettingsValue> values = {kOne, Text(L"a;b=\"\\"), {REG_BINARY, {1, 2, 3}}, {REG_QWORD, {}}};
    for (int i = 0; i < 5000 && !testing::Test::HasFailure(); ++i) {
        const std::string before = RandomFile(random);
        SCOPED_TRACE("seed " + std::to_string(seed) + ", file " + std::to_string(i) + ":\n" + before);
        const SettingsValue& value = values[random() % values.size()];
        const std::string after = Store(before, L"N", value);
        SCOPED_TRACE("stored:\n" + after);
        ASSERT_TRUE(Find(after, L"N"));
        EXPECT_EQ(Find(after, L"N")->data, value.data);
        ExpectOthersAsBefore(before, after);
        const std::vector<std::string> gone = Replaced(LinesOf(before), LinesOf(after));
        EXPECT_TRUE(gone.empty() || IsValue(gone) || before.ends_with(gone.front()));
        const std::string removed = Remove(after, L"N");
        SCOPED_TRACE("removed:\n" + removed);
        EXPECT_FALSE(Find(removed, L"N"));
        ExpectOthersAsBefore(after, removed);
    }
}

} // namespace
} // namespace platform::linux
