// The analyzer of power reports.
#pragma once

#include "data/AmporaAnalyzer.h"
#include "data/XMLParser.h"

class CTraceLog;

// Turns a power_report document into records, in document order:
//
//   <power_report>
//     <instant_usage> <usage datetime="2012-07-02T13:00:00" duration="300">4000</usage> ... </instant_usage>
//     <actual_usage> and <estimated_usage> alike
//     <peak_supply> <supply start="2012-07-02T00:00:00" end="2012-07-02T23:59:59">5000</supply> </peak_supply>
//     <peak_demand> <demand start=... end=...>4800</demand> </peak_demand>
//   </power_report>
//
// A usage element skips its bad children. A peak element reads its first child only and fails on any fault in it. A
// text that is not a number counts as 0, one that is not a valid time as 1601-01-01 00:00:00 (Scan.h).
//
// Stateless between calls. Belongs to one thread, which must be inside an apartment (platform/Apartment.h). The
// owner calls Initialize after constructing it and Finalize before destroying it.
class CGSXMLAnalyzer : public CAmporaAnalyzer, public CXMLParser {
public:
    CGSXMLAnalyzer();
    ~CGSXMLAnalyzer() override;

    // Analyzes a report's text, or a report in a file. A new list, maybe empty; null when it is not a power_report or
    // has no children, or when the list cannot be allocated. Throws COleException (CalendarTime.h) for a start
    // from the year 1900 on that cannot be converted; the records read so far are lost.
    std::unique_ptr<CAmporaDataCollection> AnalyzeData(CString strXml) override;
    virtual std::unique_ptr<CAmporaDataCollection> AnalyzeFile(CString strPath);

    // Each appends the records of one element of its name to collection, which stays the caller's. TRUE when the
    // element's children were read; FALSE, traced, when node or collection is null, the element has another name or no
    // children, or (peak) its first child is faulty. Throw as AnalyzeData.
    virtual BOOL AnalyzeInstantTag(const platform::DomNodePtr& node, CAmporaDataCollection* collection);
    virtual BOOL AnalyzeActualTag(const platform::DomNodePtr& node, CAmporaDataCollection* collection);
    virtual BOOL AnalyzeEstimatedTag(const platform::DomNodePtr& node, CAmporaDataCollection* collection);
    virtual BOOL AnalyzePeakSupplyTag(const platform::DomNodePtr& node, CAmporaDataCollection* collection);
    virtual BOOL AnalyzePeakDemandTag(const platform::DomNodePtr& node, CAmporaDataCollection* collection);

    // As the other AnalyzeData, from a root element on; null for null.
    std::unique_ptr<CAmporaDataCollection> AnalyzeData(const platform::DomElementPtr& element);

    // Reads one usage element. FALSE, traced, for null, for an element of another name and when an attribute is
    // missing. Numbers that cannot be read keep what the caller put there.
    BOOL AnalyzeUsageTag(const platform::DomNodePtr& node, SYSTEMTIME& start, DWORD& durationSeconds, ULONGLONG& value);

    // Reads one date-time attribute, day of week filled in. Fields that the text does not reach keep what the caller
    // put there, except milliseconds, which are 0; a result that is not a valid time becomes 1601-01-01 00:00:00.
    // FALSE, traced, time untouched, when the attribute cannot be read.
    BOOL GetAttribue(const platform::DomAttributeMapPtr& attributes, CString strName, SYSTEMTIME& time);

private:
    // What differs between the two kinds of peak.
    struct PeakTexts;

    BOOL AnalyzeUsages(const wchar_t* function, const platform::DomNodePtr& node, CAmporaDataCollection* collection,
                       const wchar_t* tagName, const wchar_t* otherName);
    BOOL AnalyzePeak(const wchar_t* function, const platform::DomNodePtr& node, CAmporaDataCollection* collection,
                     const PeakTexts& texts);
    void AnalyzeChild(const CTraceLog& log, const platform::DomNodePtr& child, CAmporaDataCollection* collection);
};
