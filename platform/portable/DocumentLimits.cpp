#include "platform/portable/DocumentLimits.h"

namespace platform::portable {

namespace {

constexpr std::size_t kMostMarks = 500'000;
constexpr std::size_t kMostAttributes = 256; // of one element
constexpr std::size_t kMostNamespaces = 100;

bool HasMoreThan(std::size_t most, std::wstring_view word, std::wstring_view text)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(word); at != std::wstring_view::npos && count <= most; ++count) {
        at = text.find(word, at + word.size());
    }
    return count > most;
}

// Whether there are neither too many nodes nor too many attributes of one element.
bool HasFewNodes(std::wstring_view text)
{
    std::size_t marks = 0;
    std::size_t attributes = 0;
    for (const wchar_t character : text) {
        if (character == L'<') {
            attributes = 0;
            ++marks;
        } else if (character == L'=') {
            ++attributes;
            ++marks;
        }
        if (marks > kMostMarks || attributes > kMostAttributes) {
            return false;
        }
    }
    return true;
}

} // namespace

bool IsWithinLimits(std::wstring_view text)
{
    return HasFewNodes(text) && !HasMoreThan(0, L"<!DOCTYPE", text) && !HasMoreThan(kMostNamespaces, L"xmlns", text);
}

} // namespace platform::portable
