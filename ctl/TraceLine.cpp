#include "ctl/TraceLine.h"

#include <algorithm>

namespace ctl {

namespace {

using Text = std::wstring_view;

bool IsDigit(wchar_t character) { return character >= L'0' && character <= L'9'; }

// Takes what looks like shape, in which every digit stands for any.
bool TakeShape(Text& text, Text shape)
{
    const Text head = text.substr(0, shape.size());
    if (!std::ranges::equal(head, shape, [](wchar_t is, wchar_t as) { return IsDigit(as) ? IsDigit(is) : is == as; })) {
        return false;
    }
    text.remove_prefix(shape.size());
    return true;
}

// Takes a number as it is printed for %d, and what must follow.
bool TakeNumber(Text& text, Text end, DWORD* number)
{
    const bool isNegative = text.starts_with(L'-');
    text.remove_prefix(isNegative ? 1 : 0);
    *number = 0;
    std::size_t digits = 0;
    for (; digits < text.size() && IsDigit(text[digits]) && digits < 10; ++digits) {
        *number = *number * 10 + static_cast<DWORD>(text[digits] - L'0');
    }
    *number = isNegative ? 0 - *number : *number;
    text.remove_prefix(digits);
    return digits > 0 && TakeShape(text, end);
}

} // namespace

std::optional<TraceLine> ParseTraceLine(Text text)
{
    TraceLine line;
    line.tag = text.substr(std::min<std::size_t>(1, text.size()), 3);
    DWORD threadId = 0;
    if ((line.tag != L"ERR" && line.tag != L"WAR" && line.tag != L"TRA") || !TakeShape(text, L"[")) {
        return std::nullopt;
    }
    text.remove_prefix(line.tag.size());
    if (!TakeShape(text, L"] 0000/00/00 00:00:00.000 ") || !TakeNumber(text, L"(", &line.processId) ||
        !TakeNumber(text, L") ", &threadId)) {
        return std::nullopt;
    }
    const std::size_t colon = text.find(L" : ");
    if (colon == Text::npos || colon == 0) {
        return std::nullopt;
    }
    line.function = text.substr(0, colon);
    line.message = text.substr(colon + 3);
    return line;
}

} // namespace ctl
