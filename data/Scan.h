// Reads numbers out of text as the C library's scan functions do, the same on every system.
//
// Numbers are decimal. White space (platform::IsWhiteSpace) before a number is skipped and does not count toward its
// width; an optional sign does. Digits are 0 to 9 only. What follows the last character read is not looked at. A number
// that does not fit wraps modulo the field's width, as in the system's classic C runtime; a minus sign negates it there
// ("-1" is 0xFFFFFFFF in 32 bits).
//
// Each operation returns how many fields it assigned; a field that was not reached keeps its value. None throws; any
// thread.
#pragma once

#include "platform/Types.h"

#include <string_view>

// "%u".
int ScanUnsigned(std::wstring_view text, DWORD& value);

// "%llu".
int ScanUnsigned64(std::wstring_view text, ULONGLONG& value);

// "%4d-%2d-%2dT%2d:%2d:%2d" into year, month, day, hour, minute and second. The other fields keep their values.
int ScanDateTime(std::wstring_view text, SYSTEMTIME& time);
