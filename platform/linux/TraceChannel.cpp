#include "platform/TraceChannel.h"

#include "platform/LastError.h"
#include "platform/linux/ErrorCode.h"
#include "platform/linux/JournalReader.h"
#include "platform/Text.h"

#include <cstdlib>
#include <systemd/sd-login.h>
#include <unistd.h>

namespace platform {

class CTraceChannel : public linux::CJournalReader {
public:
    using CJournalReader::CJournalReader;
};

namespace {

// Whether the user's service manager runs a process as this unit.
bool IsProcessOfUnit(DWORD processId, const std::string& unitName)
{
    char* found = nullptr;
    if (::sd_pid_get_user_unit(static_cast<pid_t>(processId), &found) < 0) {
        return false;
    }
    const std::string name = found;
    std::free(found); // libsystemd hands over memory of malloc
    return name == unitName;
}

bool IsJournalThere() { return ::access("/run/systemd/journal/stdout", F_OK) == 0; }

} // namespace

TraceChannelPtr OpenTraceChannel(const wchar_t* unitName, DWORD processId)
{
    const std::string unit = EncodeUtf8(unitName);
    if (processId == 0 ? !IsJournalThere() : !IsProcessOfUnit(processId, unit)) {
        SetLastErrorCode(ERROR_NOT_SUPPORTED);
        return nullptr;
    }
    sd_journal* journal = nullptr;
    const int opened = ::sd_journal_open(&journal, SD_JOURNAL_LOCAL_ONLY);
    if (opened < 0) {
        linux::SetLastErrorFrom(-opened);
        return nullptr;
    }
    auto channel = std::make_shared<CTraceChannel>(linux::JournalPtr(journal), unit, ::getuid());
    if (channel->Error() != 0) {
        linux::SetLastErrorFrom(channel->Error());
        return nullptr;
    }
    return channel;
}

DWORD ReadTraceText(const TraceChannelPtr& channel, DWORD timeoutMs, TraceText* text)
{
    if (!channel) {
        SetLastErrorCode(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    return channel->Read(timeoutMs, text);
}

} // namespace platform
