#include "data/XMLParser.h"

#include "testing/FailingMemory.h"
#include "testing/MachineTest.h"
#include "testing/Reports.h"
#include "testing/ScratchFolder.h"
#include "testing/SlotOrder.h"
#include "testing/Trace.h"

#include <gmock/gmock.h>

#include <optional>
#include <set>

namespace {

using platform::DomAttributeMapPtr;
using platform::DomElementPtr;
using platform::DomNodeListPtr;
using platform::DomNodePtr;
using platform::sim::Call;
using testing::ElementsAre;
using testing::IsEmpty;
using testing_support::CFailingMemory;
using testing_support::NamedReport;
using testing_support::SlotOf;
using testing_support::TraceLine;
using testing_support::TraceLines;
using testing_support::TraceMessages;

constexpr auto kFault = static_cast<DWORD>(E_INVALIDARG);

TraceLine Line(const char* level, const char* operation, const char* message)
{
    return {level, std::string("CXMLParser::") + operation, message};
}

// The parts of a document, or nulls.
struct Parts {
    DomElementPtr root;
    DomNodeListPtr list; // the children of the root
    DomNodePtr node;     // the first of them
    DomAttributeMapPtr attributes;
};

class XMLParser : public testing_support::CMachineTest {
protected:
    // The parts of a text, as far as they exist; the trace is cleared after it.
    Parts Read(const std::string& xml)
    {
        Parts parts;
        parts.root = m_parser.Load(platform::DecodeUtf8(xml));
        EXPECT_TRUE(parts.root) << xml;
        parts.list = m_parser.GetChildNodes(parts.root);
        parts.node = m_parser.GetNode(parts.list, 0);
        parts.attributes = m_parser.GetNodeAttributes(parts.node);
        m_machine.ClearDebugLines();
        return parts;
    }

    CXMLParser m_parser;
};

TEST_F(XMLParser, SlotsKeepTheirOrder)
{
    EXPECT_EQ(SlotOf(&CXMLParser::Initialize), 1);
    EXPECT_EQ(SlotOf(&CXMLParser::Finalize), 2);
    EXPECT_EQ(SlotOf(&CXMLParser::Load), -1);
    EXPECT_EQ(SlotOf(&CXMLParser::LoadFile), -1);
    EXPECT_EQ(SlotOf(static_cast<DomNodeListPtr (CXMLParser::*)(const DomNodePtr&)>(&CXMLParser::GetChildNodes)), -1);
    EXPECT_EQ(SlotOf(static_cast<DomNodeListPtr (CXMLParser::*)(const DomElementPtr&)>(&CXMLParser::GetChildNodes)),
              -1);
    EXPECT_EQ(SlotOf(&CXMLParser::GetNode), -1);
    EXPECT_EQ(SlotOf(&CXMLParser::GetNodeAttributes), -1);
    EXPECT_EQ(SlotOf(static_cast<CString (CXMLParser::*)(const DomNodePtr&)>(&CXMLParser::GetTagName)), -1);
    EXPECT_EQ(SlotOf(static_cast<CString (CXMLParser::*)(const DomElementPtr&)>(&CXMLParser::GetTagName)), -1);
    EXPECT_EQ(SlotOf(&CXMLParser::GetTagValue), -1);
    EXPECT_EQ(SlotOf(&CXMLParser::GetChildCount), -1);
    EXPECT_EQ(SlotOf(&CXMLParser::GetAttribue), -1);
    static_assert(sizeof(CXMLParser) == sizeof(void*)); // no members but the table
}

TEST_F(XMLParser, ConstructionAndDestructionAreTraced)
{
    m_machine.ClearDebugLines();
    {
        const CXMLParser parser;
    }
    EXPECT_THAT(TraceLines(), ElementsAre(Line("TRA", "CXMLParser", "Enter"), Line("TRA", "CXMLParser", "Leave"),
                                          Line("TRA", "~CXMLParser", "Enter"), Line("TRA", "~CXMLParser", "Leave")));
}

TEST_F(XMLParser, InitializeAndFinalizeOnlyTraceTheirScopes)
{
    m_machine.ClearDebugLines();
    EXPECT_TRUE(m_parser.Initialize());
    m_parser.Finalize();
    EXPECT_THAT(TraceLines(), ElementsAre(Line("TRA", "Initialize", "Enter"), Line("TRA", "Initialize", "Leave"),
                                          Line("TRA", "Finalize", "Enter"), Line("TRA", "Finalize", "Leave")));
}

// Loading

TEST_F(XMLParser, LoadGivesTheRootElement)
{
    const Parts parts = Read("<?xml version='1.0' encoding='UTF-8'?><!-- before --><power_report/>");
    EXPECT_EQ(m_parser.GetTagName(parts.root), L"power_report");
}

TEST_F(XMLParser, AnElementOutlivesTheParserThatLoadedIt)
{
    DomElementPtr root;
    {
        CXMLParser parser;
        root = parser.Load(L"<r><a>text</a></r>");
    }
    const DomNodePtr child = m_parser.GetNode(m_parser.GetChildNodes(root), 0);
    root.reset();
    EXPECT_EQ(m_parser.GetTagValue(child), L"text");
}

TEST_F(XMLParser, EarlierHandlesOutliveAnotherLoad)
{
    const Parts first = Read("<first/>");
    Read("<second/>");
    EXPECT_EQ(m_parser.GetTagName(first.root), L"first");
}

// A text and a file are loaded alike. The parameter tells which.
enum class Source { kText, kFile };

class XMLParserLoad : public XMLParser, public testing::WithParamInterface<Source> {
protected:
    bool IsFile() const { return GetParam() == Source::kFile; }
    const char* Operation() const { return IsFile() ? "LoadFile" : "Load"; }
    TraceLine LoadFailed() const
    {
        return Line("ERR", Operation(), IsFile() ? "XML Load File fail.(0x08X)" : "XML Load fail.(0x08X)");
    }
    DomElementPtr Load(const std::string& xml = "<a/>")
    {
        m_machine.ClearDebugLines();
        return IsFile() ? m_parser.LoadFile(m_folder.Write("report.xml", xml).wstring())
                        : m_parser.Load(platform::DecodeUtf8(xml));
    }
    // The status that Load throws; S_OK when it throws nothing.
    HRESULT LoadStatus()
    {
        try {
            Load();
            return S_OK;
        } catch (const CComException& exception) {
            return exception.Code();
        }
    }

    const testing_support::CScratchFolder m_folder;
};

INSTANTIATE_TEST_SUITE_P(From, XMLParserLoad, testing::Values(Source::kText, Source::kFile),
                         [](const auto& test) { return test.param == Source::kFile ? "File" : "Text"; });

TEST_P(XMLParserLoad, TracesItsScope)
{
    EXPECT_TRUE(Load());
    EXPECT_THAT(TraceLines(), ElementsAre(Line("TRA", Operation(), "Enter"), Line("TRA", Operation(), "Leave")));
}

TEST_P(XMLParserLoad, ThrowsTheStatusWhenNoDocumentIsMade)
{
    constexpr auto kClassNotRegistered = static_cast<HRESULT>(0x80040154);
    for (const auto& [created, thrown] :
         {std::pair{E_FAIL, E_FAIL}, std::pair{kClassNotRegistered, kClassNotRegistered},
          std::pair{E_NOINTERFACE, E_POINTER}, std::pair{S_FALSE, E_POINTER}}) {
        m_machine.FailCall(Call::kCreateDomDocument, 1, static_cast<DWORD>(created));
        EXPECT_EQ(LoadStatus(), thrown) << created;
        EXPECT_THAT(TraceMessages(), IsEmpty());
        EXPECT_TRUE(testing_support::TraceScopesBalance(TraceLines()));
    }
    EXPECT_EQ(LoadStatus(), S_OK);
}

TEST_P(XMLParserLoad, ThrowsTheStatusWhenMemoryRunsOut)
{
    m_machine.FailCall(IsFile() ? Call::kLoadDomFileThrows : Call::kLoadDomTextThrows, 1, ERROR_OUTOFMEMORY);
    EXPECT_EQ(LoadStatus(), E_OUTOFMEMORY);
    EXPECT_THAT(TraceMessages(), IsEmpty());
    EXPECT_TRUE(testing_support::TraceScopesBalance(TraceLines()));
}

TEST_P(XMLParserLoad, TracesAFailureAndGivesNull)
{
    m_machine.FailCall(IsFile() ? Call::kLoadDomFile : Call::kLoadDomText, 1, kFault);
    EXPECT_FALSE(Load());
    EXPECT_THAT(TraceMessages(), ElementsAre(LoadFailed()));
    EXPECT_TRUE(Load());
}

TEST_P(XMLParserLoad, TracesAMissingRootElementAndGivesNull)
{
    m_machine.FailCall(Call::kGetDomDocumentElement, 1, kFault);
    EXPECT_FALSE(Load());
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", Operation(), "XML Document Element get fail.(0x08X)")));
}

TEST_P(XMLParserLoad, GivesNullForWhatIsNoDocument)
{
    for (const NamedReport& report : testing_support::UnloadableReports()) {
        EXPECT_FALSE(Load(report.xml)) << report;
        EXPECT_THAT(TraceMessages(), ElementsAre(LoadFailed())) << report;
    }
}

TEST_F(XMLParser, LoadFileReadsAFileInItsOwnEncoding)
{
    const testing_support::CScratchFolder folder;
    const std::string latin = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><r><a>\xE9</a></r>";
    const DomElementPtr root = m_parser.LoadFile(folder.Write("latin.xml", latin).wstring());
    ASSERT_TRUE(root);
    EXPECT_EQ(m_parser.GetTagValue(m_parser.GetNode(m_parser.GetChildNodes(root), 0)), L"\u00E9");
}

TEST_F(XMLParser, LoadFileOfAMissingFileGivesNull)
{
    const testing_support::CScratchFolder folder;
    EXPECT_FALSE(m_parser.LoadFile((folder.Path() / "none.xml").wstring()));
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "LoadFile", "XML Load File fail.(0x08X)")));
}

// Reading

// An operation that reads one thing, and how it fails.
struct Reading {
    const char* name;
    const char* operation;
    bool (*givesSomething)(CXMLParser& parser, const Parts& parts);
    const char* nullMessage; // for a null handle
    Call call;               // of the object model
    const char* failMessage; // when that call fails
};

std::ostream& operator<<(std::ostream& stream, const Reading& reading) { return stream << reading.name; }

constexpr char kNullNode[] = "Node Parameter NULL.";
constexpr char kNullElement[] = "Doc Element Parameter NULL.";

const Reading kReadings[] = {
    {"ChildrenOfNode", "GetChildNodes",
     [](CXMLParser& parser, const Parts& parts) { return parser.GetChildNodes(parts.node) != nullptr; }, kNullNode,
     Call::kGetDomChildNodes, "ChildNode get fail.(0x08X)"},
    {"ChildrenOfElement", "GetChildNodes",
     [](CXMLParser& parser, const Parts& parts) { return parser.GetChildNodes(parts.root) != nullptr; }, kNullElement,
     Call::kGetDomChildNodes, "ChildNode get fail.(0x08X)"},
    {"Node", "GetNode", [](CXMLParser& parser, const Parts& parts) { return parser.GetNode(parts.list, 0) != nullptr; },
     kNullNode, Call::kGetDomItem, "Node get fail.(0x08X)"},
    {"Attributes", "GetNodeAttributes",
     [](CXMLParser& parser, const Parts& parts) { return parser.GetNodeAttributes(parts.node) != nullptr; }, kNullNode,
     Call::kGetDomAttributes, "Attribute get fail.(0x08X)"},
    {"NameOfNode", "GetTagName",
     [](CXMLParser& parser, const Parts& parts) { return !parser.GetTagName(parts.node).empty(); }, kNullNode,
     Call::kGetDomNodeName, "Tag Name get fail.(0x08X)"},
    {"NameOfElement", "GetTagName",
     [](CXMLParser& parser, const Parts& parts) { return !parser.GetTagName(parts.root).empty(); }, kNullElement,
     Call::kGetDomNodeName, "Tag Name get fail.(0x08X)"},
    {"Value", "GetTagValue",
     [](CXMLParser& parser, const Parts& parts) { return !parser.GetTagValue(parts.node).empty(); }, kNullNode,
     Call::kGetDomText, "Tag Value get fail.(0x08X)"},
    {"Count", "GetChildCount",
     [](CXMLParser& parser, const Parts& parts) { return parser.GetChildCount(parts.list) != 0; }, kNullNode,
     Call::kGetDomLength, "ChildName Count get fail.(0x08X)"},
};

class XMLParserReading : public XMLParser, public testing::WithParamInterface<Reading> {
protected:
    bool GivesSomething(const Parts& parts) { return GetParam().givesSomething(m_parser, parts); }
    TraceLine Error(const char* message) const { return Line("ERR", GetParam().operation, message); }
};

INSTANTIATE_TEST_SUITE_P(Of, XMLParserReading, testing::ValuesIn(kReadings),
                         [](const auto& test) { return test.param.name; });

TEST_P(XMLParserReading, TracesItsScope)
{
    const Parts parts = Read("<r><a>x</a></r>");
    EXPECT_TRUE(GivesSomething(parts));
    EXPECT_EQ(TraceLines().front(), Line("TRA", GetParam().operation, "Enter"));
    EXPECT_EQ(TraceLines().back(), Line("TRA", GetParam().operation, "Leave"));
}

TEST_P(XMLParserReading, GivesNothingForANullHandle)
{
    EXPECT_FALSE(GivesSomething({}));
    EXPECT_THAT(TraceMessages(), ElementsAre(Error(GetParam().nullMessage)));
}

TEST_P(XMLParserReading, GivesNothingWhenItsCallFails)
{
    const Parts parts = Read("<r><a>x</a></r>");
    m_machine.FailCall(GetParam().call, 1, kFault);
    EXPECT_FALSE(GivesSomething(parts));
    std::vector<TraceLine> expected = {Error(GetParam().failMessage)};
    if (GetParam().call == Call::kGetDomLength) {
        expected.push_back(Line("TRA", "GetChildCount", "ChildNode Count is 0"));
    }
    EXPECT_EQ(TraceMessages(), expected);
}

TEST_F(XMLParser, ChildrenComeInDocumentOrder)
{
    const DomNodeListPtr list = Read("<r> <b/> <!-- c --> <a/>text<?pi x?></r>").list;
    EXPECT_EQ(m_parser.GetChildCount(list), 5);
    std::vector<CString> names;
    names.reserve(5);
    for (LONG i = 0; i < 5; ++i) {
        names.push_back(m_parser.GetTagName(m_parser.GetNode(list, i)));
    }
    EXPECT_THAT(names, ElementsAre(L"b", L"#comment", L"a", L"#text", L"pi"));
}

TEST_F(XMLParser, AnIndexOutsideTheListGivesNullSilently)
{
    const DomNodeListPtr list = Read("<r><a/><b/></r>").list;
    for (const LONG index : {LONG{2}, LONG{3}, LONG{-1}, LONG{0x7FFFFFFF}}) {
        EXPECT_FALSE(m_parser.GetNode(list, index)) << index;
    }
    EXPECT_THAT(TraceMessages(), IsEmpty());
    EXPECT_TRUE(m_parser.GetNode(list, 1));
}

TEST_F(XMLParser, OnlyElementsHaveAttributes)
{
    EXPECT_TRUE(m_parser.GetNodeAttributes(Read("<r><a/></r>").node)); // an empty map
    EXPECT_FALSE(m_parser.GetNodeAttributes(Read("<r><!-- c --></r>").node));
    EXPECT_THAT(TraceMessages(), IsEmpty());
}

TEST_F(XMLParser, TagNamesAreTracedInQuotes)
{
    EXPECT_EQ(m_parser.GetTagName(Read("<r/>").root), L"r");
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("TRA", "GetTagName", "TagName is \"r\"")));
    EXPECT_EQ(m_parser.GetTagName(Read("<r><x:a xmlns:x='u'/></r>").node), L"x:a");
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("TRA", "GetTagName", "TagName is \"x:a\"")));
}

TEST_F(XMLParser, TagValueIsTheTextOfAllNestedElements)
{
    for (const auto& [content, value] :
         {std::pair{"1<b>2<c>3</c></b>4<!-- no -->", "1234"}, std::pair{"", ""}, std::pair{"95%s", "95%s"}}) {
        const Parts parts = Read(std::string("<r><a>") + content + "</a></r>");
        EXPECT_EQ(m_parser.GetTagValue(parts.node), platform::DecodeUtf8(value));
        const std::string message = std::string("TagValue is \"") + value + "\"";
        EXPECT_THAT(TraceMessages(), ElementsAre(Line("TRA", "GetTagValue", message.c_str())));
    }
}

TEST_F(XMLParser, ChildCountIsTraced)
{
    EXPECT_EQ(m_parser.GetChildCount(Read("<r><a/><b/></r>").list), 2);
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("TRA", "GetChildCount", "ChildNode Count is 2")));
    EXPECT_EQ(m_parser.GetChildCount(Read("<r> \n </r>").list), 0);
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("TRA", "GetChildCount", "ChildNode Count is 0")));
}

// Attributes

constexpr char kNoMapOrName[] = "Node Parameter NULL or AttrName Empty.";

// Reading one attribute of an element.
struct AttributeCase {
    const char* name;
    const wchar_t* attribute;
    std::optional<Call> failing;
    DWORD code;                   // that the failing call gives
    std::optional<CString> value; // empty: not given
    const char* level;
    const char* message;
};

std::ostream& operator<<(std::ostream& stream, const AttributeCase& test) { return stream << test.name; }

const AttributeCase kAttributeCases[] = {
    {"NoName", L"", {}, 0, {}, "ERR", kNoMapOrName},
    {"FailingSearch", L"b", Call::kGetDomNamedItem, 0x8000FFFF, {}, "ERR", "Target Attribute get fail.(0x8000FFFF)"},
    {"FailingValue", L"b", Call::kGetDomNodeValue, kFault, {}, "ERR", "Target Attribute Value get fail.(0x80070057)"},
    // A variant that does not become a text leaves the status alone.
    {"ValueThatIsNoText", L"b", Call::kGetDomNodeValue, DWORD{S_FALSE}, L"", "TRA", "Attribute : \"b\" = \"\""},
    {"OtherCase", L"B", {}, 0, {}, "TRA", "Target Attribute no Attirbute."},
    {"Text", L"at", {}, 0, L"2012-07-02 & 50%", "TRA", "Attribute : \"at\" = \"2012-07-02 & 50%\""},
    {"EmptyText", L"none", {}, 0, L"", "TRA", "Attribute : \"none\" = \"\""},
};

class XMLParserAttribute : public XMLParser, public testing::WithParamInterface<AttributeCase> {};

INSTANTIATE_TEST_SUITE_P(With, XMLParserAttribute, testing::ValuesIn(kAttributeCases),
                         [](const auto& test) { return test.param.name; });

TEST_P(XMLParserAttribute, IsReadAndTraced)
{
    const Parts parts = Read("<r><a b='1' at='2012-07-02 &amp; 50%' none=''/></r>");
    if (GetParam().failing) {
        m_machine.FailCall(*GetParam().failing, 1, GetParam().code);
    }
    CString value = L"before";
    EXPECT_EQ(m_parser.GetAttribue(parts.attributes, GetParam().attribute, value), GetParam().value.has_value());
    EXPECT_EQ(value, GetParam().value.value_or(L"before"));
    EXPECT_THAT(TraceMessages(), ElementsAre(Line(GetParam().level, "GetAttribue", GetParam().message)));
    EXPECT_EQ(TraceLines().front(), Line("TRA", "GetAttribue", "Enter"));
    EXPECT_EQ(TraceLines().back(), Line("TRA", "GetAttribue", "Leave"));
}

TEST_F(XMLParser, AttributeOfANullMapIsRefused)
{
    CString value = L"before";
    EXPECT_FALSE(m_parser.GetAttribue(DomAttributeMapPtr(), L"b", value));
    EXPECT_EQ(value, L"before");
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "GetAttribue", kNoMapOrName)));
}

// Running out of memory

// Lets the allocations of a reading operation fail one by one. Each time it must not throw, give nothing and trace a
// line of ERR; those lines, each once.
template <class Operation>
std::set<std::string> LinesOfFailingMemory(platform::sim::CMachine& machine, Operation givesSomething)
{
    std::set<std::string> lines;
    for (unsigned nth = 1; nth < 1000; ++nth) {
        machine.ClearDebugLines();
        bool hasFailed = false;
        bool isGiven = false;
        {
            const CFailingMemory memory(nth);
            EXPECT_NO_THROW(isGiven = givesSomething());
            hasFailed = memory.HasFailed();
        }
        EXPECT_EQ(isGiven, !hasFailed) << "allocation " << nth;
        if (!hasFailed) {
            return lines;
        }
        const std::vector<TraceLine> messages = TraceMessages();
        EXPECT_THAT(messages, ElementsAre(testing::Field(&TraceLine::level, "ERR"))) << "allocation " << nth;
        for (const TraceLine& line : messages) {
            lines.insert(line.function + ": " + line.message);
        }
    }
    ADD_FAILURE() << "no end of allocations";
    return lines;
}

TEST_F(XMLParser, RunningOutOfMemoryWhileReadingIsAFailure)
{
    const std::string text(100, 'x'); // more than a text object holds without an allocation
    const Parts parts =
        Read("<" + text + "><" + text + " " + text + "='" + text + "'>" + text + "</" + text + "></" + text + ">");
    const CString name = platform::DecodeUtf8(text);
    g_dwLogLevel = kTraceErr; // other lines need memory too, and are lost without it

    for (const Reading& reading : kReadings) {
        const std::set<std::string> lines =
            LinesOfFailingMemory(m_machine, [&] { return reading.givesSomething(m_parser, parts); });
        const std::string failed = std::string("CXMLParser::") + reading.operation + ": " + reading.failMessage;
        if (reading.call == Call::kGetDomLength) {
            EXPECT_THAT(lines, IsEmpty());
        } else if (reading.call == Call::kGetDomItem || reading.call == Call::kGetDomAttributes) {
            // One of the systems needs no memory for it.
            EXPECT_THAT(lines, testing::IsSubsetOf({failed}));
        } else {
            EXPECT_THAT(lines, ElementsAre(failed)) << reading;
        }
    }
    CString value = L"before";
    std::vector<CString> names(100, name); // made before the memory fails
    const auto getAttribute = [&] {
        CString next = std::move(names.back());
        names.pop_back();
        const bool isGiven = m_parser.GetAttribue(parts.attributes, std::move(next), value);
        EXPECT_TRUE(isGiven || value == L"before");
        return isGiven;
    };
    EXPECT_THAT(LinesOfFailingMemory(m_machine, getAttribute),
                ElementsAre("CXMLParser::GetAttribue: Target Attribute Value get fail.(0x8007000E)",
                            "CXMLParser::GetAttribue: Target Attribute get fail.(0x8007000E)"));
    EXPECT_EQ(value, name);
}

TEST_F(XMLParser, RunningOutOfMemoryWhileLoadingIsAStatusOrAFailure)
{
    const CString xml = L"<" + CString(100, L'x') + L"/>";
    g_dwLogLevel = kTraceErr;
    bool hasFailed = true;
    std::set<std::string> lines;
    int thrown = 0;
    for (unsigned nth = 1; hasFailed; ++nth) {
        ASSERT_LT(nth, 1000U);
        m_machine.ClearDebugLines();
        CString copy = xml;
        DomElementPtr root;
        try {
            const CFailingMemory memory(nth);
            root = m_parser.Load(std::move(copy));
            hasFailed = memory.HasFailed();
        } catch (const CComException& exception) {
            EXPECT_EQ(exception.Code(), E_OUTOFMEMORY);
            ++thrown;
            continue;
        }
        EXPECT_EQ(root == nullptr, hasFailed) << "allocation " << nth;
        for (const TraceLine& line : TraceMessages()) {
            lines.insert(line.message);
        }
    }
    EXPECT_GE(thrown, 1); // the document's; on Linux the text's as well
    // The first on Linux, where the nodes are the program's own, the other elsewhere.
    EXPECT_THAT(lines, testing::IsSubsetOf({"XML Load fail.(0x08X)", "XML Document Element get fail.(0x08X)"}));
}

} // namespace
