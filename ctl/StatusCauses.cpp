#include "ctl/StatusCauses.h"

#include "ctl/TimeText.h"
#include "platform/Text.h"

#include <algorithm>

namespace ctl {

namespace {

using platform::FormatText;

bool IsStale(Freshness freshness)
{
    return freshness == Freshness::kMissing || freshness == Freshness::kOld || freshness == Freshness::kEmpty;
}

CString NameOf(const JudgedFile& file)
{
    return CString(file.known.company.name.Wide()) + L" " + file.known.kind.name.Wide();
}

// "Tokyo instant usage", "Tokyo instant usage and 3 more"; empty when no file stands so.
CString NamesOf(const std::vector<JudgedFile>& files, Freshness freshness)
{
    const auto stands = [freshness](const JudgedFile& file) { return file.freshness == freshness; };
    const auto first = std::ranges::find_if(files, stands);
    if (first == files.end()) {
        return {};
    }
    const auto count = std::ranges::count_if(files, stands);
    return NameOf(*first) + (count == 1 ? CString() : FormatText(L" and %d more", static_cast<int>(count - 1)));
}

void AddCopyCauses(const StatusFacts& facts, std::vector<Cause>& causes)
{
    if (!facts.runs) {
        causes.push_back({"notRunning", L"amporasrv is not running: start it with 'amporactl start'"});
    } else if (facts.isPaused) {
        causes.push_back({"paused", L"amporasrv makes no passes now, because the machine suspends or the session has "
                                    L"been left: it goes on after that"});
    }
    if (!facts.isEnabled) {
        causes.push_back({"updatingOff", L"updating is off: switch it on with 'amporactl config set Enable 1 "
                                         L"--machine', then ask for a pass with 'amporactl update'"});
    }
    if (std::ranges::all_of(facts.files, [](const auto& file) { return file.freshness == Freshness::kUnwanted; })) {
        causes.push_back(
            {"nothingWanted", L"the settings switch all companies or kinds off: see 'amporactl config list'"});
    }
    for (const CString& line : facts.unusable) {
        causes.push_back({"folder", L"amporasrv " + line + L": let every user write there"});
    }
    if (!facts.hasFolder) {
        causes.push_back({"noFolder", L"there is no folder " + facts.folder + L": the first pass makes it"});
    }
    if (!facts.isOnLine) {
        causes.push_back({"offLine", L"the machine is off line: amporasrv asks nobody until it has a network"});
    }
}

// What the probe says about the report API; empty when that is all right.
Cause ProbeCause(const CString& api, const Probe& probe)
{
    const CString see = L": is the setting ApiHost right?";
    switch (probe.result) {
    case ProbeResult::kReport:
        return {};
    case ProbeResult::kNoData:
        return {"apiNoData", api + L" has no data for today (status 503): look at its own log or page"};
    case ProbeResult::kErrorStatus:
        return {"apiStatus", api + FormatText(L" answers with status %u", probe.status) + see};
    case ProbeResult::kNoReport:
        return {"apiNoReport", api + L" answers with something that is no report" + see};
    case ProbeResult::kRefused:
        return {"apiRefused",
                api + L" refuses the connection: start the report server, or correct the setting ApiHost"};
    case ProbeResult::kNameUnknown:
        return {"apiUnknown", L"the name of " + api + L" is not known" + see};
    case ProbeResult::kTimedOut:
        return {"apiTimeOut", api + L" does not answer within 5 seconds: look at the network and the report server"};
    case ProbeResult::kNoAnswer:
        return {"apiNoAnswer", api + L" breaks the connection off: look at the report server and at proxies"};
    case ProbeResult::kHostUnusable:
        break;
    }
    return {"apiHost", L"the setting ApiHost is no host or host:port: correct it with 'amporactl config set ApiHost "
                       L"HOST:PORT'"};
}

void AddFileCauses(const StatusFacts& facts, std::vector<Cause>& causes)
{
    for (const JudgedFile& file : facts.files) {
        if (file.freshness == Freshness::kFaulty) {
            causes.push_back({"faulty", NameOf(file) + L" is faulty, " + file.known.content.reason +
                                            L": the next pass replaces it"});
        }
    }
    const struct {
        Freshness freshness;
        const char* code;
        CString text;
    } groups[] = {
        {Freshness::kUndated, "undated", L": the time of writing is unknown; the next pass replaces it"},
        {Freshness::kFuture, "future",
         L": written in the future; has the clock been put back? The next pass replaces it"},
        {Freshness::kEmpty, "empty", L": no records, because the report API had no data at the last pass"},
        {Freshness::kMissing, "missing", L": no file yet"},
        {Freshness::kOld, "old", L": older than " + DurationText(facts.maxAgeSeconds)},
    };
    for (const auto& group : groups) {
        if (const CString names = NamesOf(facts.files, group.freshness); !names.empty()) {
            causes.push_back({group.code, names + group.text});
        }
    }
}

} // namespace

bool IsAllFresh(const std::vector<JudgedFile>& files)
{
    const auto isFresh = [](const JudgedFile& file) { return file.freshness == Freshness::kFresh; };
    return std::ranges::any_of(files, isFresh) && std::ranges::all_of(files, [&](const JudgedFile& file) {
               return isFresh(file) || file.freshness == Freshness::kUnwanted;
           });
}

const JudgedFile* FirstStale(const std::vector<JudgedFile>& files)
{
    const auto found = std::ranges::find_if(files, [](const JudgedFile& file) { return IsStale(file.freshness); });
    return found == files.end() ? nullptr : &*found;
}

std::vector<Cause> CausesOf(const StatusFacts& facts)
{
    std::vector<Cause> causes;
    AddCopyCauses(facts, causes);
    if (facts.probe) {
        if (Cause cause = ProbeCause(L"the report API at " + facts.apiHost, *facts.probe); !cause.text.empty()) {
            causes.push_back(std::move(cause));
        }
    }
    // With nothing else in the way.
    const bool mayBeAsked = causes.empty() && facts.probe;
    AddFileCauses(facts, causes);
    if (mayBeAsked) {
        causes.push_back({"ask", L"nothing is in the way of a pass: ask for one with 'amporactl update --wait'"});
    }
    return causes;
}

} // namespace ctl
