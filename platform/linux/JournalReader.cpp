#include "platform/linux/JournalReader.h"

#include "platform/linux/ErrorCode.h"
#include "platform/linux/Polling.h"
#include "platform/Text.h"

#include <algorithm>

namespace platform::linux {

CJournalReader::CJournalReader(JournalPtr journal, const std::string& unitName, unsigned userId)
    : m_journal(std::move(journal))
{
    // Fields of these names are the journal's own: no program can write them.
    const std::string matches[] = {"_SYSTEMD_USER_UNIT=" + unitName, "_UID=" + std::to_string(userId)};
    int result = 0;
    for (const std::string& match : matches) {
        result = std::min(result, ::sd_journal_add_match(m_journal.get(), match.c_str(), match.size()));
    }
    if (result >= 0) {
        result = ::sd_journal_seek_tail(m_journal.get());
    }
    if (result >= 0) {
        // The tail is a place only when the entry before it has been visited. Where there is none, all that come are
        // new.
        result = ::sd_journal_previous(m_journal.get());
        result = result == 0 ? ::sd_journal_seek_head(m_journal.get()) : result;
    }
    // Makes the watch of the files now, so that an entry that comes before the first wait ends that.
    if (result >= 0) {
        result = ::sd_journal_get_fd(m_journal.get());
    }
    m_error = result < 0 ? -result : 0;
}

DWORD CJournalReader::Read(DWORD timeoutMs, TraceText* text)
{
    const Deadline deadline = DeadlineAfter(timeoutMs);
    for (;;) {
        int result = ::sd_journal_next(m_journal.get());
        if (result > 0) {
            *text = {0, DecodeUtf8(Message())};
            return WAIT_OBJECT_0;
        }
        if (result == 0) {
            std::uint64_t restUs = UINT64_MAX;
            if (deadline) {
                const auto rest =
                    std::chrono::ceil<std::chrono::microseconds>(*deadline - std::chrono::steady_clock::now());
                if (rest.count() <= 0) {
                    return WAIT_TIMEOUT;
                }
                restUs = static_cast<std::uint64_t>(rest.count());
            }
            result = ::sd_journal_wait(m_journal.get(), restUs);
        }
        if (result < 0 && result != -EINTR) {
            SetLastErrorFrom(-result);
            return WAIT_FAILED;
        }
    }
}

std::string CJournalReader::Message() const
{
    const void* data = nullptr;
    std::size_t size = 0;
    if (::sd_journal_get_data(m_journal.get(), "MESSAGE", &data, &size) < 0) {
        return {};
    }
    const std::string field(static_cast<const char*>(data), size); // "MESSAGE=..."
    return field.substr(field.find('=') + 1);
}

} // namespace platform::linux
