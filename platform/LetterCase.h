// Comparing text without regard to case. Letters of ASCII only, as in the names of settings, headers and schemes; every
// other character is equal to itself alone. Stateless; any thread.
#pragma once

#include <algorithm>
#include <string_view>

namespace platform {

// The small letter for a capital one; other characters unchanged.
template <class Character>
constexpr Character LowerCase(Character character)
{
    return character >= 'A' && character <= 'Z' ? static_cast<Character>(character - 'A' + 'a') : character;
}

// Whether two texts differ in the case of their letters at most.
constexpr bool EqualsWithoutCase(std::string_view left, std::string_view right)
{
    return std::ranges::equal(left, right, {}, LowerCase<char>, LowerCase<char>);
}
constexpr bool EqualsWithoutCase(std::wstring_view left, std::wstring_view right)
{
    return std::ranges::equal(left, right, {}, LowerCase<wchar_t>, LowerCase<wchar_t>);
}

} // namespace platform
