// UTF-16 in little-endian bytes, as settings and files have it, to wide text and back. The same on every system;
// stateless, any thread.
#pragma once

#include "platform/Types.h"

#include <span>
#include <string_view>
#include <vector>

namespace platform::portable {

// Decodes all units, zeros included; an odd last byte is dropped. Surrogate pairs are joined where wchar_t has 32 bits;
// lone surrogates stay what they are.
CString DecodeUtf16(std::span<const BYTE> bytes);

// The inverse. Values above U+10FFFF become U+FFFD.
std::vector<BYTE> EncodeUtf16(std::wstring_view text);

} // namespace platform::portable
