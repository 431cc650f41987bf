#include "ctl/Csv.h"

#include "platform/Text.h"

namespace ctl {

void WriteCsvLine(std::ostream& out, const std::vector<CString>& fields)
{
    CString line;
    for (const CString& field : fields) {
        line += &field == &fields.front() ? L"" : L",";
        if (field.find_first_of(L",\"\r\n") == CString::npos) {
            line += field;
            continue;
        }
        line += L'"';
        for (const wchar_t character : field) {
            line.append(character == L'"' ? 2 : 1, character);
        }
        line += L'"';
    }
    out << platform::EncodeUtf8(line) << "\r\n";
}

} // namespace ctl
