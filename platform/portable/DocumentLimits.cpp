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

// Whether there are neither too many nodes nor too many attributes of one element, looking at each character.
bool HasFewNodesExactly(std::wstring_view text)
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

// The same. Counts in whole blocks, which the compiler turns into a few instructions, as if each '=' of a block stood
// in one element with those before the block; when that gives too many, a closer look decides.
bool HasFewNodes(std::wstring_view text)
{
    constexpr std::size_t kBlock = 16;
    std::size_t marks = 0;
    std::size_t attributes = 0;
    std::wstring_view rest = text;
    for (; rest.size() >= kBlock; rest.remove_prefix(kBlock)) {
        const wchar_t* const characters = rest.data();
        unsigned elements = 0;
        unsigned values = 0;
        for (std::size_t i = 0; i < kBlock; ++i) {
            elements += characters[i] == L'<' ? 1U : 0U;
            values += characters[i] == L'=' ? 1U : 0U;
        }
        marks += elements + values;
        if (marks > kMostMarks || attributes + values > kMostAttributes) {
            return HasFewNodesExactly(text);
        }
        attributes = elements == 0 ? attributes + values : values;
    }
    return (marks + rest.size() <= kMostMarks && attributes + rest.size() <= kMostAttributes) ||
           HasFewNodesExactly(text);
}

} // namespace

bool IsWithinLimits(std::wstring_view text)
{
    // A '!' is rare, a '<' is not: most texts need one look for the former.
    const bool mayHaveDocumentType = HasMoreThan(0, L"!DOCTYPE", text);
    return HasFewNodes(text) && !(mayHaveDocumentType && HasMoreThan(0, L"<!DOCTYPE", text)) &&
           !HasMoreThan(kMostNamespaces, L"xmlns", text);
}

} // namespace platform::portable
