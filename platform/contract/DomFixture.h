// Helpers for tests of documents.
#pragma once

#include "platform/Types.h"

namespace contract {

// Whether this is wine's MSXML, which differs from the documented one: it drops a prefix that nobody declared,
// joins CDATA sections, and refuses wide text for some of the encodings that it declares.
bool IsWineDom();

// The text as often as count says.
inline CString Repeated(const CString& text, std::size_t count)
{
    CString all;
    all.reserve(text.size() * count);
    for (std::size_t i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

} // namespace contract
