#include "fetch/Url.h"

#include "platform/LetterCase.h"

#include <algorithm>
#include <optional>
#include <string_view>

namespace {

struct Scheme {
    std::wstring_view name;
    DWORD serviceType;
    WORD defaultPort;
};

constexpr Scheme kSchemes[] = {
    {L"ftp", kServiceFtp, 21},
    {L"http", kServiceHttp, 80},
    {L"https", kServiceHttps, 443},
};

constexpr std::wstring_view kHostCharacters = L"abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._";
constexpr std::wstring_view kAddressCharacters = L"0123456789abcdefABCDEF:.";

// Blanks and control characters of ASCII and Latin-1, and those blanks of Unicode that copied text may contain.
bool IsBlankOrControl(wchar_t character)
{
    return character <= 0x20 || (character >= 0x7F && character <= 0xA0) || character == 0x1680 ||
           (character >= 0x2000 && character <= 0x200F) || (character >= 0x2028 && character <= 0x202F) ||
           character == 0x205F || character == 0x3000 || character == 0xFEFF;
}

bool ConsistsOf(std::wstring_view text, std::wstring_view characters)
{
    return !text.empty() && text.find_first_not_of(characters) == std::wstring_view::npos;
}

bool IsHost(std::wstring_view host)
{
    if (host.starts_with(L'[')) {
        return host.ends_with(L']') && ConsistsOf(host.substr(1, host.size() - 2), kAddressCharacters);
    }
    return ConsistsOf(host, kHostCharacters);
}

std::optional<WORD> PortOf(std::wstring_view text)
{
    if (!ConsistsOf(text, L"0123456789") || text.size() > 5) {
        return std::nullopt;
    }
    unsigned port = 0;
    for (const wchar_t digit : text) {
        port = port * 10 + static_cast<unsigned>(digit - L'0');
    }
    return port >= 1 && port <= 65535 ? std::optional(static_cast<WORD>(port)) : std::nullopt;
}

// The end of the host in "host[:port]".
std::size_t HostLength(std::wstring_view authority)
{
    const std::size_t addressEnd = authority.starts_with(L'[') ? authority.find(L']') : 0;
    return addressEnd == std::wstring_view::npos ? authority.size()
                                                 : std::min(authority.find(L':', addressEnd), authority.size());
}

} // namespace

bool SplitUrl(const CString& url, UrlParts* parts)
{
    const std::wstring_view text(url);
    const std::size_t schemeLength = text.find(L"://");
    if (schemeLength == std::wstring_view::npos || std::any_of(text.begin(), text.end(), IsBlankOrControl)) {
        return false;
    }
    const auto* const scheme = std::find_if(std::begin(kSchemes), std::end(kSchemes), [&](const Scheme& known) {
        return platform::EqualsWithoutCase(text.substr(0, schemeLength), known.name);
    });
    if (scheme == std::end(kSchemes)) {
        return false;
    }
    const std::wstring_view rest = text.substr(schemeLength + 3);
    const std::size_t authorityLength = std::min(rest.find_first_of(L"/?#"), rest.size());
    const std::wstring_view authority = rest.substr(0, authorityLength);
    const std::wstring_view host = authority.substr(0, HostLength(authority));
    const std::wstring_view port = authority.substr(host.size());
    const std::optional<WORD> portNumber = port.empty() ? scheme->defaultPort : PortOf(port.substr(1));
    if (!IsHost(host) || !portNumber) {
        return false;
    }
    const std::wstring_view object = rest.substr(authorityLength, rest.find(L'#') - authorityLength);
    *parts = {scheme->serviceType, CString(host), CString(object.starts_with(L'/') ? L"" : L"/"), *portNumber};
    parts->object += object;
    return true;
}
