#include "platform/Text.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace platform {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

void AppendWide(std::wstring& text, char32_t character)
{
    if (sizeof(wchar_t) == 2 && character > 0xFFFF) {
        character -= 0x10000;
        text.push_back(static_cast<wchar_t>(0xD800 + (character >> 10)));
        text.push_back(static_cast<wchar_t>(0xDC00 + (character & 0x3FF)));
        return;
    }
    text.push_back(static_cast<wchar_t>(character));
}

void AppendUtf8(std::string& bytes, char32_t character)
{
    if (character < 0x80) {
        bytes.push_back(static_cast<char>(character));
        return;
    }
    const int trailing = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
    constexpr unsigned char kLead[] = {0, 0xC0, 0xE0, 0xF0};
    bytes.push_back(static_cast<char>(kLead[trailing] | (character >> (6 * trailing))));
    for (int shift = 6 * (trailing - 1); shift >= 0; shift -= 6) {
        bytes.push_back(static_cast<char>(0x80 | ((character >> shift) & 0x3F)));
    }
}

// Appends the ASCII characters from position on, as far as they fill blocks of this length, and moves position behind
// them. The compiler turns a block into a few instructions.
template <std::size_t Length, class To, class From>
void AppendAsciiBlocks(std::basic_string<To>& text, std::basic_string_view<From> from, std::size_t& position)
{
    for (; from.size() - position >= Length; position += Length) {
        const From* const units = from.data() + position;
        To block[Length];
        std::make_unsigned_t<From> all = 0;
        for (std::size_t i = 0; i < Length; ++i) {
            block[i] = static_cast<To>(units[i]);
            all |= static_cast<std::make_unsigned_t<From>>(units[i]);
        }
        if (all >= 0x80) {
            return;
        }
        text.append(block, Length);
    }
}

// Most text is ASCII: reports in long pieces, their values in short ones.
template <class To, class From>
void AppendAscii(std::basic_string<To>& text, std::basic_string_view<From> from, std::size_t& position)
{
    // Not at each character of another text.
    if (position < from.size() && static_cast<std::make_unsigned_t<From>>(from[position]) < 0x80) {
        AppendAsciiBlocks<64>(text, from, position);
        AppendAsciiBlocks<16>(text, from, position);
    }
}

// What a lead byte promises: the number of trailing bytes and the range of the first of them, which rules out overlong
// forms, surrogates and values above U+10FFFF (Unicode Standard, table 3-7).
struct Lead {
    int trailing;
    unsigned char firstLow;
    unsigned char firstHigh;
};

Lead LeadOf(unsigned char byte)
{
    if (byte >= 0xC2 && byte <= 0xDF) {
        return {1, 0x80, 0xBF};
    }
    if (byte >= 0xE0 && byte <= 0xEF) {
        return {2, static_cast<unsigned char>(byte == 0xE0 ? 0xA0 : 0x80),
                static_cast<unsigned char>(byte == 0xED ? 0x9F : 0xBF)};
    }
    if (byte >= 0xF0 && byte <= 0xF4) {
        return {3, static_cast<unsigned char>(byte == 0xF0 ? 0x90 : 0x80),
                static_cast<unsigned char>(byte == 0xF4 ? 0x8F : 0xBF)};
    }
    return {0, 0, 0};
}

// Decodes the character at position, which is no ASCII character, and moves position behind it or behind the
// ill-formed sequence.
char32_t DecodeOne(std::string_view bytes, std::size_t& position)
{
    const auto first = static_cast<unsigned char>(bytes[position++]);
    const Lead lead = LeadOf(first);
    if (lead.trailing == 0) {
        return kReplacement;
    }
    char32_t character = first & (0x3FU >> lead.trailing);
    unsigned char low = lead.firstLow;
    unsigned char high = lead.firstHigh;
    for (int i = 0; i < lead.trailing; ++i) {
        if (position == bytes.size()) {
            return kReplacement;
        }
        const auto byte = static_cast<unsigned char>(bytes[position]);
        if (byte < low || byte > high) {
            return kReplacement;
        }
        character = (character << 6) | (byte & 0x3F);
        ++position;
        low = 0x80;
        high = 0xBF;
    }
    return character;
}

// The character at position, surrogate pairs joined; moves position behind it.
char32_t WideCharacterAt(std::wstring_view text, std::size_t& position)
{
    const auto unit = static_cast<char32_t>(text[position++]) & (sizeof(wchar_t) == 2 ? 0xFFFFU : 0xFFFFFFFFU);
    if (unit < 0xD800 || (unit > 0xDFFF && unit <= 0x10FFFF)) {
        return unit;
    }
    if (sizeof(wchar_t) == 2 && unit <= 0xDBFF && position < text.size()) {
        const auto low = static_cast<char32_t>(text[position]) & 0xFFFFU;
        if (low >= 0xDC00 && low <= 0xDFFF) {
            ++position;
            return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
        }
    }
    return kReplacement;
}

// A conversion of a format: %[0][width]type.
struct Conversion {
    bool isZeroPadded = false;
    std::size_t width = 0;
    wchar_t type = 0;
};

// Reads the conversion behind a percent sign and moves position behind it.
Conversion ReadConversion(std::wstring_view format, std::size_t& position)
{
    Conversion conversion;
    const auto next = [&] { return position < format.size() ? format[position] : L'\0'; };
    if (next() == L'0') {
        conversion.isZeroPadded = true;
        ++position;
    }
    for (; next() >= L'0' && next() <= L'9'; ++position) {
        conversion.width = conversion.width * 10 + static_cast<std::size_t>(next() - L'0');
    }
    conversion.type = next();
    if (conversion.type == L'\0' || std::wstring_view(L"sduxX%").find(conversion.type) == std::wstring_view::npos) {
        throw std::runtime_error("unknown conversion in a format");
    }
    ++position;
    return conversion;
}

void AppendNumber(std::wstring& text, const Conversion& conversion, unsigned long long magnitude, bool isNegative)
{
    const std::wstring_view symbols = conversion.type == L'x' ? L"0123456789abcdef" : L"0123456789ABCDEF";
    const unsigned base = conversion.type == L'd' || conversion.type == L'u' ? 10 : 16;
    std::wstring digits; // the last one first
    do {
        digits.push_back(symbols[magnitude % base]);
        magnitude /= base;
    } while (magnitude != 0);
    const std::size_t length = digits.size() + (isNegative ? 1 : 0);
    const std::size_t padding = conversion.width > length ? conversion.width - length : 0;
    text.append(conversion.isZeroPadded ? 0 : padding, L' ');
    text.append(isNegative ? 1 : 0, L'-');
    text.append(conversion.isZeroPadded ? padding : 0, L'0');
    text.append(digits.rbegin(), digits.rend());
}

// Appends an argument. The bits of a number count as signed for %d and as unsigned for the others, as in C.
template <class Value>
void AppendArgument(std::wstring& text, const Conversion& conversion, Value value)
{
    constexpr bool kIsText = std::is_same_v<Value, std::wstring_view>;
    if (kIsText != (conversion.type == L's')) {
        throw std::runtime_error("a format and its arguments do not fit");
    }
    if constexpr (kIsText) {
        text.append(conversion.width > value.size() ? conversion.width - value.size() : 0, L' ').append(value);
    } else {
        using Bits = std::make_unsigned_t<Value>;
        const auto bits = static_cast<Bits>(value);
        const bool isNegative = conversion.type == L'd' && static_cast<std::make_signed_t<Value>>(value) < 0;
        AppendNumber(text, conversion, isNegative ? static_cast<Bits>(0 - bits) : bits, isNegative);
    }
}

} // namespace

std::wstring FormatTextV(std::wstring_view format, std::span<const TextArgument> arguments)
{
    std::wstring text;
    std::size_t used = 0;
    for (std::size_t position = 0; position < format.size();) {
        const std::size_t percent = std::min(format.find(L'%', position), format.size());
        text.append(format, position, percent - position);
        position = percent + 1;
        if (percent == format.size()) {
            break;
        }
        const Conversion conversion = ReadConversion(format, position);
        if (conversion.type == L'%') {
            text.push_back(L'%');
        } else if (used == arguments.size()) {
            throw std::runtime_error("a format has too few arguments");
        } else {
            std::visit([&](const auto& value) { AppendArgument(text, conversion, value); }, arguments[used++].Get());
        }
    }
    return text;
}

std::wstring DecodeUtf8(std::string_view bytes)
{
    std::wstring text;
    text.reserve(bytes.size());
    for (std::size_t position = 0; AppendAscii(text, bytes, position), position < bytes.size();) {
        const auto byte = static_cast<unsigned char>(bytes[position]);
        if (byte < 0x80) {
            text.push_back(static_cast<wchar_t>(byte));
            ++position;
            continue;
        }
        AppendWide(text, DecodeOne(bytes, position));
    }
    return text;
}

std::string EncodeUtf8(std::wstring_view text)
{
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t position = 0; AppendAscii(bytes, text, position), position < text.size();) {
        AppendUtf8(bytes, WideCharacterAt(text, position));
    }
    return bytes;
}

bool IsWhiteSpace(wchar_t character)
{
    if (character < 0x80) {
        return character == L' ' || (character >= L'\t' && character <= L'\r');
    }
    constexpr std::wstring_view kWhiteSpace = L"\x85\xA0\x1680\x2000\x2001\x2002\x2003\x2004\x2005\x2006"
                                              L"\x2007\x2008\x2009\x200A\x2028\x2029\x202F\x205F\x3000";
    return kWhiteSpace.find(character) != std::wstring_view::npos;
}

} // namespace platform
