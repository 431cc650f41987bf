// The languages of the pages.
#pragma once

#include <string_view>

namespace reportd {

enum class Language { kEnglish, kJapanese };

// The language of a page: queryLanguage ("en" or "ja", the value of the parameter lang) decides; with any other value,
// or none (empty), the language that the header field Accept-Language prefers (RFC 9110, 12.5.4); English when it
// prefers neither or is malformed. Any thread.
Language LanguageOf(std::string_view acceptLanguage, std::string_view queryLanguage);

// "en" or "ja".
std::string_view CodeOf(Language language);

} // namespace reportd
