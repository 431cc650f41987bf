#include "ctl/Csv.h"

#include <gmock/gmock.h>
#include <sstream>

namespace {

TEST(Csv, QuotesOnlyWhatNeedsIt)
{
    const struct {
        std::vector<CString> fields;
        const char* line;
    } cases[] = {
        {{L"tokyo", L"", L"18446744073709551615"}, "tokyo,,18446744073709551615\r\n"},
        {{L"", L""}, ",\r\n"},
        {{L"a,b", L"say \"yes\"", L"two\nlines", L"\r", L" x "},
         "\"a,b\",\"say \"\"yes\"\"\",\"two\nlines\",\"\r\", x \r\n"},
        {{L"\x6771\x4EAC"}, "\xE6\x9D\xB1\xE4\xBA\xAC\r\n"},
    };
    for (const auto& test : cases) {
        std::ostringstream out;
        ctl::WriteCsvLine(out, test.fields);
        EXPECT_EQ(out.str(), test.line);
    }
}

} // namespace
