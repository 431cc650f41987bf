#include "data/GSXMLAnalyzer.h"

#include "data/CalendarTime.h"
#include "testing/CalendarText.h"
#include "testing/FailingMemory.h"
#include "testing/MachineTest.h"
#include "testing/Reports.h"
#include "testing/ScratchFolder.h"
#include "testing/SlotOrder.h"
#include "testing/Trace.h"

#include <gmock/gmock.h>

namespace {

using platform::DomAttributeMapPtr;
using platform::DomElementPtr;
using platform::DomNodePtr;
using platform::sim::Call;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing_support::CalendarText;
using testing_support::ElementXml;
using testing_support::NamedReport;
using testing_support::PeakReport;
using testing_support::PeakXml;
using testing_support::Report;
using testing_support::SlotOf;
using testing_support::TraceLine;
using testing_support::TraceLines;
using testing_support::TraceMessages;
using testing_support::TraceScopesBalance;
using testing_support::UsageReport;
using testing_support::UsageRow;
using testing_support::UsagesOfDay;
using testing_support::UsageXml;

constexpr auto kFault = static_cast<DWORD>(E_FAIL);

TraceLine Line(const char* level, const char* operation, const std::string& message)
{
    return {level, std::string("CGSXMLAnalyzer::") + operation, message};
}

const TraceLine kNoReport = Line("ERR", "AnalyzeData", "Tag name invalid");
const TraceLine kInstantSuccess = Line("TRA", "AnalyzeData", "Instant Tag Success");
const TraceLine kInstantFail = Line("ERR", "AnalyzeData", "Instant Tag Fail");

// The messages of the analyzer itself, without those of the DOM access.
std::vector<TraceLine> AnalyzerMessages()
{
    std::vector<TraceLine> lines = TraceMessages();
    std::erase_if(lines, [](const TraceLine& line) { return line.function.find("CGSXMLAnalyzer::") != 0; });
    return lines;
}

// The records of a list as text.
std::vector<std::string> RecordTexts(const CAmporaDataCollection& list)
{
    std::vector<std::string> texts;
    for (const _AmporaOneData& record : list.Records()) {
        texts.push_back(testing_support::RecordText(record));
    }
    return texts;
}

class GSXMLAnalyzer : public testing_support::CMachineTest {
protected:
    GSXMLAnalyzer()
    {
        m_analyzer.Initialize();
        m_machine.ClearDebugLines();
    }
    ~GSXMLAnalyzer() override { m_analyzer.Finalize(); }

    std::unique_ptr<CAmporaDataCollection> Analyze(const std::string& xml)
    {
        m_machine.ClearDebugLines();
        auto list = m_analyzer.AnalyzeData(platform::DecodeUtf8(xml));
        EXPECT_TRUE(TraceScopesBalance(TraceLines()));
        return list;
    }
    // The records of a report, which must give a list.
    std::vector<std::string> RecordsOf(const std::string& xml)
    {
        const auto list = Analyze(xml);
        EXPECT_TRUE(list) << xml.substr(0, 500);
        return list ? RecordTexts(*list) : std::vector<std::string>();
    }
    // The record of a report with this one usage.
    std::string RecordOf(const UsageRow& usage)
    {
        const std::vector<std::string> records = RecordsOf(UsageReport(1, {usage}));
        EXPECT_EQ(records.size(), 1U);
        return records.empty() ? std::string() : records.front();
    }
    // The first child of the root element.
    DomNodePtr FirstChild(const std::string& xml)
    {
        const DomElementPtr root = m_analyzer.Load(platform::DecodeUtf8(xml));
        EXPECT_TRUE(root);
        DomNodePtr child = m_analyzer.GetNode(m_analyzer.GetChildNodes(root), 0);
        m_machine.ClearDebugLines();
        return child;
    }

    CGSXMLAnalyzer m_analyzer;
};

// Construction, destruction, tables

TEST_F(GSXMLAnalyzer, SlotsKeepTheirOrder)
{
    using List = std::unique_ptr<CAmporaDataCollection>;
    EXPECT_EQ(SlotOf(&CAmporaAnalyzer::AnalyzeData), 1);
    EXPECT_EQ(SlotOf(static_cast<List (CGSXMLAnalyzer::*)(CString)>(&CGSXMLAnalyzer::AnalyzeData)), 1);
    EXPECT_EQ(SlotOf(&CGSXMLAnalyzer::AnalyzeFile), 2);
    EXPECT_EQ(SlotOf(&CGSXMLAnalyzer::AnalyzeInstantTag), 3);
    EXPECT_EQ(SlotOf(&CGSXMLAnalyzer::AnalyzeActualTag), 4);
    EXPECT_EQ(SlotOf(&CGSXMLAnalyzer::AnalyzeEstimatedTag), 5);
    EXPECT_EQ(SlotOf(&CGSXMLAnalyzer::AnalyzePeakSupplyTag), 6);
    EXPECT_EQ(SlotOf(&CGSXMLAnalyzer::AnalyzePeakDemandTag), 7);
    EXPECT_EQ(SlotOf(static_cast<List (CGSXMLAnalyzer::*)(const DomElementPtr&)>(&CGSXMLAnalyzer::AnalyzeData)), -1);
    EXPECT_EQ(SlotOf(&CGSXMLAnalyzer::AnalyzeUsageTag), -1);
    EXPECT_EQ(SlotOf(&CGSXMLAnalyzer::GetAttribue), -1);
}

TEST_F(GSXMLAnalyzer, TheBasesComeInOrderAndThereAreNoMembers)
{
    const auto* whole = reinterpret_cast<const char*>(&m_analyzer);
    EXPECT_EQ(reinterpret_cast<const char*>(static_cast<CAmporaAnalyzer*>(&m_analyzer)), whole);
    EXPECT_EQ(reinterpret_cast<const char*>(static_cast<CXMLParser*>(&m_analyzer)), whole + sizeof(CAmporaAnalyzer));
    static_assert(sizeof(CGSXMLAnalyzer) == sizeof(CAmporaAnalyzer) + sizeof(CXMLParser));
}

std::vector<TraceLine> ConstructionAndDestruction()
{
    std::vector<TraceLine> lines;
    for (const char* function :
         {"CAmporaAnalyzer::CAmporaAnalyzer", "CXMLParser::CXMLParser", "CGSXMLAnalyzer::CGSXMLAnalyzer",
          "CGSXMLAnalyzer::~CGSXMLAnalyzer", "CXMLParser::~CXMLParser", "CAmporaAnalyzer::~CAmporaAnalyzer"}) {
        lines.push_back({"TRA", function, "Enter"});
        lines.push_back({"TRA", function, "Leave"});
    }
    return lines;
}

TEST_F(GSXMLAnalyzer, ConstructionAndDestructionAreTracedInOrder)
{
    {
        const CGSXMLAnalyzer analyzer;
    }
    EXPECT_EQ(TraceLines(), ConstructionAndDestruction());
}

TEST_F(GSXMLAnalyzer, DeletingItThroughEitherBaseDestroysAllOfIt)
{
    std::unique_ptr<CAmporaAnalyzer>(std::make_unique<CGSXMLAnalyzer>()).reset();
    EXPECT_EQ(TraceLines(), ConstructionAndDestruction());
    m_machine.ClearDebugLines();
    std::unique_ptr<CXMLParser>(std::make_unique<CGSXMLAnalyzer>()).reset();
    EXPECT_EQ(TraceLines(), ConstructionAndDestruction());
}

// Whole reports

TEST_F(GSXMLAnalyzer, ElementsMayComeInAnyOrderAndRepeat)
{
    const std::string xml = Report(ElementXml("peak_demand", PeakXml("demand", {})) +
                                   ElementXml("instant_usage", UsageXml({"2012-07-02T13:00:00", "300", "1"})) +
                                   ElementXml("estimated_usage", UsageXml({"2012-07-02T13:00:00", "300", "2"})) +
                                   ElementXml("instant_usage", UsageXml({"2012-07-02T12:00:00", "300", "3"})));
    const auto list = Analyze(xml);
    ASSERT_TRUE(list);
    std::vector<ULONGLONG> values;
    for (const _AmporaOneData& record : list->Records()) {
        values.push_back(record.ullValue);
    }
    EXPECT_THAT(values, ElementsAre(5000, 1, 2, 3)); // in document order
    EXPECT_THAT(AnalyzerMessages(), ElementsAre(Line("TRA", "AnalyzeData", "PeakDemand Tag Success"), kInstantSuccess,
                                                Line("TRA", "AnalyzeData", "Estimated Tag Success"), kInstantSuccess));
}

TEST_F(GSXMLAnalyzer, EveryOperationTracesItsScope)
{
    const auto list =
        Analyze(Report(ElementXml("instant_usage", UsageXml({})) + ElementXml("actual_usage", UsageXml({})) +
                       ElementXml("estimated_usage", UsageXml({})) + ElementXml("peak_supply", PeakXml("supply", {})) +
                       ElementXml("peak_demand", PeakXml("demand", {}))));
    ASSERT_TRUE(list);
    const std::vector<TraceLine> lines = TraceLines();
    for (const char* operation : {"AnalyzeData", "AnalyzeInstantTag", "AnalyzeActualTag", "AnalyzeEstimatedTag",
                                  "AnalyzePeakSupplyTag", "AnalyzePeakDemandTag", "AnalyzeUsageTag", "GetAttribue"}) {
        EXPECT_THAT(lines, Contains(Line("TRA", operation, "Enter"))) << operation;
        EXPECT_THAT(lines, Contains(Line("TRA", operation, "Leave"))) << operation;
    }
    // The loading comes first and is outside the scope of the analysis.
    EXPECT_EQ(lines.front(), (TraceLine{"TRA", "CXMLParser::Load", "Enter"}));
    EXPECT_EQ(lines.back(), Line("TRA", "AnalyzeData", "Leave"));
    EXPECT_EQ(testing_support::CountTrace("TRA", "CGSXMLAnalyzer::AnalyzeData", "Enter"), 1);
}

TEST_F(GSXMLAnalyzer, AnalyzingAFileWorksLikeAnalyzingItsText)
{
    const testing_support::CScratchFolder folder;
    const auto path = folder.Write("report.xml", UsageReport(1, {{"2012-07-02T13:00:00", "300", "4000"}}));
    const auto list = m_analyzer.AnalyzeFile(path.wstring());
    ASSERT_TRUE(list);
    EXPECT_THAT(RecordTexts(*list), ElementsAre("4000 2012-07-02(1) 13:00:00.000 to 2012-07-02(1) 13:05:00.000"));
    EXPECT_THAT(AnalyzerMessages(), ElementsAre(kInstantSuccess));
    EXPECT_EQ(TraceLines().front(), (TraceLine{"TRA", "CXMLParser::LoadFile", "Enter"}));
    EXPECT_THAT(TraceLines(), Not(Contains(Line("TRA", "AnalyzeFile", "Enter"))));
}

TEST_F(GSXMLAnalyzer, OneAnalyzerReadsManyReports)
{
    EXPECT_EQ(RecordsOf(UsageReport(1, UsagesOfDay("2012-07-02", 3, 300))).size(), 3U);
    EXPECT_FALSE(Analyze("<other/>"));
    EXPECT_EQ(RecordsOf(UsageReport(2, UsagesOfDay("2012-07-03", 2, 300))).size(), 2U);
}

// Documents that are not reports

class GSXMLAnalyzerUnloadable : public GSXMLAnalyzer, public testing::WithParamInterface<NamedReport> {};

TEST_P(GSXMLAnalyzerUnloadable, GivesNull)
{
    EXPECT_FALSE(Analyze(GetParam().xml));
    EXPECT_THAT(TraceMessages(), ElementsAre(TraceLine{"ERR", "CXMLParser::Load", "XML Load fail.(0x08X)"}, kNoReport));
}

INSTANTIATE_TEST_SUITE_P(Texts, GSXMLAnalyzerUnloadable, testing::ValuesIn(testing_support::UnloadableReports()),
                         [](const auto& test) { return test.param.name; });

TEST_F(GSXMLAnalyzer, AnotherRootElementGivesNull)
{
    for (const char* xml :
         {"<html/>", "<power_reports/>", "<Power_Report><instant_usage/></Power_Report>", "<POWER_REPORT/>",
          "<x:power_report xmlns:x='u'/>", "<x:power_report xmlns:x='u'><instant_usage/></x:power_report>"}) {
        EXPECT_FALSE(Analyze(xml)) << xml;
        EXPECT_THAT(AnalyzerMessages(), ElementsAre(kNoReport)) << xml;
    }
}

TEST_F(GSXMLAnalyzer, AMissingFileGivesNull)
{
    const testing_support::CScratchFolder folder;
    EXPECT_FALSE(m_analyzer.AnalyzeFile((folder.Path() / "none.xml").wstring()));
    EXPECT_THAT(AnalyzerMessages(), ElementsAre(kNoReport));
}

TEST_F(GSXMLAnalyzer, ANullElementGivesNullWithoutAskingForItsName)
{
    EXPECT_FALSE(m_analyzer.AnalyzeData(DomElementPtr()));
    EXPECT_THAT(TraceMessages(), ElementsAre(kNoReport));
}

TEST_F(GSXMLAnalyzer, ALoadOfAFileThatThrowsIsAWarningAndGivesNull)
{
    m_machine.FailCall(Call::kCreateDomDocument, 1, kFault);
    EXPECT_FALSE(m_analyzer.AnalyzeFile(L"report.xml"));
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("WAR", "AnalyzeFile", "Load File Exception"), kNoReport));
    EXPECT_TRUE(TraceScopesBalance(TraceLines()));
}

TEST_F(GSXMLAnalyzer, AReportWithoutChildrenGivesNullWithoutMessage)
{
    for (const char* xml : {"<power_report/>", "<power_report></power_report>", "<power_report> \n </power_report>"}) {
        EXPECT_FALSE(Analyze(xml)) << xml;
        EXPECT_THAT(AnalyzerMessages(), IsEmpty()) << xml;
    }
}

TEST_F(GSXMLAnalyzer, AReportThatCannotBeReadGivesNull)
{
    const std::pair<Call, std::vector<TraceLine>> faults[] = {
        {Call::kCreateDomDocument, {Line("WAR", "AnalyzeData", "Load Exception"), kNoReport}},
        {Call::kGetDomNodeName, {kNoReport}},
        {Call::kGetDomChildNodes, {}},
        {Call::kGetDomLength, {}},
    };
    for (const auto& [call, lines] : faults) {
        m_machine.FailCall(call, 1, kFault);
        EXPECT_FALSE(Analyze(PeakReport(8, {})));
        EXPECT_EQ(AnalyzerMessages(), lines) << static_cast<int>(call);
    }
}

// The walk over the children

TEST_F(GSXMLAnalyzer, UnknownChildrenAreWarnings)
{
    EXPECT_THAT(RecordsOf(Report("<weather/><!-- c --><Instant_Usage/>text<usage/>")), IsEmpty());
    EXPECT_THAT(AnalyzerMessages(), ElementsAre(Line("WAR", "AnalyzeData", "Unknown Tag.(weather)"),
                                                Line("WAR", "AnalyzeData", "Unknown Tag.(#comment)"),
                                                Line("WAR", "AnalyzeData", "Unknown Tag.(Instant_Usage)"),
                                                Line("WAR", "AnalyzeData", "Unknown Tag.(#text)"),
                                                Line("WAR", "AnalyzeData", "Unknown Tag.(usage)")));
}

TEST_F(GSXMLAnalyzer, AChildThatCannotBeReadIsPassedOverSilently)
{
    m_machine.FailCall(Call::kGetDomItem, 1, kFault);
    EXPECT_EQ(RecordsOf(Report("<weather/>" + ElementXml("instant_usage", UsageXml({})))).size(), 1U);
    EXPECT_THAT(AnalyzerMessages(), ElementsAre(kInstantSuccess));
}

TEST_F(GSXMLAnalyzer, AChildWhoseNameCannotBeReadIsUnknown)
{
    m_machine.FailCall(Call::kGetDomNodeName, 2, kFault); // after the root's
    EXPECT_THAT(RecordsOf(PeakReport(8, {})), IsEmpty());
    EXPECT_THAT(AnalyzerMessages(), ElementsAre(Line("WAR", "AnalyzeData", "Unknown Tag.()")));
}

TEST_F(GSXMLAnalyzer, AFailingElementDoesNotStopTheWalk)
{
    EXPECT_EQ(RecordsOf(Report("<instant_usage/><actual_usage/><estimated_usage/><peak_supply/><peak_demand/>" +
                               ElementXml("instant_usage", UsageXml({}))))
                  .size(),
              1U);
    EXPECT_THAT(AnalyzerMessages(), ElementsAre(Line("WAR", "AnalyzeInstantTag", "Data Not Set."), kInstantFail,
                                                Line("WAR", "AnalyzeActualTag", "Data Not Set."),
                                                Line("ERR", "AnalyzeData", "Actual Tag Fail"),
                                                Line("WAR", "AnalyzeEstimatedTag", "Data Not Set."),
                                                Line("ERR", "AnalyzeData", "Estimated Tag Fail"),
                                                Line("WAR", "AnalyzePeakSupplyTag", "Data Not Set."),
                                                Line("ERR", "AnalyzeData", "PeakSupply Tag Fail"),
                                                Line("WAR", "AnalyzePeakDemandTag", "Data Not Set."),
                                                Line("ERR", "AnalyzeData", "PeakDemand Tag Fail"), kInstantSuccess));
}

TEST_F(GSXMLAnalyzer, AListIsReturnedEvenWhenEveryElementFails)
{
    EXPECT_THAT(RecordsOf(Report("<instant_usage/>")), IsEmpty());
    EXPECT_THAT(AnalyzerMessages(), ElementsAre(Line("WAR", "AnalyzeInstantTag", "Data Not Set."), kInstantFail));
}

// An analyzer that replaces the handling of one element.
class COtherAnalyzer : public CGSXMLAnalyzer {
public:
    BOOL AnalyzePeakDemandTag(const DomNodePtr&, CAmporaDataCollection* collection) override
    {
        return collection->AddAmporaData(SYSTEMTIME{}, SYSTEMTIME{}, 77);
    }
};

TEST_F(GSXMLAnalyzer, ADerivedAnalyzerMayReplaceAHandler)
{
    COtherAnalyzer analyzer;
    const auto list = analyzer.AnalyzeData(L"<power_report><peak_demand/></power_report>");
    ASSERT_TRUE(list);
    EXPECT_EQ(list->Records().front().ullValue, 77U);
    EXPECT_THAT(AnalyzerMessages(), Contains(Line("TRA", "AnalyzeData", "PeakDemand Tag Success")));
}

// Memory

TEST_F(GSXMLAnalyzer, RunningOutOfMemoryIsTracedOrThrown)
{
    g_dwLogLevel = kTraceErr | kTraceWar;
    const CString xml = platform::DecodeUtf8(PeakReport(8, {}));
    int createFailures = 0;
    int readFailures = 0;
    bool failed = true;
    for (unsigned nth = 1; failed; ++nth) {
        ASSERT_LT(nth, 10'000U);
        m_machine.ClearDebugLines();
        std::unique_ptr<CAmporaDataCollection> list;
        bool thrown = false;
        CString copy = xml;
        {
            const testing_support::CFailingMemory memory(nth);
            try {
                list = m_analyzer.AnalyzeData(std::move(copy));
            } catch (const std::bad_alloc&) {
                thrown = true; // by the list, or by a text handed over inside the analyzer
            }
            failed = memory.HasFailed();
        }
        const std::vector<TraceLine> messages = TraceMessages();
        if (thrown) {
            EXPECT_FALSE(list);
        } else if (messages == std::vector{Line("ERR", "AnalyzeData", "Collection Create Fail")}) {
            EXPECT_FALSE(list);
            ++createFailures;
        } else if (messages.empty()) {
            ASSERT_TRUE(list) << "allocation " << nth;
            EXPECT_EQ(list->Records().size(), 1U) << "allocation " << nth;
        } else if (messages.front().function.find("CXMLParser::") == 0) {
            EXPECT_EQ(messages.front().level, "ERR") << messages.front();
            ++readFailures;
        } else {
            EXPECT_EQ(messages, (std::vector{Line("WAR", "AnalyzeData", "Load Exception"), kNoReport}));
            EXPECT_FALSE(list);
        }
    }
    EXPECT_EQ(createFailures, 1);
    EXPECT_GT(readFailures, 0);
}

// The elements of a report

// A kind of data and its element.
struct Kind {
    std::string name; // as in the name of its handler, Analyze...Tag
    unsigned dataType;
    const char* tag;
    const char* child;
    BOOL (CGSXMLAnalyzer::*handle)(const DomNodePtr&, CAmporaDataCollection*);
};

std::ostream& operator<<(std::ostream& stream, const Kind& kind) { return stream << kind.name; }

const Kind kUsages[] = {
    {"Instant", 1, "instant_usage", "usage", &CGSXMLAnalyzer::AnalyzeInstantTag},
    {"Actual", 2, "actual_usage", "usage", &CGSXMLAnalyzer::AnalyzeActualTag},
    {"Estimated", 4, "estimated_usage", "usage", &CGSXMLAnalyzer::AnalyzeEstimatedTag},
};
const Kind kPeaks[] = {
    {"PeakSupply", 8, "peak_supply", "supply", &CGSXMLAnalyzer::AnalyzePeakSupplyTag},
    {"PeakDemand", 16, "peak_demand", "demand", &CGSXMLAnalyzer::AnalyzePeakDemandTag},
};

class GSXMLAnalyzerTag : public GSXMLAnalyzer, public testing::WithParamInterface<Kind> {
protected:
    bool IsPeak() const { return GetParam().dataType >= 8; }
    BOOL Handle(const DomNodePtr& node) { return (m_analyzer.*GetParam().handle)(node, &m_list); }
    TraceLine FromHandler(const std::string& message, const char* level = "ERR") const
    {
        return Line(level, ("Analyze" + GetParam().name + "Tag").c_str(), message);
    }
    TraceLine RefusedName() const
    {
        return FromHandler(GetParam().name == "Actual" ? "Tag Name invalid" : "Tag name invalid");
    }
    TraceLine Outcome(bool success) const
    {
        return Line(success ? "TRA" : "ERR", "AnalyzeData", GetParam().name + (success ? " Tag Success" : " Tag Fail"));
    }
    // A report whose one element has this content, or one good child.
    std::string ReportWith(const std::string& content) const { return Report(ElementXml(GetParam().tag, content)); }
    std::string GoodReport() const { return ReportWith(IsPeak() ? PeakXml(GetParam().child, {}) : UsageXml({})); }

    CAmporaDataCollection m_list;
};

std::string NameOfKind(const testing::TestParamInfo<Kind>& test) { return test.param.name; }

INSTANTIATE_TEST_SUITE_P(Usage, GSXMLAnalyzerTag, testing::ValuesIn(kUsages), NameOfKind);
INSTANTIATE_TEST_SUITE_P(Peak, GSXMLAnalyzerTag, testing::ValuesIn(kPeaks), NameOfKind);

TEST_P(GSXMLAnalyzerTag, GivesTheRecordsOfItsReport)
{
    const std::string content =
        IsPeak() ? PeakXml(GetParam().child, {"2012-07-02T14:00:00", "2012-07-02T15:00:00", "4800"})
                 : UsageXml({"2012-07-02T14:00:00", "3600", "4800"}) + UsageXml({"2012-07-02T23:55:00", "600", "1"});
    std::vector<std::string> records = {"4800 2012-07-02(1) 14:00:00.000 to 2012-07-02(1) 15:00:00.000"};
    if (!IsPeak()) {
        records.emplace_back("1 2012-07-02(1) 23:55:00.000 to 2012-07-03(2) 00:05:00.000");
    }
    EXPECT_EQ(RecordsOf(ReportWith(content)), records);
    EXPECT_THAT(AnalyzerMessages(), ElementsAre(Outcome(true)));
}

TEST_P(GSXMLAnalyzerTag, RefusesANullNode)
{
    m_machine.ClearDebugLines();
    EXPECT_EQ(Handle(nullptr), FALSE);
    EXPECT_THAT(TraceMessages(), ElementsAre(RefusedName()));
    EXPECT_EQ(TraceLines().front(), FromHandler("Enter", "TRA"));
    EXPECT_EQ(TraceLines().back(), FromHandler("Leave", "TRA"));
}

TEST_P(GSXMLAnalyzerTag, RefusesAnElementOfAnotherName)
{
    for (const char* other :
         {"instant_usage", "actual_usage", "estimated_usage", "peak_supply", "peak_demand", "peak"}) {
        if (std::string_view(other) == GetParam().tag) {
            continue;
        }
        const DomNodePtr node = FirstChild(Report(ElementXml(other, UsageXml({}) + PeakXml(GetParam().child, {}))));
        EXPECT_EQ(Handle(node), FALSE) << other;
        EXPECT_THAT(AnalyzerMessages(), ElementsAre(RefusedName())) << other;
        EXPECT_TRUE(m_list.Records().empty()) << other;
    }
}

TEST_P(GSXMLAnalyzerTag, RefusesANullList)
{
    const DomNodePtr node = FirstChild(GoodReport());
    EXPECT_EQ((m_analyzer.*GetParam().handle)(node, nullptr), FALSE);
    EXPECT_THAT(AnalyzerMessages(), ElementsAre(FromHandler("Parameter is invalid")));
}

TEST_P(GSXMLAnalyzerTag, WarnsWhenThereAreNoChildren)
{
    EXPECT_EQ(Handle(FirstChild(ReportWith(" \n "))), FALSE);
    EXPECT_THAT(AnalyzerMessages(), ElementsAre(FromHandler("Data Not Set.", "WAR")));
}

TEST_P(GSXMLAnalyzerTag, WarnsWhenTheChildrenCannotBeListedOrCounted)
{
    for (const Call call : {Call::kGetDomChildNodes, Call::kGetDomLength}) {
        const DomNodePtr node = FirstChild(GoodReport());
        m_machine.FailCall(call, 1, kFault);
        EXPECT_EQ(Handle(node), FALSE);
        EXPECT_THAT(AnalyzerMessages(), ElementsAre(FromHandler("Data Not Set.", "WAR")));
    }
}

// Usage elements

class GSXMLAnalyzerUsageTag : public GSXMLAnalyzerTag {};

INSTANTIATE_TEST_SUITE_P(Kinds, GSXMLAnalyzerUsageTag, testing::ValuesIn(kUsages), NameOfKind);

TEST_P(GSXMLAnalyzerUsageTag, SucceedsWhateverTheChildrenGive)
{
    EXPECT_EQ(Handle(FirstChild(ReportWith("<x/>text<!-- c --><Usage/>"))), TRUE);
    EXPECT_TRUE(m_list.Records().empty());
    const TraceLine invalid = Line("ERR", "AnalyzeUsageTag", "Tag name invalid");
    EXPECT_THAT(AnalyzerMessages(), ElementsAre(invalid, invalid, invalid, invalid));
}

TEST_P(GSXMLAnalyzerUsageTag, PassesOverAChildThatCannotBeRead)
{
    const DomNodePtr node = FirstChild(UsageReport(GetParam().dataType, UsagesOfDay("2012-07-02", 3, 300)));
    m_machine.FailCall(Call::kGetDomItem, 2, kFault);
    EXPECT_EQ(Handle(node), TRUE);
    ASSERT_EQ(m_list.Records().size(), 2U);
    EXPECT_EQ(m_list.Records().front().ullValue, 1U);
    EXPECT_EQ(m_list.Records().back().ullValue, 3U);
    EXPECT_THAT(AnalyzerMessages(), IsEmpty());
}

TEST_F(GSXMLAnalyzer, AUsageWithoutAnAttributeIsPassedOver)
{
    EXPECT_EQ(RecordsOf(Report(ElementXml("instant_usage", "<usage duration='300'>1</usage>" + UsageXml({}) +
                                                               "<usage datetime='2012-07-02T13:00:00'>1</usage>" +
                                                               UsageXml({}))))
                  .size(),
              2U);
    EXPECT_THAT(AnalyzerMessages(),
                ElementsAre(Line("ERR", "GetAttribue", "Node Value Get Fail."),
                            Line("ERR", "AnalyzeUsageTag", "NO datetime Attribute."),
                            Line("ERR", "AnalyzeUsageTag", "NO duration Attribute."), kInstantSuccess));
}

TEST_F(GSXMLAnalyzer, AUsageWhoseAttributesCannotBeReadIsPassedOver)
{
    m_machine.FailCall(Call::kGetDomAttributes, 1, kFault);
    EXPECT_EQ(RecordsOf(UsageReport(1, UsagesOfDay("2012-07-02", 2, 300))).size(), 1U);
    EXPECT_THAT(AnalyzerMessages(), ElementsAre(Line("ERR", "AnalyzeUsageTag", "NO Attribute."), kInstantSuccess));
}

TEST_F(GSXMLAnalyzer, AUsageWhoseTextCannotBeReadHasTheValueZero)
{
    m_machine.FailCall(Call::kGetDomText, 1, kFault);
    EXPECT_EQ(RecordOf({}), "0 2012-07-02(1) 13:00:00.000 to 2012-07-02(1) 13:05:00.000");
}

TEST_F(GSXMLAnalyzer, AnalyzeUsageTagRefusesNullAndOtherElements)
{
    SYSTEMTIME start{};
    DWORD duration = 4711;
    ULONGLONG value = 4712;
    EXPECT_EQ(m_analyzer.AnalyzeUsageTag(nullptr, start, duration, value), FALSE);
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "AnalyzeUsageTag", "Tag name invalid")));
    const DomNodePtr node = FirstChild(Report("<Usage datetime='2012-07-02T13:00:00' duration='1'>1</Usage>"));
    EXPECT_EQ(m_analyzer.AnalyzeUsageTag(node, start, duration, value), FALSE);
    EXPECT_EQ(duration, 4711U);
    EXPECT_EQ(value, 4712U);
}

TEST_F(GSXMLAnalyzer, AnalyzeUsageTagKeepsUnreadNumbers)
{
    SYSTEMTIME start{};
    DWORD duration = 4711;
    ULONGLONG value = 4712;
    const DomNodePtr node = FirstChild(Report(UsageXml({"2012-07-02T13:00:00", "soon", "abc"})));
    EXPECT_EQ(m_analyzer.AnalyzeUsageTag(node, start, duration, value), TRUE);
    EXPECT_EQ(duration, 4711U);
    EXPECT_EQ(value, 4712U);
}

// A usage and the record that it gives. The default is 4000 at 13:00 for 300 s.
struct UsageCase {
    const char* name;
    UsageRow usage;
    const char* record;
};

std::ostream& operator<<(std::ostream& stream, const UsageCase& test) { return stream << test.name; }

const UsageCase kUsageCases[] = {
    {"NoNumber", {.value = "abc"}, "0 2012-07-02(1) 13:00:00.000 to 2012-07-02(1) 13:05:00.000"},
    {"NoValue", {.value = ""}, "0 2012-07-02(1) 13:00:00.000 to 2012-07-02(1) 13:05:00.000"},
    {"Nested", {.value = "4<b>0</b><!-- -->1"}, "401 2012-07-02(1) 13:00:00.000 to 2012-07-02(1) 13:05:00.000"},
    {"Of64Bits",
     {.value = "18446744073709551615"},
     "18446744073709551615 2012-07-02(1) 13:00:00.000 to 2012-07-02(1) 13:05:00.000"},
    {"NoDuration", {.duration = "soon"}, "4000 2012-07-02(1) 13:00:00.000 to 2012-07-02(1) 13:00:00.000"},
    {"Backwards", {.duration = "4294967236"}, "4000 2012-07-02(1) 13:00:00.000 to 2012-07-02(1) 12:59:00.000"},
    {"DateOnly", {.datetime = "2012-07-02"}, "4000 2012-07-02(1) 00:00:00.000 to 2012-07-02(1) 00:05:00.000"},
    {"LeapDay", {.datetime = "2012-02-29"}, "4000 2012-02-29(3) 00:00:00.000 to 2012-02-29(3) 00:05:00.000"},
    {"Before1900", {.datetime = "1601-01-02"}, "4000 1601-01-02(2) 00:00:00.000 to 1970-01-01(4) 09:05:00.000"},
    {"Zone",
     {.datetime = "2012-07-02T13:00:00.5+09:00"},
     "4000 2012-07-02(1) 13:00:00.000 to 2012-07-02(1) 13:05:00.000"},
};

class GSXMLAnalyzerUsage : public GSXMLAnalyzer, public testing::WithParamInterface<UsageCase> {};

INSTANTIATE_TEST_SUITE_P(With, GSXMLAnalyzerUsage, testing::ValuesIn(kUsageCases),
                         [](const auto& test) { return test.param.name; });

TEST_P(GSXMLAnalyzerUsage, GivesItsRecord) { EXPECT_EQ(RecordOf(GetParam().usage), GetParam().record); }

// Date-times

TEST_F(GSXMLAnalyzer, AnInvalidDateTimeBecomesTheFirstDayOf1601)
{
    for (const char* datetime :
         {"2012-13-01T00:00:00", "2012-00-01T00:00:00", "2012-02-30T00:00:00", "2012-07-00T00:00:00",
          "2012-07-02T24:00:00", "2012-07-02T13:60:00", "2012-07-02T13:00:60", "1600-12-31T00:00:00", "0-1-1T0:0:0",
          "-1-07-02T00:00:00", "noon", "", "2012", "2012-07"}) {
        EXPECT_EQ(RecordOf({datetime, "300", "1"}), "1 1601-01-01(1) 00:00:00.000 to 1970-01-01(4) 09:05:00.000")
            << datetime;
    }
}

TEST_F(GSXMLAnalyzer, AStartThatCannotBeConvertedThrows)
{
    for (const char* datetime : {"1950-01-01T00:00:00", "1970-01-01T08:59:59", "3001-02-01T00:00:00"}) {
        const std::string xml = UsageReport(1, {{}, {datetime, "300", "1"}, {}});
        m_machine.ClearDebugLines();
        EXPECT_THROW(m_analyzer.AnalyzeData(platform::DecodeUtf8(xml)), COleException) << datetime;
        EXPECT_TRUE(TraceScopesBalance(TraceLines())) << datetime;
        EXPECT_THAT(AnalyzerMessages(), IsEmpty()) << datetime;
        // The records read so far are destroyed.
        EXPECT_EQ(testing_support::CountTrace("TRA", "CAmporaDataCollection::~CAmporaDataCollection", "Leave"), 1);
    }
}

TEST_F(GSXMLAnalyzer, APeakMayLieBefore1970)
{
    EXPECT_THAT(RecordsOf(PeakReport(8, {"1950-01-01T00:00:00", "9999-12-31T23:59:59", "1"})),
                ElementsAre("1 1950-01-01(0) 00:00:00.000 to 9999-12-31(5) 23:59:59.000"));
}

TEST_F(GSXMLAnalyzer, GetAttribueKeepsFieldsThatAreNotRead)
{
    const DomAttributeMapPtr attributes =
        m_analyzer.GetNodeAttributes(FirstChild("<r><a at='2013-08' none='x' bad='2013-13'/></r>"));
    SYSTEMTIME time{2012, 7, 6, 2, 13, 4, 5, 678};
    EXPECT_EQ(m_analyzer.GetAttribue(attributes, L"at", time), TRUE);
    EXPECT_EQ(CalendarText(time), "2013-08-02(5) 13:04:05.000");
    time = {2012, 7, 6, 2, 13, 4, 5, 678};
    EXPECT_EQ(m_analyzer.GetAttribue(attributes, L"none", time), TRUE);
    EXPECT_EQ(CalendarText(time), "2012-07-02(1) 13:04:05.000");
    EXPECT_EQ(m_analyzer.GetAttribue(attributes, L"bad", time), TRUE);
    EXPECT_EQ(CalendarText(time), "1601-01-01(1) 00:00:00.000");
}

TEST_F(GSXMLAnalyzer, GetAttribueWithoutAttributeKeepsTheTime)
{
    const DomAttributeMapPtr attributes = m_analyzer.GetNodeAttributes(FirstChild("<r><a/></r>"));
    m_machine.ClearDebugLines();
    SYSTEMTIME time{2012, 7, 6, 2, 13, 4, 5, 678};
    EXPECT_EQ(m_analyzer.GetAttribue(attributes, L"at", time), FALSE);
    EXPECT_EQ(CalendarText(time), "2012-07-02(6) 13:04:05.678");
    EXPECT_THAT(TraceMessages(),
                ElementsAre(TraceLine{"TRA", "CXMLParser::GetAttribue", "Target Attribute no Attirbute."},
                            Line("ERR", "GetAttribue", "Node Value Get Fail.")));
}

TEST_F(GSXMLAnalyzer, AFailingConversionGivesTheFirstDayOf1601)
{
    m_machine.FailCall(Call::kCalendarToFileTime, 1, ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RecordOf({}), "4000 1601-01-01(1) 00:00:00.000 to 1970-01-01(4) 09:05:00.000");
}

// Peak elements

class GSXMLAnalyzerPeakTag : public GSXMLAnalyzerTag {
protected:
    // A report whose element fails with this message of its handler, after other lines.
    void ExpectFailure(const std::string& content, const std::string& message, std::vector<TraceLine> before = {})
    {
        EXPECT_THAT(RecordsOf(ReportWith(content)), IsEmpty()) << content;
        before.push_back(FromHandler(message));
        before.push_back(Outcome(false));
        EXPECT_EQ(AnalyzerMessages(), before) << content;
    }
    // The child of the element, with one attribute alone.
    std::string ChildWith(const std::string& attribute) const
    {
        const std::string child = GetParam().child;
        return "<" + child + " " + attribute + "='2012-07-02T00:00:00'>1</" + child + ">";
    }
};

INSTANTIATE_TEST_SUITE_P(Kinds, GSXMLAnalyzerPeakTag, testing::ValuesIn(kPeaks), NameOfKind);

TEST_P(GSXMLAnalyzerPeakTag, FailsSilentlyWhenTheChildCannotBeRead)
{
    const DomNodePtr node = FirstChild(GoodReport());
    m_machine.FailCall(Call::kGetDomItem, 1, kFault);
    EXPECT_EQ(Handle(node), FALSE);
    EXPECT_THAT(AnalyzerMessages(), IsEmpty());
    EXPECT_TRUE(m_list.Records().empty());
}

TEST_P(GSXMLAnalyzerPeakTag, FailsOnAFirstChildOfAnotherName)
{
    const std::string child = GetParam().child;
    const std::string good = PeakXml(child, {});
    for (const std::string& content :
         {"<!-- c -->" + good, "<x/>" + good, "text" + good, PeakXml(child == "supply" ? "Supply" : "Demand", {}),
          PeakXml(child == "supply" ? "demand" : "supply", {})}) {
        ExpectFailure(content, "NOT " + child + " tag");
    }
}

TEST_P(GSXMLAnalyzerPeakTag, FailsWhenTheAttributesCannotBeRead)
{
    const std::string child = GetParam().child;
    m_machine.FailCall(Call::kGetDomAttributes, 1, kFault);
    ExpectFailure(PeakXml(child, {}), "NOT " + child + " Attributes");
}

TEST_P(GSXMLAnalyzerPeakTag, FailsWithoutStartOrEnd)
{
    const TraceLine missing = Line("ERR", "GetAttribue", "Node Value Get Fail.");
    ExpectFailure(ChildWith("end"), "NOT start Attribute", {missing});
    ExpectFailure(ChildWith("start"), "NOT end Attribute", {missing});
}

TEST_P(GSXMLAnalyzerPeakTag, ReadsTheFirstChildOnly)
{
    const char* child = GetParam().child;
    EXPECT_THAT(RecordsOf(ReportWith(PeakXml(child, {"2012-07-02T00:00:00", "2012-07-02T01:00:00", "1"}) +
                                     PeakXml(child, {"2012-07-02T02:00:00", "2012-07-02T03:00:00", "2"}) + "<x/>")),
                ElementsAre("1 2012-07-02(1) 00:00:00.000 to 2012-07-02(1) 01:00:00.000"));
    EXPECT_THAT(AnalyzerMessages(), ElementsAre(Outcome(true)));
}

TEST_P(GSXMLAnalyzerPeakTag, KeepsInvalidTimesAndValuesAsTheyAreRead)
{
    EXPECT_THAT(RecordsOf(PeakReport(GetParam().dataType, {"today", "2012-13-01T00:00:00", "much"})),
                ElementsAre("0 1601-01-01(1) 00:00:00.000 to 1601-01-01(1) 00:00:00.000"));
    EXPECT_THAT(AnalyzerMessages(), ElementsAre(Outcome(true)));
}

TEST_P(GSXMLAnalyzerPeakTag, HasTheValueZeroWhenItsTextCannotBeRead)
{
    m_machine.FailCall(Call::kGetDomText, 1, kFault);
    EXPECT_THAT(RecordsOf(PeakReport(GetParam().dataType, {})),
                ElementsAre("0 2012-07-02(1) 00:00:00.000 to 2012-07-02(1) 23:59:59.000"));
}

// Hostile documents

// depth elements inside each other, around nothing.
std::string Nested(int depth)
{
    std::string starts;
    std::string ends;
    for (int i = 0; i < depth; ++i) {
        starts += "<n>";
        ends += "</n>";
    }
    return starts + ends;
}

TEST_F(GSXMLAnalyzer, NestedElementsAreOneUnknownChild)
{
    EXPECT_THAT(RecordsOf(Report(Nested(100))), IsEmpty());
    EXPECT_THAT(AnalyzerMessages(), ElementsAre(Line("WAR", "AnalyzeData", "Unknown Tag.(n)")));
}

TEST_F(GSXMLAnalyzer, VeryDeepNestingDoesNotCrash)
{
    const auto list = Analyze(Report(Nested(100'000)));
    // Each system has a limit of its own on the nesting.
    if (list) {
        EXPECT_TRUE(list->Records().empty());
        EXPECT_THAT(AnalyzerMessages(), ElementsAre(Line("WAR", "AnalyzeData", "Unknown Tag.(n)")));
    } else {
        EXPECT_THAT(AnalyzerMessages(), ElementsAre(kNoReport));
    }
}

TEST_F(GSXMLAnalyzer, ReportsInManyAlphabetsAreRead)
{
    EXPECT_THAT(RecordsOf(Report("<\xE6\x9D\xB1\xE4\xBA\xAC/>" + ElementXml("instant_usage", UsageXml({})))).size(),
                1U);
    EXPECT_THAT(AnalyzerMessages(),
                ElementsAre(Line("WAR", "AnalyzeData", "Unknown Tag.(\xE6\x9D\xB1\xE4\xBA\xAC)"), kInstantSuccess));
}

// A walk that started again for each child would exceed the test's time limit.
TEST_F(GSXMLAnalyzer, AHugeReportIsReadInLinearTime)
{
    constexpr unsigned kCount = 100'000;
    const CString xml = platform::DecodeUtf8(UsageReport(1, UsagesOfDay("2012-07-02", kCount, 300)));
    g_dwLogLevel = 0;
    const auto list = m_analyzer.AnalyzeData(xml);
    ASSERT_TRUE(list);
    EXPECT_EQ(list->Records().size(), kCount);
    EXPECT_EQ(list->Records().back().ullValue, kCount);
    EXPECT_EQ(m_machine.CallCount(Call::kGetDomLength), 2U);
    EXPECT_EQ(m_machine.CallCount(Call::kGetDomChildNodes), 2U);
    EXPECT_EQ(m_machine.CallCount(Call::kGetDomItem), kCount + 1);
    EXPECT_EQ(m_machine.CallCount(Call::kGetDomAttributes), kCount);
    EXPECT_EQ(m_machine.CallCount(Call::kGetDomText), kCount);
}

} // namespace
