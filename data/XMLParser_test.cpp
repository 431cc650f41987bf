#include "data/XMLParser.h"

#include "testing/FailingMemory.h"
#include "testing/MachineTest.h"
#include "testing/Reports.h"
#include "testing/ScratchFolder.h"
#include "testing/SlotOrder.h"
#include "testing/Trace.h"

#include <gmock/gmock.h>
#include <set>

namespace {

using platform::DomAttributeMapPtr;
using platform::DomElementPtr;
using platform::DomNodeListPtr;
using platform::DomNodePtr;
using platform::sim::Call;
using testing::ElementsAre;
using testing::IsEmpty;
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

class XMLParser : public testing_support::CMachineTest {
protected:
    // The root element of a text; the trace starts anew after it.
    DomElementPtr Root(const char* xml)
    {
        DomElementPtr root = m_parser.Load(platform::DecodeUtf8(xml));
        EXPECT_TRUE(root) << xml;
        m_machine.ClearDebugLines();
        return root;
    }
    // The first child of the root element of a text.
    DomNodePtr FirstChild(const char* xml)
    {
        DomNodePtr child = m_parser.GetNode(m_parser.GetChildNodes(Root(xml)), 0);
        EXPECT_TRUE(child) << xml;
        m_machine.ClearDebugLines();
        return child;
    }
    // The attributes of the first child.
    DomAttributeMapPtr Attributes(const char* xml)
    {
        DomAttributeMapPtr attributes = m_parser.GetNodeAttributes(FirstChild(xml));
        EXPECT_TRUE(attributes) << xml;
        m_machine.ClearDebugLines();
        return attributes;
    }
    // The status that Load throws; S_OK when it throws nothing.
    HRESULT LoadStatus()
    {
        try {
            m_parser.Load(L"<a/>");
            return S_OK;
        } catch (const CComException& exception) {
            return exception.Code();
        }
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

TEST_F(XMLParser, EveryOperationTracesItsScope)
{
    const DomNodePtr node = FirstChild("<r><a b='1'>x</a></r>");
    const DomElementPtr root = Root("<r><a/></r>");
    const DomNodeListPtr list = m_parser.GetChildNodes(root);
    const DomAttributeMapPtr attributes = m_parser.GetNodeAttributes(node);
    m_machine.ClearDebugLines();

    CString value;
    const auto construct = [] { const CXMLParser parser; };
    const std::pair<const char*, std::function<void()>> operations[] = {
        {"Initialize", [&] { EXPECT_TRUE(m_parser.Initialize()); }},
        {"Finalize", [&] { m_parser.Finalize(); }},
        {"Load", [&] { m_parser.Load(L"<a/>"); }},
        {"LoadFile", [&] { m_parser.LoadFile(L""); }},
        {"GetChildNodes", [&] { m_parser.GetChildNodes(node); }},
        {"GetChildNodes", [&] { m_parser.GetChildNodes(root); }},
        {"GetNode", [&] { m_parser.GetNode(list, 0); }},
        {"GetNodeAttributes", [&] { m_parser.GetNodeAttributes(node); }},
        {"GetTagName", [&] { m_parser.GetTagName(node); }},
        {"GetTagName", [&] { m_parser.GetTagName(root); }},
        {"GetTagValue", [&] { m_parser.GetTagValue(node); }},
        {"GetChildCount", [&] { m_parser.GetChildCount(list); }},
        {"GetAttribue", [&] { m_parser.GetAttribue(attributes, L"b", value); }},
    };
    for (const auto& [name, operation] : operations) {
        m_machine.ClearDebugLines();
        operation();
        const std::vector<TraceLine> lines = TraceLines();
        ASSERT_GE(lines.size(), 2U) << name;
        EXPECT_EQ(lines.front(), Line("TRA", name, "Enter"));
        EXPECT_EQ(lines.back(), Line("TRA", name, "Leave"));
    }
    m_machine.ClearDebugLines();
    construct();
    EXPECT_THAT(TraceLines(), ElementsAre(Line("TRA", "CXMLParser", "Enter"), Line("TRA", "CXMLParser", "Leave"),
                                          Line("TRA", "~CXMLParser", "Enter"), Line("TRA", "~CXMLParser", "Leave")));
}

TEST_F(XMLParser, LoadGivesTheRootElement)
{
    const DomElementPtr root = Root("<?xml version='1.0' encoding='UTF-8'?><!-- before --><power_report/>");
    EXPECT_EQ(m_parser.GetTagName(root), L"power_report");
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

TEST_F(XMLParser, LoadingAnotherDocumentLeavesEarlierHandlesAlone)
{
    const DomElementPtr first = Root("<first/>");
    Root("<second/>");
    EXPECT_EQ(m_parser.GetTagName(first), L"first");
}

TEST_F(XMLParser, CreationFailureOfTheDocumentIsThrown)
{
    m_machine.FailCall(Call::kCreateDomDocument, 1, static_cast<DWORD>(E_FAIL));
    EXPECT_EQ(LoadStatus(), E_FAIL);
    m_machine.FailCall(Call::kCreateDomDocument, 1, 0x80040154); // class not registered
    EXPECT_EQ(LoadStatus(), static_cast<HRESULT>(0x80040154));
    EXPECT_EQ(LoadStatus(), S_OK);
    EXPECT_TRUE(testing_support::TraceScopesBalance(TraceLines()));
    EXPECT_EQ(testing_support::CountTrace("ERR", "CXMLParser::Load", "XML Load fail.(0x08X)"), 0);
}

TEST_F(XMLParser, AMissingInterfaceOfTheDocumentIsThrownAsNullPointer)
{
    m_machine.FailCall(Call::kCreateDomDocument, 1, static_cast<DWORD>(E_NOINTERFACE));
    EXPECT_EQ(LoadStatus(), E_POINTER);
}

TEST_F(XMLParser, ASuccessfulCreationWithoutDocumentIsThrownAsNullPointer)
{
    m_machine.FailCall(Call::kCreateDomDocument, 1, static_cast<DWORD>(S_FALSE));
    EXPECT_EQ(LoadStatus(), E_POINTER);
}

TEST_F(XMLParser, LoadFileThrowsLikeLoad)
{
    m_machine.FailCall(Call::kCreateDomDocument, 1, static_cast<DWORD>(E_FAIL));
    EXPECT_THROW(m_parser.LoadFile(L"report.xml"), CComException);
}

TEST_F(XMLParser, RunningOutOfMemoryForTheTextIsThrownAsStatus)
{
    m_machine.FailCall(Call::kLoadDomTextThrows, 1, ERROR_OUTOFMEMORY);
    EXPECT_EQ(LoadStatus(), E_OUTOFMEMORY);
    EXPECT_THAT(TraceMessages(), IsEmpty());
    EXPECT_TRUE(testing_support::TraceScopesBalance(TraceLines()));
}

TEST_F(XMLParser, RunningOutOfMemoryForThePathIsThrownAsStatus)
{
    m_machine.FailCall(Call::kLoadDomFileThrows, 1, ERROR_OUTOFMEMORY);
    try {
        m_parser.LoadFile(L"report.xml");
        ADD_FAILURE() << "nothing thrown";
    } catch (const CComException& exception) {
        EXPECT_EQ(exception.Code(), E_OUTOFMEMORY);
    }
}

TEST_F(XMLParser, AFailingLoadIsTracedAndGivesNull)
{
    m_machine.FailCall(Call::kLoadDomText, 1, kFault);
    EXPECT_FALSE(m_parser.Load(L"<a/>"));
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "Load", "XML Load fail.(0x08X)")));
}

TEST_F(XMLParser, AFailingLoadOfAFileIsTracedAndGivesNull)
{
    const testing_support::CScratchFolder folder;
    const CString path = folder.Write("report.xml", "<a/>").wstring();
    m_machine.FailCall(Call::kLoadDomFile, 1, kFault);
    EXPECT_FALSE(m_parser.LoadFile(path));
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "LoadFile", "XML Load File fail.(0x08X)")));
    EXPECT_TRUE(m_parser.LoadFile(path));
}

TEST_F(XMLParser, AMissingRootElementIsTracedAndGivesNull)
{
    m_machine.FailCall(Call::kGetDomDocumentElement, 1, kFault);
    EXPECT_FALSE(m_parser.Load(L"<a/>"));
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "Load", "XML Document Element get fail.(0x08X)")));
}

TEST_F(XMLParser, AMissingRootElementOfAFileIsTracedAndGivesNull)
{
    const testing_support::CScratchFolder folder;
    m_machine.FailCall(Call::kGetDomDocumentElement, 1, kFault);
    EXPECT_FALSE(m_parser.LoadFile(folder.Write("report.xml", "<a/>").wstring()));
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "LoadFile", "XML Document Element get fail.(0x08X)")));
}

class XMLParserUnloadable : public XMLParser, public testing::WithParamInterface<NamedReport> {};

TEST_P(XMLParserUnloadable, GivesNullWithoutException)
{
    EXPECT_FALSE(m_parser.Load(platform::DecodeUtf8(GetParam().xml)));
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "Load", "XML Load fail.(0x08X)")));
}

TEST_P(XMLParserUnloadable, GivesNullWithoutExceptionFromAFile)
{
    const testing_support::CScratchFolder folder;
    EXPECT_FALSE(m_parser.LoadFile(folder.Write("report.xml", GetParam().xml).wstring()));
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "LoadFile", "XML Load File fail.(0x08X)")));
}

INSTANTIATE_TEST_SUITE_P(Texts, XMLParserUnloadable, testing::ValuesIn(testing_support::UnloadableReports()),
                         [](const auto& test) { return test.param.name; });

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

TEST_F(XMLParser, ChildrenComeInDocumentOrder)
{
    const DomNodeListPtr list = m_parser.GetChildNodes(Root("<r> <b/> <!-- c --> <a/>text<?pi x?></r>"));
    EXPECT_EQ(m_parser.GetChildCount(list), 5);
    std::vector<CString> names;
    for (LONG i = 0; i < 5; ++i) {
        names.push_back(m_parser.GetTagName(m_parser.GetNode(list, i)));
    }
    EXPECT_THAT(names, ElementsAre(L"b", L"#comment", L"a", L"#text", L"pi"));
}

TEST_F(XMLParser, ChildNodesOfANullNode)
{
    EXPECT_FALSE(m_parser.GetChildNodes(DomNodePtr()));
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "GetChildNodes", "Node Parameter NULL.")));
}

TEST_F(XMLParser, ChildNodesOfANullElement)
{
    EXPECT_FALSE(m_parser.GetChildNodes(DomElementPtr()));
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "GetChildNodes", "Doc Element Parameter NULL.")));
}

TEST_F(XMLParser, ChildNodesOfANodeThatFail)
{
    const DomNodePtr node = FirstChild("<r><a/></r>");
    m_machine.FailCall(Call::kGetDomChildNodes, 1, kFault);
    EXPECT_FALSE(m_parser.GetChildNodes(node));
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "GetChildNodes", "ChildNode get fail.(0x08X)")));
}

TEST_F(XMLParser, ChildNodesOfAnElementThatFail)
{
    const DomElementPtr root = Root("<r><a/></r>");
    m_machine.FailCall(Call::kGetDomChildNodes, 1, kFault);
    EXPECT_FALSE(m_parser.GetChildNodes(root));
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "GetChildNodes", "ChildNode get fail.(0x08X)")));
}

TEST_F(XMLParser, ANodeOfANullList)
{
    EXPECT_FALSE(m_parser.GetNode(DomNodeListPtr(), 0));
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "GetNode", "Node Parameter NULL.")));
}

TEST_F(XMLParser, ANodeThatFails)
{
    const DomNodeListPtr list = m_parser.GetChildNodes(Root("<r><a/></r>"));
    m_machine.FailCall(Call::kGetDomItem, 1, kFault);
    EXPECT_FALSE(m_parser.GetNode(list, 0));
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "GetNode", "Node get fail.(0x08X)")));
}

TEST_F(XMLParser, AnIndexOutsideTheListGivesNullSilently)
{
    const DomNodeListPtr list = m_parser.GetChildNodes(Root("<r><a/><b/></r>"));
    for (const LONG index : {LONG{2}, LONG{3}, LONG{-1}, LONG{0x7FFFFFFF}}) {
        EXPECT_FALSE(m_parser.GetNode(list, index)) << index;
    }
    EXPECT_THAT(TraceMessages(), IsEmpty());
    EXPECT_TRUE(m_parser.GetNode(list, 1));
}

TEST_F(XMLParser, AttributesOfANullNode)
{
    EXPECT_FALSE(m_parser.GetNodeAttributes(DomNodePtr()));
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "GetNodeAttributes", "Node Parameter NULL.")));
}

TEST_F(XMLParser, AttributesThatFail)
{
    const DomNodePtr node = FirstChild("<r><a/></r>");
    m_machine.FailCall(Call::kGetDomAttributes, 1, kFault);
    EXPECT_FALSE(m_parser.GetNodeAttributes(node));
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "GetNodeAttributes", "Attribute get fail.(0x08X)")));
}

TEST_F(XMLParser, ANodeThatIsNoElementHasNoAttributesSilently)
{
    const DomNodePtr comment = FirstChild("<r><!-- c --></r>");
    EXPECT_FALSE(m_parser.GetNodeAttributes(comment));
    EXPECT_THAT(TraceMessages(), IsEmpty());
}

TEST_F(XMLParser, AnElementWithoutAttributesHasAnEmptyMap)
{
    EXPECT_TRUE(m_parser.GetNodeAttributes(FirstChild("<r><a/></r>")));
}

TEST_F(XMLParser, TagNameOfANullNode)
{
    EXPECT_EQ(m_parser.GetTagName(DomNodePtr()), L"");
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "GetTagName", "Node Parameter NULL.")));
}

TEST_F(XMLParser, TagNameOfANullElement)
{
    EXPECT_EQ(m_parser.GetTagName(DomElementPtr()), L"");
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "GetTagName", "Doc Element Parameter NULL.")));
}

TEST_F(XMLParser, TagNameOfANodeThatFails)
{
    const DomNodePtr node = FirstChild("<r><a/></r>");
    m_machine.FailCall(Call::kGetDomNodeName, 1, kFault);
    EXPECT_EQ(m_parser.GetTagName(node), L"");
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "GetTagName", "Tag Name get fail.(0x08X)")));
}

TEST_F(XMLParser, TagNameOfAnElementThatFails)
{
    const DomElementPtr root = Root("<r/>");
    m_machine.FailCall(Call::kGetDomNodeName, 1, kFault);
    EXPECT_EQ(m_parser.GetTagName(root), L"");
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "GetTagName", "Tag Name get fail.(0x08X)")));
}

TEST_F(XMLParser, TagNamesAreTracedInQuotes)
{
    EXPECT_EQ(m_parser.GetTagName(Root("<r/>")), L"r");
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("TRA", "GetTagName", "TagName is \"r\"")));
    EXPECT_EQ(m_parser.GetTagName(FirstChild("<r><x:a xmlns:x='u'/></r>")), L"x:a");
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("TRA", "GetTagName", "TagName is \"x:a\"")));
}

TEST_F(XMLParser, TagValueOfANullNode)
{
    EXPECT_EQ(m_parser.GetTagValue(DomNodePtr()), L"");
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "GetTagValue", "Node Parameter NULL.")));
}

TEST_F(XMLParser, TagValueThatFails)
{
    const DomNodePtr node = FirstChild("<r><a>1</a></r>");
    m_machine.FailCall(Call::kGetDomText, 1, kFault);
    EXPECT_EQ(m_parser.GetTagValue(node), L"");
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "GetTagValue", "Tag Value get fail.(0x08X)")));
}

TEST_F(XMLParser, TagValueIsTheTextOfAllNestedElements)
{
    EXPECT_EQ(m_parser.GetTagValue(FirstChild("<r><a>1<b>2<c>3</c></b>4<!-- no --></a></r>")), L"1234");
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("TRA", "GetTagValue", "TagValue is \"1234\"")));
}

TEST_F(XMLParser, TagValueOfAnEmptyElementIsEmptyAndTraced)
{
    EXPECT_EQ(m_parser.GetTagValue(FirstChild("<r><a/></r>")), L"");
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("TRA", "GetTagValue", "TagValue is \"\"")));
}

TEST_F(XMLParser, APercentSignOfADocumentIsTracedAsItIs)
{
    EXPECT_EQ(m_parser.GetTagValue(FirstChild("<r><a>95%s</a></r>")), L"95%s");
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("TRA", "GetTagValue", "TagValue is \"95%s\"")));
}

TEST_F(XMLParser, ChildCountOfANullListIsZeroWithoutTraceLine)
{
    EXPECT_EQ(m_parser.GetChildCount(DomNodeListPtr()), 0);
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "GetChildCount", "Node Parameter NULL.")));
}

TEST_F(XMLParser, ChildCountThatFailsIsZeroWithTraceLine)
{
    const DomNodeListPtr list = m_parser.GetChildNodes(Root("<r><a/></r>"));
    m_machine.FailCall(Call::kGetDomLength, 1, kFault);
    EXPECT_EQ(m_parser.GetChildCount(list), 0);
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "GetChildCount", "ChildName Count get fail.(0x08X)"),
                                             Line("TRA", "GetChildCount", "ChildNode Count is 0")));
}

TEST_F(XMLParser, ChildCountIsTraced)
{
    EXPECT_EQ(m_parser.GetChildCount(m_parser.GetChildNodes(Root("<r><a/><b/></r>"))), 2);
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("TRA", "GetChildCount", "ChildNode Count is 2")));
    EXPECT_EQ(m_parser.GetChildCount(m_parser.GetChildNodes(Root("<r> \n </r>"))), 0);
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("TRA", "GetChildCount", "ChildNode Count is 0")));
}

TEST_F(XMLParser, AttributeOfANullMap)
{
    CString value = L"before";
    EXPECT_FALSE(m_parser.GetAttribue(DomAttributeMapPtr(), L"b", value));
    EXPECT_EQ(value, L"before");
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "GetAttribue", "Node Parameter NULL or AttrName Empty.")));
}

TEST_F(XMLParser, AttributeOfAnEmptyName)
{
    const DomAttributeMapPtr attributes = Attributes("<r><a b='1'/></r>");
    CString value = L"before";
    EXPECT_FALSE(m_parser.GetAttribue(attributes, L"", value));
    EXPECT_EQ(value, L"before");
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "GetAttribue", "Node Parameter NULL or AttrName Empty.")));
}

TEST_F(XMLParser, AttributeWhoseSearchFailsShowsTheStatus)
{
    const DomAttributeMapPtr attributes = Attributes("<r><a b='1'/></r>");
    m_machine.FailCall(Call::kGetDomNamedItem, 1, 0x8000FFFF);
    CString value = L"before";
    EXPECT_FALSE(m_parser.GetAttribue(attributes, L"b", value));
    EXPECT_EQ(value, L"before");
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "GetAttribue", "Target Attribute get fail.(0x8000FFFF)")));
}

TEST_F(XMLParser, AttributeWhoseValueFailsShowsTheStatus)
{
    const DomAttributeMapPtr attributes = Attributes("<r><a b='1'/></r>");
    m_machine.FailCall(Call::kGetDomNodeValue, 1, kFault);
    CString value = L"before";
    EXPECT_FALSE(m_parser.GetAttribue(attributes, L"b", value));
    EXPECT_EQ(value, L"before");
    EXPECT_THAT(TraceMessages(),
                ElementsAre(Line("ERR", "GetAttribue", "Target Attribute Value get fail.(0x80070057)")));
}

// A variant that does not become a text leaves the status alone.
TEST_F(XMLParser, AnAttributeValueThatCannotBeConvertedIsEmpty)
{
    const DomAttributeMapPtr attributes = Attributes("<r><a b='1'/></r>");
    m_machine.FailCall(Call::kGetDomNodeValue, 1, static_cast<DWORD>(S_FALSE));
    CString value = L"before";
    EXPECT_TRUE(m_parser.GetAttribue(attributes, L"b", value));
    EXPECT_EQ(value, L"");
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("TRA", "GetAttribue", "Attribute : \"b\" = \"\"")));
}

TEST_F(XMLParser, AMissingAttributeIsATraceLineAndNoError)
{
    const DomAttributeMapPtr attributes = Attributes("<r><a b='1'/></r>");
    CString value = L"before";
    EXPECT_FALSE(m_parser.GetAttribue(attributes, L"B", value)); // names differ in case
    EXPECT_EQ(value, L"before");
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("TRA", "GetAttribue", "Target Attribute no Attirbute.")));
}

TEST_F(XMLParser, AnAttributeIsReadAndTraced)
{
    const DomAttributeMapPtr attributes = Attributes("<r><a b='1' datetime='2012-07-02 &amp; 50%'/></r>");
    CString value;
    EXPECT_TRUE(m_parser.GetAttribue(attributes, L"datetime", value));
    EXPECT_EQ(value, L"2012-07-02 & 50%");
    EXPECT_THAT(TraceMessages(),
                ElementsAre(Line("TRA", "GetAttribue", "Attribute : \"datetime\" = \"2012-07-02 & 50%\"")));
}

TEST_F(XMLParser, AnEmptyAttributeIsThere)
{
    CString value = L"before";
    EXPECT_TRUE(m_parser.GetAttribue(Attributes("<r><a b=''/></r>"), L"b", value));
    EXPECT_EQ(value, L"");
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("TRA", "GetAttribue", "Attribute : \"b\" = \"\"")));
}

// Want of memory

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
            const testing_support::CFailingMemory memory(nth);
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

TEST_F(XMLParser, WantOfMemoryWhileReadingIsAFailedStatus)
{
    const std::string text(100, 'x'); // more than a text object holds without an allocation
    const std::string xml =
        "<" + text + "><" + text + " " + text + "='" + text + "'>" + text + "</" + text + "></" + text + ">";
    const DomElementPtr root = Root(xml.c_str());
    const DomNodeListPtr list = m_parser.GetChildNodes(root);
    const DomNodePtr node = m_parser.GetNode(list, 0);
    const DomAttributeMapPtr attributes = m_parser.GetNodeAttributes(node);
    const CString name = platform::DecodeUtf8(text);
    g_dwLogLevel = kTraceErr; // other lines need memory too, and are lost without it

    const auto lines = [this](auto operation) { return LinesOfFailingMemory(m_machine, operation); };
    const std::string children = "CXMLParser::GetChildNodes: ChildNode get fail.(0x08X)";
    EXPECT_THAT(lines([&] { return m_parser.GetChildNodes(node) != nullptr; }), ElementsAre(children));
    EXPECT_THAT(lines([&] { return m_parser.GetChildNodes(root) != nullptr; }), ElementsAre(children));
    EXPECT_THAT(lines([&] { return m_parser.GetNodeAttributes(node) != nullptr; }),
                ElementsAre("CXMLParser::GetNodeAttributes: Attribute get fail.(0x08X)"));
    const std::string tagName = "CXMLParser::GetTagName: Tag Name get fail.(0x08X)";
    EXPECT_THAT(lines([&] { return !m_parser.GetTagName(node).empty(); }), ElementsAre(tagName));
    EXPECT_THAT(lines([&] { return !m_parser.GetTagName(root).empty(); }), ElementsAre(tagName));
    EXPECT_THAT(lines([&] { return !m_parser.GetTagValue(node).empty(); }),
                ElementsAre("CXMLParser::GetTagValue: Tag Value get fail.(0x08X)"));
    CString value = L"before";
    std::vector<CString> names(100, name); // made before the memory fails
    const auto getAttribute = [&] {
        CString next = std::move(names.back());
        names.pop_back();
        const bool isGiven = m_parser.GetAttribue(attributes, std::move(next), value);
        EXPECT_TRUE(isGiven || value == L"before");
        return isGiven;
    };
    EXPECT_THAT(lines(getAttribute),
                ElementsAre("CXMLParser::GetAttribue: Target Attribute Value get fail.(0x8007000E)",
                            "CXMLParser::GetAttribue: Target Attribute get fail.(0x8007000E)"));
    EXPECT_EQ(value, name);

    // One of the systems needs no memory for these two.
    EXPECT_THAT(lines([&] { return m_parser.GetNode(list, 0) != nullptr; }),
                testing::IsSubsetOf({"CXMLParser::GetNode: Node get fail.(0x08X)"}));
    EXPECT_THAT(lines([&] { return m_parser.GetChildCount(list) == 1; }), IsEmpty());
}

TEST_F(XMLParser, WantOfMemoryWhileLoadingIsThrownAsStatusOrAFailure)
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
            const testing_support::CFailingMemory memory(nth);
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
    EXPECT_GE(thrown, 2); // the document's and the text's
    EXPECT_THAT(lines, ElementsAre("XML Document Element get fail.(0x08X)"));
}

} // namespace
