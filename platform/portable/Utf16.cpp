#include "platform/portable/Utf16.h"

namespace platform::portable {

namespace {

bool IsHighSurrogate(char32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsLowSurrogate(char32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

char32_t UnitAt(std::span<const BYTE> bytes, std::size_t position)
{
    return static_cast<char32_t>(bytes[position] | (bytes[position + 1] << 8));
}

void AppendUnit(std::vector<BYTE>& bytes, char32_t unit)
{
    bytes.push_back(static_cast<BYTE>(unit & 0xFF));
    bytes.push_back(static_cast<BYTE>(unit >> 8));
}

} // namespace

CString DecodeUtf16(std::span<const BYTE> bytes)
{
    CString text;
    text.reserve(bytes.size() / 2);
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        char32_t character = UnitAt(bytes, i);
        if (sizeof(wchar_t) > 2 && IsHighSurrogate(character) && i + 3 < bytes.size() &&
            IsLowSurrogate(UnitAt(bytes, i + 2))) {
            i += 2;
            character = 0x10000 + ((character - 0xD800) << 10) + (UnitAt(bytes, i) - 0xDC00);
        }
        text.push_back(static_cast<wchar_t>(character));
    }
    return text;
}

std::vector<BYTE> EncodeUtf16(std::wstring_view text)
{
    std::vector<BYTE> bytes;
    bytes.reserve(text.size() * 2);
    for (const wchar_t wide : text) {
        auto character = static_cast<char32_t>(wide);
        if (sizeof(wchar_t) > 2 && character > 0x10FFFF) {
            character = 0xFFFD;
        }
        if (sizeof(wchar_t) > 2 && character > 0xFFFF) {
            AppendUnit(bytes, 0xD800 + ((character - 0x10000) >> 10));
            character = 0xDC00 + ((character - 0x10000) & 0x3FF);
        }
        AppendUnit(bytes, character);
    }
    return bytes;
}

} // namespace platform::portable
