// The names by which other programs of a machine find the running copies.
#pragma once

// The mutex, one per session, that a running copy holds open.
inline constexpr wchar_t kInstanceMutexName[] = L"AmporaSrvMutex";
// The mutex, one for the machine, that a copy owns during an update pass.
inline constexpr wchar_t kUpdateMutexName[] = L"Global\\AmporaSrvUpdateMutex";
// The event, one per session, that asks the session's copy for an update pass when it is set.
inline constexpr wchar_t kUpdateEventName[] = L"AmporaSrvUpdateEvent";
// The window class of a copy's hidden dialog, to which messages can be posted.
inline constexpr wchar_t kWindowClassName[] = L"Ampora";
