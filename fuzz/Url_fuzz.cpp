// Addresses as an administrator may have set them, against a pattern.
#include "fetch/Url.h"
#include "fuzz/Require.h"
#include "platform/Text.h"

#include <algorithm>
#include <regex>

namespace {

// The pattern's matcher needs a stack as deep as the text is long.
constexpr std::size_t kMostCharacters = 1000;

bool IsBlank(wchar_t each) { return platform::IsWhiteSpace(each) || each < 0x20 || (each >= 0x7F && each < 0xA0); }

// The parts of an address that has the pattern's form; a port may be out of its range.
struct Expected {
    explicit Expected(const std::wsmatch& match) : server(match[2].str()), object(match[5].str())
    {
        const bool isFtp = (match[1].str().front() | 0x20) == L'f';
        const bool isHttps = (match[1].str().back() | 0x20) == L's';
        serviceType = isFtp ? kServiceFtp : isHttps ? kServiceHttps : kServiceHttp;
        port = match[4].matched ? std::stoul(match[4].str()) : isFtp ? 21 : isHttps ? 443 : 80;
        if (!object.starts_with(L'/')) {
            object.insert(0, L"/");
        }
    }

    DWORD serviceType;
    unsigned long port;
    CString server;
    CString object;
};

void CheckTaken(const UrlParts& parts, const Expected& expected)
{
    Require(parts.serviceType == expected.serviceType && parts.port == expected.port && parts.port != 0);
    Require(parts.server == expected.server && parts.object == expected.object);
}

// Whether an address of the pattern's form may be refused: for its port, or since some characters that nobody sees are
// taken for white space.
bool MayBeRefused(const CString& text, const Expected& expected)
{
    return expected.port == 0 || expected.port > 65535 ||
           std::any_of(text.begin(), text.end(), [](wchar_t each) { return each > 0x7F; });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size)
{
    static const std::wregex kPattern(LR"(([Ff][Tt][Pp]|[Hh][Tt][Tt][Pp][Ss]?)://)"
                                      LR"((\[[0-9A-Fa-f:.]+\]|[0-9A-Za-z._-]+)(:([0-9]{1,5}))?)"
                                      LR"(([/?][^#]*)?(#[^]*)?)");
    const CString text = platform::DecodeUtf8({reinterpret_cast<const char*>(bytes), size}).substr(0, kMostCharacters);
    const UrlParts before{7, L"server", L"object", 9};
    UrlParts parts = before;
    const bool isTaken = SplitUrl(text, &parts);
    std::wsmatch match;
    const bool matches = std::none_of(text.begin(), text.end(), IsBlank) && std::regex_match(text, match, kPattern);
    Require(matches || !isTaken);
    if (isTaken) {
        CheckTaken(parts, Expected(match));
    } else {
        Require(parts.serviceType == before.serviceType && parts.server == before.server &&
                parts.object == before.object && parts.port == before.port);
        Require(!matches || MayBeRefused(text, Expected(match)));
    }
    return 0;
}
