#include "data/Scan.h"

#include "platform/Text.h"

#include <limits>

namespace {

// A number of any width.
constexpr std::size_t kNoWidth = std::numeric_limits<std::size_t>::max();

// A text and how far it has been read.
class CScanner {
public:
    explicit CScanner(std::wstring_view text) : m_text(text) {}

    // Reads one number of at most width characters, modulo 2^64. False when there is no digit.
    bool Number(std::size_t width, ULONGLONG& value)
    {
        while (!m_text.empty() && platform::IsWhiteSpace(m_text.front())) {
            m_text.remove_prefix(1);
        }
        std::wstring_view item = m_text.substr(0, width);
        const bool negative = !item.empty() && item.front() == L'-';
        if (negative || (!item.empty() && item.front() == L'+')) {
            item.remove_prefix(1);
        }
        if (item.empty() || !IsDigit(item.front())) {
            return false;
        }
        ULONGLONG number = 0;
        for (; !item.empty() && IsDigit(item.front()); item.remove_prefix(1)) {
            number = number * 10 + static_cast<ULONGLONG>(item.front() - L'0');
        }
        value = negative ? 0 - number : number;
        m_text.remove_prefix(static_cast<std::size_t>(item.data() - m_text.data()));
        return true;
    }

    // Reads exactly this character; 0: nothing to read.
    bool Literal(wchar_t literal)
    {
        if (literal == 0) {
            return true;
        }
        if (m_text.empty() || m_text.front() != literal) {
            return false;
        }
        m_text.remove_prefix(1);
        return true;
    }

private:
    static bool IsDigit(wchar_t character) { return character >= L'0' && character <= L'9'; }

    std::wstring_view m_text;
};

// "%u" and "%llu".
template <class Field>
int ScanOne(std::wstring_view text, Field& value)
{
    ULONGLONG number = 0;
    if (!CScanner(text).Number(kNoWidth, number)) {
        return 0;
    }
    value = static_cast<Field>(number);
    return 1;
}

} // namespace

int ScanUnsigned(std::wstring_view text, DWORD& value) { return ScanOne(text, value); }

int ScanUnsigned64(std::wstring_view text, ULONGLONG& value) { return ScanOne(text, value); }

int ScanDateTime(std::wstring_view text, SYSTEMTIME& time)
{
    struct Step {
        wchar_t before; // what stands before the number
        std::size_t width;
        WORD SYSTEMTIME::*field;
    };
    constexpr Step kPattern[] = {
        {0, 4, &SYSTEMTIME::wYear},    {L'-', 2, &SYSTEMTIME::wMonth},  {L'-', 2, &SYSTEMTIME::wDay},
        {L'T', 2, &SYSTEMTIME::wHour}, {L':', 2, &SYSTEMTIME::wMinute}, {L':', 2, &SYSTEMTIME::wSecond},
    };
    CScanner scanner(text);
    int assigned = 0;
    for (const Step& step : kPattern) {
        ULONGLONG number = 0;
        if (!scanner.Literal(step.before) || !scanner.Number(step.width, number)) {
            break;
        }
        time.*step.field = static_cast<WORD>(number);
        ++assigned;
    }
    return assigned;
}
