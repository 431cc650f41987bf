// Splits a URL.
#pragma once

#include "platform/Types.h"

// Service types of a URL. Source: Windows SDK, wininet.h; MFC, afxinet.h.
inline constexpr DWORD kServiceFtp = 1;
inline constexpr DWORD kServiceHttp = 3;
inline constexpr DWORD kServiceHttps = 4107;

struct UrlParts {
    DWORD serviceType = 0;
    CString server; // host name or address; an IPv6 address with its brackets
    CString object; // path and query, "/" when the URL has none; never a fragment
    WORD port = 0;  // the service's default port when the URL has none
};

// Splits "scheme://host[:port][/path][?query][#fragment]"; the scheme is ftp, http or https in any case.
// False, *parts untouched, for anything else: another scheme, an empty host or one of other characters than ASCII
// letters, digits, '-', '.' and '_', a user name, an empty port or one outside 1 to 65535, and white space or a control
// character anywhere. parts: must not be null. Throws std::bad_alloc only. Any thread.
bool SplitUrl(const CString& url, UrlParts* parts);
