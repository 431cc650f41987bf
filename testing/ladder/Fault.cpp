#include "testing/ladder/Fault.h"

#include "platform/sim/Faults.h"
#include "platform/sim/Scheduler.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace ladder {

namespace {

using enum Call;

constexpr const char* kOwnNames[] = {"ApplicationMemory", "WorkerMemory", "AnyCall"};

constexpr DWORD kFail = static_cast<DWORD>(E_FAIL);
constexpr DWORD kNoInterface = static_cast<DWORD>(E_NOINTERFACE);
constexpr DWORD kFalse = static_cast<DWORD>(S_FALSE); // no failure, but no result either
constexpr DWORD kDenied = ERROR_ACCESS_DENIED;

constexpr char kNoData[] = "ERR Get Data Fail";
constexpr char kNoRoot[] = "ERR Tag name invalid";
constexpr char kArm[] = "ERR Timer Start Fail.(0x%08X)";
constexpr char kNotArmed[] = "ERR Next UpdateTimer Start Fail|ERR Start UpdateTimer Fail";
constexpr char kConnect[] = "ERR CHttpConnection Create Fail.";
constexpr char kSend[] = "ERR SendRequest Fail.";
constexpr char kStatus[] = "ERR QueryInfoStatusCode Fail.";
constexpr char kThrown[] = "WAR Exception!";
constexpr char kFolder[] = "ERR Get Common App Folder Fail.";
constexpr unsigned kDay = kOld | kPart; // the records of a day are missing, or some of them

// One row each; a scenario's own row stands before the one for all.
constexpr Contract kContracts[] = {
    {kTimeToLocalCalendar, "base", 0, nullptr, nullptr, kDay, kOnSuspend},
    {kTimeToLocalCalendar, nullptr, 0, nullptr, nullptr, kDay, kByItself},
    {kLocalCalendarToTime, "base", 0, nullptr, nullptr, kDay, kOnSuspend},
    {kLocalCalendarToTime, nullptr, 0, nullptr, nullptr, kDay, kByItself},
    {kCalendarToFileTime, "base", 0, nullptr, nullptr, kOld | kPart | kOther, kByItself},
    {kCalendarToFileTime, nullptr, 0, nullptr, nullptr, kPart | kOther, kByItself},
    {kLocalToUtcFileTime, nullptr, 0, nullptr, nullptr, kNew, kByItself},
    {kQuerySettingsValue, nullptr, kDenied, nullptr, nullptr, kDay, kByItself},
    {kOutputDebugText, nullptr, 0, nullptr, nullptr, kNew, kByItself},
    {kStartThread, nullptr, kDenied, "ERR Thread Create Fail", "ERR Start Fail.", kOld, kOnResume},
    {kCreateNamedMutex, nullptr, kDenied, "ERR Creatre Mutex Fail.|ERR CreateMutex Fail.", nullptr, kOld | kNew,
     kOnResume},
    {kCreateNamedMutex, nullptr, ERROR_ALREADY_EXISTS, "ERR Creatre Mutex Fail.|ERR CreateMutex Fail.", nullptr,
     kOld | kNew, kOnResume},
    {kCreateNamedMutexThrows, "console", 0, "ERR SessionChange Exception", nullptr, kOld, kOnResume},
    {kCreateNamedMutexThrows, "leave", 0, "ERR SessionChange Exception", nullptr, kOld, kOnResume},
    {kCreateNamedMutexThrows, "power", 0, "ERR PowerEvent Exception", nullptr, kOld, kOnResume},
    {kCreateNamedMutexThrows, nullptr, 0, nullptr, nullptr, kOld, kOnRestart},
    {kCreateNamedEvent, nullptr, kDenied, "ERR CreateEvent Fail.", nullptr, kOld, kOnResume},
    {kPulseNamedEventMisses, nullptr, 0, nullptr, nullptr, kNew, kByItself},
    {kReleaseOwnedMutex, nullptr, kDenied, nullptr, nullptr, kNew, kByItself},
    {kWaitForOne, "base", kDenied, nullptr, nullptr, kOld, kOnSuspend},
    {kWaitForOne, nullptr, kDenied, nullptr, nullptr, kNew, kOnSuspend},
    {kWaitForAny, nullptr, kDenied, nullptr, nullptr, kNew, kByItself},
    {kMakeTimer, "base", kDenied, "ERR Timer Create Fail.(0x%08X)", "ERR Timer Create Fail", kOld, kOnEvent},
    {kMakeTimer, nullptr, kDenied, "ERR Timer Create Fail.(0x%08X)", "ERR Timer Create Fail", kNew, kOnEvent},
    {kArmTimer, nullptr, kDenied, kArm, kNotArmed, kNew, kOnEvent},
    {kDisarmTimer, nullptr, kDenied, "WAR Timer Cancel Fail.(0x%08X)", nullptr, kNew, kByItself},
    {kInitializeDescriptor, nullptr, kDenied, "ERR InitializeSecurityDescriptor Fail.", nullptr, kOld, kOnResume},
    {kSetNullDacl, nullptr, kDenied, "ERR SetSecurityDescriptorDacl Fail.", nullptr, kOld, kOnResume},
    {kOpenHttpSession, nullptr, kDenied, kConnect, kNoData, kOld, kOnRestart},
    {kOpenHttpConnection, nullptr, kDenied, kConnect, kNoData, kDay, kByItself},
    {kOpenHttpConnectionThrows, nullptr, kDenied, kConnect, kNoData, kDay, kByItself},
    {kOpenHttpRequest, nullptr, kDenied, kSend, kNoData, kDay, kByItself},
    {kOpenHttpRequestThrows, nullptr, kDenied, nullptr, nullptr, kOld, kByItself},
    {kSendHttpRequest, nullptr, kDenied, kSend, kNoData, kDay, kByItself},
    {kSendHttpRequestThrows, nullptr, kDenied, kThrown, kNoData, kDay, kByItself},
    {kQueryHttpStatusCode, nullptr, kDenied, kStatus, kNoData, kDay, kByItself},
    {kQueryHttpStatusCodeThrows, nullptr, kDenied, kThrown, kNoData, kDay, kByItself},
    {kReadHttpBody, nullptr, kDenied, kThrown, kNoData, kDay, kByItself},
    {kCreateDomDocument, nullptr, kFail, "WAR Load Exception", kNoRoot, kDay, kByItself},
    {kCreateDomDocument, nullptr, kNoInterface, "WAR Load Exception", kNoRoot, kDay, kByItself},
    {kLoadDomText, nullptr, kFail, "ERR XML Load fail.(0x08X)", kNoRoot, kDay, kByItself},
    {kLoadDomText, nullptr, kFalse, "ERR XML Load fail.(0x08X)", kNoRoot, kDay, kByItself},
    {kLoadDomTextThrows, nullptr, 0, "WAR Load Exception", kNoRoot, kDay, kByItself},
    {kGetDomDocumentElement, nullptr, kFail, "ERR XML Document Element get fail.(0x08X)", kNoRoot, kDay, kByItself},
    {kGetDomDocumentElement, nullptr, kFalse, kNoRoot, "ERR Analyze Error", kDay, kByItself},
    {kGetDomChildNodes, nullptr, kFail, "ERR ChildNode get fail.(0x08X)", "ERR Node Parameter NULL.", kDay, kByItself},
    {kGetDomItem, nullptr, kFail, "ERR Node get fail.(0x08X)", nullptr, kDay, kByItself},
    {kGetDomItem, nullptr, kFalse, nullptr, nullptr, kDay, kByItself},
    {kGetDomLength, nullptr, kFail, "ERR ChildName Count get fail.(0x08X)", nullptr, kDay, kByItself},
    {kGetDomAttributes, nullptr, kFail, "ERR Attribute get fail.(0x08X)",
     "ERR NO Attribute.|ERR NOT supply Attributes|ERR NOT demand Attributes", kDay, kByItself},
    {kGetDomNodeName, nullptr, kFail, "ERR Tag Name get fail.(0x08X)", nullptr, kDay, kByItself},
    {kGetDomText, nullptr, kFail, "ERR Tag Value get fail.(0x08X)", nullptr, kZero, kByItself},
    {kGetDomNamedItem, nullptr, kFail, "ERR Target Attribute get fail.(0x%08X)",
     "ERR Node Value Get Fail.|ERR NO duration Attribute.", kDay, kByItself},
    {kGetDomNamedItem, nullptr, kFalse, "ERR Node Value Get Fail.|ERR NO duration Attribute.", nullptr, kDay,
     kByItself},
    {kGetDomNodeValue, nullptr, kFail, "ERR Target Attribute Value get fail.(0x%08X)",
     "ERR Node Value Get Fail.|ERR NO duration Attribute.", kDay, kByItself},
    {kGetCommonAppDataFolder, nullptr, kDenied, kFolder, "ERR Save Folder Path Get Fail.", kOld | kStray, kByItself},
    {kMakeFolder, nullptr, kDenied, "WAR Save Folder Create Fail", "ERR Open Fail.", kOld, kByItself},
    {kOpenForReplace, nullptr, kDenied, "ERR Open Fail.", nullptr, kOld, kByItself},
    {kWriteFileBytes, nullptr, ERROR_DISK_FULL, nullptr, nullptr, kCut, kByItself},
    {kInitializeControls, nullptr, kDenied, nullptr, nullptr, kNew, kByItself},
    {kRegisterDialogClass, nullptr, kDenied, nullptr, nullptr, kOld, kOnRestart},
    {kCreateDialogWindow, nullptr, kDenied, nullptr, nullptr, kOld, kOnRestart},
    {kRegisterSessionNotices, nullptr, kDenied, nullptr, nullptr, kNew, kByItself},
    {kPostToWindow, nullptr, kDenied, nullptr, nullptr, kNew, kByItself},
    {kApplicationMemory, nullptr, 0, nullptr, nullptr, kOld | kNew, kOnRestart},
    {kWorkerMemory, nullptr, 0, nullptr, nullptr, kDay | kZero, kOnSuspend},
    {kAnyCall, nullptr, 0, nullptr, nullptr, kDay | kCut | kOther | kStray, kOnRestart},
};

} // namespace

std::string CallName(Call call)
{
    return call < kCount ? platform::sim::NameOf(call) : kOwnNames[IndexOf(call) - IndexOf(kCount)];
}

std::optional<Call> CallNamed(const std::string& name)
{
    for (std::size_t i = 0; i < kCalls; ++i) {
        if (CallName(static_cast<Call>(i)) == name) {
            return static_cast<Call>(i);
        }
    }
    return std::nullopt;
}

const Contract& ContractOf(Call call, const std::string& scenario, std::optional<DWORD> code)
{
    const auto* const found = std::ranges::find_if(kContracts, [&](const Contract& one) {
        return one.call == call && (one.scenario == nullptr || one.scenario == scenario) &&
               one.code == code.value_or(one.code);
    });
    if (found == std::end(kContracts)) {
        platform::sim::EndProgram("no contract for " + CallName(call));
    }
    return *found;
}

std::vector<DWORD> CodesOf(Call call)
{
    std::vector<DWORD> codes;
    for (const Contract& one : kContracts) {
        if (one.call == call && std::ranges::find(codes, one.code) == codes.end()) {
            codes.push_back(one.code);
        }
    }
    return codes;
}

std::optional<DWORD> CodeAmongAll(Call call)
{
    static const auto kCodes = [] {
        std::array<std::optional<DWORD>, kCalls> codes;
        for (std::size_t i = 0; i < IndexOf(kCount); ++i) {
            const auto one = static_cast<Call>(i);
            const std::vector<DWORD> known = CodesOf(one);
            if (!known.empty() && !CallName(one).ends_with("Throws") && one != kOutputDebugText) {
                codes.at(i) = known.front();
            }
        }
        return codes;
    }();
    return kCodes.at(IndexOf(call));
}

} // namespace ladder
