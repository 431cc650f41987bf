// Following entries of systemd's journal.
#pragma once

#include "platform/TraceChannel.h"
#include "platform/Types.h"

#include <memory>
#include <string>
#include <systemd/sd-journal.h>

namespace platform::linux {

struct JournalCloser {
    void operator()(sd_journal* journal) const { ::sd_journal_close(journal); }
};
using JournalPtr = std::unique_ptr<sd_journal, JournalCloser>;

// Reads what one unit of a user's service manager writes, from the end of the journal on. One thread at a time.
class CJournalReader {
public:
    // journal: open; must not be null. userId: whose service manager it is.
    CJournalReader(JournalPtr journal, const std::string& unitName, unsigned userId);

    // 0, or the errno with which the entries cannot be followed.
    int Error() const { return m_error; }

    // As ReadTraceText.
    DWORD Read(DWORD timeoutMs, TraceText* text);

private:
    std::string Message() const; // of the present entry; empty when it has none

    JournalPtr m_journal;
    int m_error = 0;
};

} // namespace platform::linux
