#include "data/GSXMLAnalyzer.h"

#include "config/TraceLog.h"
#include "data/Scan.h"
#include "format/Catalogue.h"
#include "platform/Clock.h"

#include <utility>

namespace {

using platform::DomAttributeMapPtr;
using platform::DomElementPtr;
using platform::DomNodeListPtr;
using platform::DomNodePtr;

constexpr wchar_t kAnalyzeData[] = L"CGSXMLAnalyzer::AnalyzeData";

constexpr wchar_t kRootTag[] = L"power_report";
constexpr const catalogue::Kind& kInstant = *catalogue::FindKind(catalogue::kInstantUsage);
constexpr const catalogue::Kind& kActual = *catalogue::FindKind(catalogue::kActualUsage);
constexpr const catalogue::Kind& kEstimated = *catalogue::FindKind(catalogue::kEstimatedUsage);
constexpr const catalogue::Kind& kSupply = *catalogue::FindKind(catalogue::kPeakSupply);
constexpr const catalogue::Kind& kDemand = *catalogue::FindKind(catalogue::kPeakDemand);

constexpr wchar_t kOtherName[] = L"Tag name invalid";

using AnalyzeTag = BOOL (CGSXMLAnalyzer::*)(const DomNodePtr&, CAmporaDataCollection*);

// An element below the root and who reads it.
struct TagHandler {
    const wchar_t* name;
    AnalyzeTag analyze;
    const wchar_t* success;
    const wchar_t* fail;
};

constexpr TagHandler kHandlers[] = {
    {kInstant.element.Wide(), &CGSXMLAnalyzer::AnalyzeInstantTag, L"Instant Tag Success", L"Instant Tag Fail"},
    {kActual.element.Wide(), &CGSXMLAnalyzer::AnalyzeActualTag, L"Actual Tag Success", L"Actual Tag Fail"},
    {kEstimated.element.Wide(), &CGSXMLAnalyzer::AnalyzeEstimatedTag, L"Estimated Tag Success", L"Estimated Tag Fail"},
    {kSupply.element.Wide(), &CGSXMLAnalyzer::AnalyzePeakSupplyTag, L"PeakSupply Tag Success", L"PeakSupply Tag Fail"},
    {kDemand.element.Wide(), &CGSXMLAnalyzer::AnalyzePeakDemandTag, L"PeakDemand Tag Success", L"PeakDemand Tag Fail"},
};

// Loads with Load or LoadFile of the parser; null also when that throws.
template <class LoadCall>
DomElementPtr LoadGuarded(LoadCall load, const CTraceLog& log, const wchar_t* failed)
{
    try {
        return load();
    } catch (...) {
        log.War(failed);
        return nullptr;
    }
}

// Whether there is a node and it has this name.
template <class NodePtr>
bool HasName(CXMLParser& parser, const NodePtr& node, const wchar_t* name)
{
    if (!node) {
        return false;
    }
    const CString tagName = parser.GetTagName(node);
    return tagName == name;
}

} // namespace

struct CGSXMLAnalyzer::PeakTexts {
    const wchar_t* tagName;
    const wchar_t* childName;
    const wchar_t* otherChild;
    const wchar_t* noAttributes;
};

CGSXMLAnalyzer::CGSXMLAnalyzer() { const CTraceScope scope(L"CGSXMLAnalyzer::CGSXMLAnalyzer"); }

CGSXMLAnalyzer::~CGSXMLAnalyzer() { const CTraceScope scope(L"CGSXMLAnalyzer::~CGSXMLAnalyzer"); }

std::unique_ptr<CAmporaDataCollection> CGSXMLAnalyzer::AnalyzeData(CString strXml)
{
    return AnalyzeData(
        LoadGuarded([&] { return Load(std::move(strXml)); }, CTraceLog(kAnalyzeData), L"Load Exception"));
}

std::unique_ptr<CAmporaDataCollection> CGSXMLAnalyzer::AnalyzeFile(CString strPath)
{
    const CTraceLog log(L"CGSXMLAnalyzer::AnalyzeFile");
    return AnalyzeData(LoadGuarded([&] { return LoadFile(std::move(strPath)); }, log, L"Load File Exception"));
}

BOOL CGSXMLAnalyzer::AnalyzeInstantTag(const DomNodePtr& node, CAmporaDataCollection* collection)
{
    return AnalyzeUsages(L"CGSXMLAnalyzer::AnalyzeInstantTag", node, collection, kInstant.element.Wide(), kOtherName);
}

BOOL CGSXMLAnalyzer::AnalyzeActualTag(const DomNodePtr& node, CAmporaDataCollection* collection)
{
    return AnalyzeUsages(L"CGSXMLAnalyzer::AnalyzeActualTag", node, collection, kActual.element.Wide(),
                         L"Tag Name invalid");
}

BOOL CGSXMLAnalyzer::AnalyzeEstimatedTag(const DomNodePtr& node, CAmporaDataCollection* collection)
{
    return AnalyzeUsages(L"CGSXMLAnalyzer::AnalyzeEstimatedTag", node, collection, kEstimated.element.Wide(),
                         kOtherName);
}

BOOL CGSXMLAnalyzer::AnalyzePeakSupplyTag(const DomNodePtr& node, CAmporaDataCollection* collection)
{
    return AnalyzePeak(L"CGSXMLAnalyzer::AnalyzePeakSupplyTag", node, collection,
                       {kSupply.element.Wide(), kSupply.item.Wide(), L"NOT supply tag", L"NOT supply Attributes"});
}

BOOL CGSXMLAnalyzer::AnalyzePeakDemandTag(const DomNodePtr& node, CAmporaDataCollection* collection)
{
    return AnalyzePeak(L"CGSXMLAnalyzer::AnalyzePeakDemandTag", node, collection,
                       {kDemand.element.Wide(), kDemand.item.Wide(), L"NOT demand tag", L"NOT demand Attributes"});
}

std::unique_ptr<CAmporaDataCollection> CGSXMLAnalyzer::AnalyzeData(const DomElementPtr& element)
{
    const CTraceScope scope(kAnalyzeData);
    if (!HasName(*this, element, kRootTag)) {
        scope.Err(kOtherName);
        return nullptr;
    }
    const DomNodeListPtr children = GetChildNodes(element);
    const LONG count = GetChildCount(children);
    if (count == 0) {
        return nullptr;
    }
    std::unique_ptr<CAmporaDataCollection> collection;
    try {
        collection = std::make_unique<CAmporaDataCollection>();
    } catch (...) {
        scope.Err(L"Collection Create Fail");
        return nullptr;
    }
    for (LONG index = 0; index < count; ++index) {
        if (const DomNodePtr child = GetNode(children, index)) {
            AnalyzeChild(scope, child, collection.get());
        }
    }
    return collection;
}

BOOL CGSXMLAnalyzer::AnalyzeUsageTag(const DomNodePtr& node, SYSTEMTIME& start, DWORD& durationSeconds,
                                     ULONGLONG& value)
{
    const CTraceScope scope(L"CGSXMLAnalyzer::AnalyzeUsageTag");
    if (!HasName(*this, node, kInstant.item.Wide())) {
        scope.Err(kOtherName);
        return FALSE;
    }
    const DomAttributeMapPtr attributes = GetNodeAttributes(node);
    if (!attributes) {
        scope.Err(L"NO Attribute.");
        return FALSE;
    }
    if (!GetAttribue(attributes, L"datetime", start)) {
        scope.Err(L"NO datetime Attribute.");
        return FALSE;
    }
    CString duration;
    if (!CXMLParser::GetAttribue(attributes, L"duration", duration)) {
        scope.Err(L"NO duration Attribute.");
        return FALSE;
    }
    ScanUnsigned(duration, durationSeconds);
    ScanUnsigned64(GetTagValue(node), value);
    return TRUE;
}

BOOL CGSXMLAnalyzer::GetAttribue(const DomAttributeMapPtr& attributes, CString strName, SYSTEMTIME& time)
{
    const CTraceScope scope(L"CGSXMLAnalyzer::GetAttribue");
    CString text;
    if (!CXMLParser::GetAttribue(attributes, std::move(strName), text)) {
        scope.Err(L"Node Value Get Fail.");
        return FALSE;
    }
    ScanDateTime(text, time);
    time.wDayOfWeek = 0;
    time.wMilliseconds = 0;

    // To FILETIME and back fills in the day of week. An invalid time leaves the count at 0, which is in the year 1601.
    FILETIME count{};
    platform::CalendarToFileTime(&time, &count);
    platform::FileTimeToCalendar(&count, &time);
    return TRUE;
}

BOOL CGSXMLAnalyzer::AnalyzeUsages(const wchar_t* function, const DomNodePtr& node, CAmporaDataCollection* collection,
                                   const wchar_t* tagName, const wchar_t* otherName)
{
    const CTraceScope scope(function);
    if (!HasName(*this, node, tagName)) {
        scope.Err(otherName);
        return FALSE;
    }
    if (collection == nullptr) {
        scope.Err(L"Parameter is invalid");
        return FALSE;
    }
    const DomNodeListPtr children = GetChildNodes(node);
    const LONG count = GetChildCount(children);
    if (count == 0) {
        scope.War(L"Data Not Set.");
        return FALSE;
    }
    for (LONG index = 0; index < count; ++index) {
        const DomNodePtr child = GetNode(children, index);
        SYSTEMTIME start{};
        DWORD durationSeconds = 0;
        ULONGLONG value = 0;
        if (child && AnalyzeUsageTag(child, start, durationSeconds, value)) {
            collection->AddAmporaData(start, static_cast<LONG>(durationSeconds), value);
        }
    }
    return TRUE;
}

BOOL CGSXMLAnalyzer::AnalyzePeak(const wchar_t* function, const DomNodePtr& node, CAmporaDataCollection* collection,
                                 const PeakTexts& texts)
{
    const CTraceScope scope(function);
    const auto fail = [&scope](const wchar_t* message) {
        scope.Err(message);
        return FALSE;
    };
    if (!HasName(*this, node, texts.tagName)) {
        return fail(kOtherName);
    }
    if (collection == nullptr) {
        return fail(L"Parameter is invalid");
    }
    const DomNodeListPtr children = GetChildNodes(node);
    if (GetChildCount(children) == 0) {
        scope.War(L"Data Not Set.");
        return FALSE;
    }
    const DomNodePtr child = GetNode(children, 0);
    if (!child) {
        return FALSE;
    }
    if (GetTagName(child) != texts.childName) {
        return fail(texts.otherChild);
    }
    const DomAttributeMapPtr attributes = GetNodeAttributes(child);
    if (!attributes) {
        return fail(texts.noAttributes);
    }
    SYSTEMTIME start{};
    SYSTEMTIME end{};
    ULONGLONG value = 0;
    if (!GetAttribue(attributes, L"start", start)) {
        return fail(L"NOT start Attribute");
    }
    if (!GetAttribue(attributes, L"end", end)) {
        return fail(L"NOT end Attribute");
    }
    ScanUnsigned64(GetTagValue(child), value);
    return collection->AddAmporaData(start, end, value);
}

// Hands a child of the root to its handler and logs the outcome; a failure stops nothing.
void CGSXMLAnalyzer::AnalyzeChild(const CTraceLog& log, const DomNodePtr& child, CAmporaDataCollection* collection)
{
    const CString name = GetTagName(child);
    for (const TagHandler& handler : kHandlers) {
        if (name != handler.name) {
            continue;
        }
        if ((this->*handler.analyze)(child, collection)) {
            log.Tra(handler.success);
        } else {
            log.Err(handler.fail);
        }
        return;
    }
    log.War(L"Unknown Tag.(%s)", name);
}
