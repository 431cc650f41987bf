// Fetches one URL as text.
#pragma once

#include "platform/Http.h"

// Longest body that is received. A report of 100,000 usages fits; decoded and parsed, a body takes many times its
// length.
inline constexpr std::size_t kMaxBodyBytes = std::size_t{8} * 1024 * 1024;

// An HTTP session that lives as long as the client. Used by one thread at a time.
class CAmporaHttpClient {
public:
    CAmporaHttpClient();
    virtual ~CAmporaHttpClient();
    CAmporaHttpClient(const CAmporaHttpClient&) = delete;
    CAmporaHttpClient& operator=(const CAmporaHttpClient&) = delete;

    // Gets a URL. body: the answer's text, up to its first zero byte, is appended. status: the HTTP status code, once
    // it is known. TRUE when there was an answer: with a status of 400 or more nothing is read and body stays as it
    // was. FALSE, traced, when the machine is off line, the download fails or the body is longer than kMaxBodyBytes;
    // last error 14 when no connection could be made. Throws platform::CInternetException when the system cannot
    // prepare the request.
    BOOL GetData(CString strUrl, CString& body, DWORD& status);

    // Decodes UTF-8 up to the first zero. bytes: length bytes, the last of them the terminating zero. Ill-formed bytes
    // become U+FFFD; empty when memory runs out.
    static CString ConvertFromUtf8(const char* bytes, std::size_t length);

private:
    platform::HttpSessionPtr m_session;
};
