// What answers are made of, whatever they are about. Everything may be called from any thread.
#pragma once

#include "server/Answers.h"

namespace reportd {

inline std::shared_ptr<const std::string> Share(std::string text)
{
    return std::make_shared<const std::string>(std::move(text));
}

// An answer that nobody is to keep. contentType: of a constant; fields: further header lines, each with its "\r\n".
WebAnswer PassingAnswer(unsigned status, std::string_view contentType = {}, std::string body = {},
                        std::string_view fields = {});

// One that says in JSON what is wrong (RFC 9457). title, detail: texts that need no escapes in JSON.
WebAnswer Problem(unsigned status, std::string_view title, std::string_view detail, std::string_view fields = {});

// A strong entity tag with its quotation marks: different for different texts, as far as 64 bits and the length tell.
std::string ETagOf(const std::string& text);

// Whether a value of If-None-Match names this entity tag (RFC 9110, 13.1.2).
bool IsNamed(std::string_view ifNoneMatch, std::string_view etag);

// Whether a value of Accept prefers CSV to JSON: its quality for text/csv is higher than the one for application/json
// (RFC 9110, 12.5.1).
bool PrefersTable(std::string_view accept);

} // namespace reportd
