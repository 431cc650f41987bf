// Wide text: printf-style formatting, conversion from and to UTF-8, white space. The same on every system; stateless,
// any thread.
#pragma once

#include "platform/Types.h"

#include <array>
#include <concepts>
#include <span>
#include <string_view>
#include <variant>

namespace platform {

// One argument of a format: a number or a wide text. Refers to the text, which must live as long.
class TextArgument {
public:
    template <std::integral Number>
    explicit TextArgument(Number number) : m_value(Widened(number))
    {
    }
    explicit TextArgument(const wchar_t* text) : m_value(std::wstring_view(text)) {}
    explicit TextArgument(const std::wstring& text) : m_value(std::wstring_view(text)) {}

    using Value = std::variant<int, unsigned, long long, unsigned long long, std::wstring_view>;
    const Value& Get() const { return m_value; }

private:
    // As the C language promotes it: nothing stays narrower than an int.
    template <std::integral Number>
    static auto Widened(Number number)
    {
        if constexpr (sizeof(Number) < sizeof(int)) {
            return static_cast<int>(number);
        } else if constexpr (sizeof(Number) == sizeof(int)) {
            return static_cast<std::conditional_t<std::is_signed_v<Number>, int, unsigned>>(number);
        } else {
            return static_cast<std::conditional_t<std::is_signed_v<Number>, long long, unsigned long long>>(number);
        }
    }

    Value m_value;
};

// As FormatText, with the arguments gathered by the caller.
std::wstring FormatTextV(std::wstring_view format, std::span<const TextArgument> arguments);

// Formats text of any length. format: printf style, of %s, %d, %u, %x, %X and %%, with a width and "0" before it; %s
// takes wide text (pointer, not null, or std::wstring) on every system, numbers take their own size (no length
// modifiers). Arguments beyond those that the format names are ignored. Throws std::bad_alloc, or std::runtime_error
// when format and arguments do not fit.
template <class... Arguments>
std::wstring FormatText(std::wstring_view format, const Arguments&... arguments)
{
    return FormatTextV(format, std::array<TextArgument, sizeof...(Arguments)>{TextArgument(arguments)...});
}

// Decodes UTF-8. Never fails: each maximal ill-formed sequence becomes one U+FFFD. Zero bytes are kept.
std::wstring DecodeUtf8(std::string_view bytes);

// Encodes as UTF-8. Lone surrogates and values above U+10FFFF become U+FFFD. Zero characters are kept.
std::string EncodeUtf8(std::wstring_view text);

// Whether a character is white space for the functions of Windows on wide text: the C library's iswspace and scan
// functions, and the XML parser before a document. That is the white space of Unicode, U+00A0 and U+3000 included.
bool IsWhiteSpace(wchar_t character);

} // namespace platform
