#include "platform/Apartment.h"
#include "platform/contract/ContractTest.h"
#include "platform/contract/DomFixture.h"
#include "platform/Dom.h"
#include "platform/Text.h"

#include "testing/ScratchFolder.h"

#include <gmock/gmock.h>
#include <vector>

namespace contract {
namespace {

using namespace platform;
using testing::ElementsAre;
using testing::IsEmpty;

class Dom : public ContractTest {
protected:
    void SetUp() override
    {
        ContractTest::SetUp();
        EnterApartment();
        ASSERT_EQ(CreateDomDocument(&m_document), S_OK);
        ASSERT_NE(m_document, nullptr);
    }

    void TearDown() override
    {
        m_document.reset();
        LeaveApartment();
        ContractTest::TearDown();
    }

    // Loads a text; whether it is a document. What a failed load must leave behind is checked.
    bool Loads(const CString& xml)
    {
        bool loaded = true;
        const HRESULT status = LoadDomText(m_document, xml, &loaded);
        EXPECT_EQ(status == S_OK, loaded) << EncodeUtf8(xml.substr(0, 100));
        if (!loaded) {
            DomElementPtr element;
            EXPECT_TRUE(FAILED(GetDomDocumentElement(m_document, &element)));
            EXPECT_EQ(element, nullptr);
        }
        return loaded;
    }

    DomElementPtr Root()
    {
        DomElementPtr element;
        EXPECT_EQ(GetDomDocumentElement(m_document, &element), S_OK);
        return element;
    }

    // The children of the root of this text.
    std::vector<DomNodePtr> Load(const CString& xml)
    {
        if (!Loads(xml)) {
            ADD_FAILURE() << EncodeUtf8(xml);
            return {};
        }
        DomNodeListPtr list;
        EXPECT_EQ(GetDomChildNodes(Root(), &list), S_OK);
        return Items(list);
    }

    // The only child of the root.
    DomNodePtr LoadOne(const CString& xml)
    {
        const std::vector<DomNodePtr> children = Load(xml);
        EXPECT_EQ(children.size(), 1U) << EncodeUtf8(xml);
        return children.at(0);
    }

    static std::vector<DomNodePtr> Items(const DomNodeListPtr& list)
    {
        LONG length = -1;
        EXPECT_EQ(GetDomLength(list, &length), S_OK);
        std::vector<DomNodePtr> items(static_cast<std::size_t>(length));
        for (LONG i = 0; i < length; ++i) {
            EXPECT_EQ(GetDomItem(list, i, &items[static_cast<std::size_t>(i)]), S_OK);
        }
        return items;
    }

    static std::vector<DomNodePtr> Children(const DomNodePtr& node)
    {
        DomNodeListPtr list;
        EXPECT_EQ(GetDomChildNodes(node, &list), S_OK);
        return Items(list);
    }

    // In UTF-8, which a failing test prints.
    static std::string Name(const DomNodePtr& node)
    {
        CString name;
        EXPECT_EQ(GetDomNodeName(node, &name), S_OK);
        return EncodeUtf8(name);
    }

    static std::vector<std::string> Names(const std::vector<DomNodePtr>& nodes)
    {
        std::vector<std::string> names;
        for (const DomNodePtr& node : nodes) {
            names.push_back(Name(node));
        }
        return names;
    }

    static std::string Text(const DomNodePtr& node)
    {
        CString text;
        EXPECT_EQ(GetDomText(node, &text), S_OK);
        return EncodeUtf8(text);
    }

    // The text of an element with this content.
    std::string TextOf(const CString& content) { return Text(LoadOne(L"<r><a>" + content + L"</a></r>")); }

    // An attribute's value, or "(none)".
    static std::string Attribute(const DomNodePtr& node, const wchar_t* name)
    {
        DomAttributeMapPtr map;
        EXPECT_EQ(GetDomAttributes(node, &map), S_OK);
        DomNodePtr attribute;
        const HRESULT status = GetDomNamedItem(map, name, &attribute);
        EXPECT_EQ(status, attribute ? S_OK : S_FALSE);
        if (!attribute) {
            return "(none)";
        }
        CString value;
        EXPECT_EQ(GetDomNodeValue(attribute, &value), S_OK);
        return EncodeUtf8(value);
    }

    bool LoadsFile(const std::filesystem::path& path)
    {
        bool loaded = true;
        LoadDomFile(m_document, path.wstring(), &loaded);
        return loaded;
    }

    DomDocumentPtr m_document;
};

CString ManyNested(std::size_t depth) { return Repeated(L"<r>", depth) + Repeated(L"</r>", depth); }

// What is a document.

TEST_F(Dom, NewDocumentHasNoElement)
{
    DomElementPtr element;
    EXPECT_TRUE(FAILED(GetDomDocumentElement(m_document, &element)));
    EXPECT_EQ(element, nullptr);
}

TEST_F(Dom, AcceptsWellFormedDocuments)
{
    const CString documents[] = {
        L"<r/>",
        L"<r></r>\n",
        L"<?xml version=\"1.0\"?><r/>",
        L"<?xml version='1.0' encoding='UTF-8' standalone='yes' ?>\r\n<r/>",
        L"<?xml version=\"1.1\"?><r/>",
        L"<!-- a --><?p q?><r/><!-- b --><?p?>",
        L"<r xmlns='u' xmlns:x='v'><x:a x:b='1' b='2'/></r>",
        L"<r>\u3042\u20AC\x7F\x85\uFFFD</r>",
        L"<r>&lt;&gt;&amp;&quot;&apos;&#x3042;&#9;]]&gt;</r>",
        L"<\u96FB\u529B \u6642='1'/>",
    };
    for (const CString& document : documents) {
        EXPECT_TRUE(Loads(document)) << EncodeUtf8(document);
    }
}

TEST_F(Dom, RejectsWhatIsNoDocument)
{
    const CString texts[] = {
        L"",
        L"  \n",
        L"text",
        L"<r>",
        L"<r",
        L"</r>",
        L"<r/>x",
        L"x<r/>",
        L"<r/><r/>",
        L"<r></R>",
        L"<a><b></a></b>",
        L"<r a='1' a='2'/>",
        L"<r a=1/>",
        L"<r a/>",
        L"<r a='<'/>",
        L"<r>&</r>",
        L"<r>&nbsp;</r>",
        L"<r>&undefined;</r>",
        L"<r>&#0;</r>",
        L"<r>&#1;</r>",
        L"<r>\x01</r>",
        L"<r>]]></r>",
        L"<r><!-- a -- b --></r>",
        L"<r><?xml version=\"1.0\"?></r>",
        L"<?xml version=\"1.0\"?><?xml version=\"1.0\"?><r/>",
        L"<?xml version=\"2.0\"?><r/>",
        L"<?xml encoding=\"UTF-8\"?><r/>",
        L"<?xml version=\"1.0\" standalone=\"maybe\"?><r/>",
        L"<r>\uFFFF</r>",
        L"<r>\uFFFE</r>",
        L"<r xmlns:x='u' xmlns:y='u' x:a='1' y:a='2'/>",
        L"<!DOCTYPE html><html><body><p>an error page<br></body></html>",
    };
    for (const CString& text : texts) {
        EXPECT_FALSE(Loads(text)) << EncodeUtf8(text);
    }
}

TEST_F(Dom, FailedLoadLeavesNoDocument)
{
    ASSERT_TRUE(Loads(L"<r/>"));
    EXPECT_FALSE(Loads(L"<r>")); // checks that the element is gone
    EXPECT_TRUE(Loads(L"<again/>"));
}

TEST_F(Dom, PassesOverWhatComesBeforeTheDocument)
{
    for (const CString before : {L"\n", L"\t \r\n", L"\xFEFF", L" \xFEFF", L"\x3000", L"\xA0"}) {
        EXPECT_TRUE(Loads(before + L"<r/>")) << EncodeUtf8(before);
        EXPECT_TRUE(Loads(before + L"<?xml version=\"1.0\"?><r/>")) << EncodeUtf8(before);
    }
    EXPECT_FALSE(Loads(L"\xFEFF <?xml version=\"1.0\"?><r/>"));
    EXPECT_FALSE(Loads(L"<r/>\xA0"));
    EXPECT_FALSE(Loads(L"<r/>\xFEFF"));
}

TEST_F(Dom, CharactersAboveTheSurrogatesAreText)
{
    const CString kana(40, L'\xFF71');
    EXPECT_EQ(TextOf(kana), EncodeUtf8(kana));
}

TEST_F(Dom, TextEndsAtTheFirstZeroCharacter)
{
    EXPECT_TRUE(Loads(CString(L"<r/>\0", 5)));
    EXPECT_TRUE(Loads(CString(L"<r/>\0junk", 9)));
    EXPECT_FALSE(Loads(CString(L"<r>\0</r>", 8)));
    EXPECT_FALSE(Loads(CString(L"\0<r/>", 5)));
}

TEST_F(Dom, RejectsLoneSurrogates)
{
    for (const wchar_t unit : {wchar_t(0xD800), wchar_t(0xDBFF), wchar_t(0xDC00), wchar_t(0xDFFF)}) {
        EXPECT_FALSE(Loads(CString(L"<r>") + unit + L"</r>"));
    }
    for (std::size_t length = 0; length < 40; ++length) {
        EXPECT_FALSE(Loads(L"<r>" + CString(length, L'x') + wchar_t(0xD800) + CString(40, L'x') + L"</r>"));
    }
    EXPECT_EQ(Text(LoadOne(L"<r>\U0001F600</r>")), "\xF0\x9F\x98\x80");
}

TEST_F(Dom, EncodingDeclaredInWideTextHasNoEffect)
{
    // Symptom: a report that declared Shift_JIS was refused, although its text had long been decoded.
    for (const wchar_t* encoding : {L"UTF-8", L"utf-8", L"UTF-16", L"ISO-8859-1", L"US-ASCII", L"windows-1252",
                                    L"Shift_JIS", L"EUC-JP", L"UTF-32", L"x-none"}) {
        const CString declaration = CString(L"<?xml version=\"1.0\" encoding=\"") + encoding + L"\"?>";
        if (!IsWineDom() || Loads(declaration + L"<r/>")) {
            EXPECT_EQ(Text(LoadOne(declaration + L"<r>\u3042\u00E9</r>")), "\xE3\x81\x82\xC3\xA9");
        }
    }
}

// Limits and attacks.

TEST_F(Dom, LimitsDepth)
{
    EXPECT_TRUE(Loads(ManyNested(256)));
    EXPECT_FALSE(Loads(ManyNested(300)));
    EXPECT_FALSE(Loads(ManyNested(100'000)));
}

TEST_F(Dom, LimitsOneText)
{
    EXPECT_TRUE(Loads(L"<r>" + CString(9'990'000, L'x') + L"</r>"));
    EXPECT_EQ(Text(Load(L"<r>" + CString(9'990'000, L'x') + L"</r>").at(0)).size(), 9'990'000U);
    EXPECT_FALSE(Loads(L"<r>" + CString(10'100'000, L'x') + L"</r>"));
}

TEST_F(Dom, RejectsDocumentTypes)
{
    // Symptom: what a document type declares could take minutes to read, or stand for a gigabyte of text.
    const CString declarations[] = {
        L"",
        L" SYSTEM \"file:///r.dtd\"",
        L" SYSTEM \"http://127.0.0.1:9/r.dtd\"",
        L" [<!ELEMENT r ANY>]",
        L" [<!ATTLIST r a ID #IMPLIED>]",
        L" [<!ENTITY e \"x\">]",
        L" [<!ENTITY e SYSTEM \"file:///secret\">]",
        L" [<!ENTITY % e \"<!ENTITY f 'x'>\">%e;]",
        L" [<!NOTATION n SYSTEM \"n\">]",
    };
    const testing_support::CScratchFolder folder;
    for (const CString& declaration : declarations) {
        const CString document = L"<?xml version=\"1.0\"?>\n<!DOCTYPE r" + declaration + L"><r/>";
        ASSERT_TRUE(Loads(L"<r/>"));
        EXPECT_FALSE(Loads(document)) << EncodeUtf8(document);
        ASSERT_TRUE(Loads(L"<r/>"));
        EXPECT_FALSE(LoadsFile(folder.Write("report.xml", EncodeUtf8(document)))) << EncodeUtf8(document);
        DomElementPtr element;
        EXPECT_TRUE(FAILED(GetDomDocumentElement(m_document, &element)));
    }
}

TEST_F(Dom, LimitsNodes)
{
    // Symptom: a body of two million elements took 420 MB.
    EXPECT_TRUE(Loads(L"<r>" + Repeated(L"<a/>", 499'998) + L"</r>"));
    EXPECT_FALSE(Loads(L"<r>" + Repeated(L"<a/>", 499'999) + L"</r>"));
    EXPECT_TRUE(Loads(L"<r>" + Repeated(L"<a b='1'/>", 249'999) + L"</r>"));
    EXPECT_FALSE(Loads(L"<r>" + Repeated(L"<a b='1'/>", 250'000) + L"</r>"));
}

// An element with so many attributes.
CString ElementWith(std::size_t attributes, const CString& prefix)
{
    CString element = L"<a";
    for (std::size_t i = 0; i < attributes; ++i) {
        element += L" " + prefix + std::to_wstring(i) + L"='u'";
    }
    return element + L"/>";
}

TEST_F(Dom, LimitsAttributes)
{
    // Symptom: an element of 80,000 attributes took 15 seconds.
    EXPECT_TRUE(Loads(L"<r>" + Repeated(ElementWith(256, L"b"), 2) + L"</r>"));
    EXPECT_FALSE(Loads(L"<r>" + ElementWith(257, L"b") + L"</r>"));
}

TEST_F(Dom, LimitsNamespaces)
{
    // Symptom: elements inside thousands of namespace declarations took minutes.
    EXPECT_TRUE(Loads(L"<r>" + Repeated(ElementWith(50, L"xmlns:b"), 2) + L"</r>"));
    EXPECT_FALSE(Loads(L"<r>" + ElementWith(51, L"xmlns:b") + ElementWith(50, L"xmlns:b") + L"</r>"));
}

// Names, children, attributes.

TEST_F(Dom, NodesHaveTheNamesOfTheirKind)
{
    EXPECT_THAT(Names(Load(L"<r>text<a/><!-- c --><?target data?><![CDATA[x]]></r>")),
                ElementsAre("#text", "a", "#comment", "target", "#cdata-section"));
    EXPECT_EQ(Load(L"<r><![CDATA[x]]><![CDATA[y]]></r>").size(), IsWineDom() ? 1U : 2U);
    EXPECT_THAT(Names(Load(L"<r xmlns:x='u'><x:a/><A/><\u96FB/></r>")), ElementsAre("x:a", "A", "\xE9\x9B\xBB"));
}

TEST_F(Dom, RootHasATagName)
{
    for (const wchar_t* name : {L"power_report", L"x:r", L"R"}) {
        ASSERT_TRUE(Loads(CString(L"<") + name + L" xmlns:x='u'/>"));
        CString tagName;
        EXPECT_EQ(GetDomTagName(Root(), &tagName), S_OK);
        EXPECT_EQ(tagName, name);
    }
}

// Without its prefix an x:power_report would be a power_report.
TEST_F(Dom, RejectsPrefixesThatNobodyDeclared)
{
    const CString refused[] = {
        L"<x:r/>",
        L"<r><x:a/></r>",
        L"<r><x:a></x:a></r>",
        L"<r x:a='1'/>",
        L"<r><a b='1' x:b='2'/></r>",
        L"<r><a xmlns:x='u'/><x:b/></r>",
        L"<r><a xmlns:x='u'><b/></a><c x:d='1'/></r>",
        L"<r xmlns:X='u'><x:a/></r>",
        L"<r xmlns='u'><x:a/></r>",
        L"<r xmlns:x=''><x:a/></r>",
        L"<r a=' xmlns:x=\"u\" '><x:a/></r>",
        L"<!-- <r xmlns:x='u'> --><x:r/>",
        L"<r><![CDATA[<a xmlns:x='u'>]]><x:a/></r>",
        L"<r><?p <a xmlns:x='u'>?><x:a/></r>",
    };
    for (const CString& text : refused) {
        EXPECT_EQ(Loads(text), IsWineDom()) << EncodeUtf8(text);
    }
}

TEST_F(Dom, PrefixesAreDeclaredByTheElementOrThoseAroundIt)
{
    const CString accepted[] = {
        L"<x:r xmlns:x='u'/>",
        L"<x:r x:a='1'\txmlns:x\n=\n'u' ><a><x:b/></a></x:r>",
        L"<r xmlns:x='u'><a xmlns:x='v'/><x:b xmlns:y='w'><y:c/></x:b></r>",
        L"<r xmlns:x='u' b='/>' c=\">'>\"><x:a/></r>",
        L"<r xml:lang='en' xml:space='default'><a xml:lang=\"\"/></r>",
        L"<r a='x:y z:w=\"1\"'>x:y &gt; <!-- <x:a> --><![CDATA[<x:a>]]><?x x:y?></r>",
        L"<x:r xmlns:x='not an address'/>",
    };
    for (const CString& text : accepted) {
        EXPECT_TRUE(Loads(text)) << EncodeUtf8(text);
    }
}

TEST_F(Dom, BlankTextIsNotListed)
{
    EXPECT_THAT(Names(Load(L"<r>\r\n\t<a/> <b/>\n</r>")), ElementsAre("a", "b"));
    EXPECT_THAT(Load(L"<r>   \n </r>"), IsEmpty());
    EXPECT_THAT(Load(L"<r>&#32;&#10;</r>"), IsEmpty());
    EXPECT_THAT(Names(Load(L"<r> <a> x </a> y <b> z </b> </r>")), ElementsAre("a", "#text", "b"));
    EXPECT_THAT(Names(Load(L"<r> x <a/></r>")), ElementsAre("#text", "a"));
    EXPECT_THAT(Names(Load(L"<r> <!-- c --> <?p?> <![CDATA[ ]]> </r>")),
                ElementsAre("#comment", "p", "#cdata-section"));
    EXPECT_THAT(Names(Load(L"<r>\x3000</r>")), ElementsAre("#text"));
    EXPECT_THAT(Names(Load(L"<r>\xA0</r>")), ElementsAre("#text"));
}

TEST_F(Dom, BlankTextIsListedWhereItIsToBePreserved)
{
    EXPECT_THAT(Names(Load(L"<r xml:space='preserve'> <a/> </r>")), ElementsAre("#text", "a", "#text"));
    const DomNodePtr back = LoadOne(L"<r><p xml:space='preserve'><a xml:space='default'> <b/> </a></p></r>");
    EXPECT_THAT(Names(Children(Children(back).at(0))), ElementsAre("b"));
    const DomNodePtr other = LoadOne(L"<r><p xml:space='preserve'><a xml:space='other' space='default'> </a></p></r>");
    EXPECT_THAT(Names(Children(Children(other).at(0))), ElementsAre("#text"));
}

TEST_F(Dom, NodesWithoutChildrenHaveAnEmptyList)
{
    for (const DomNodePtr& node : Load(L"<r>text<a/><!-- c --><?p q?><![CDATA[x]]></r>")) {
        EXPECT_THAT(Children(node), IsEmpty()) << Name(node);
    }
}

TEST_F(Dom, IndexOutsideTheListGivesNothing)
{
    ASSERT_TRUE(Loads(L"<r><a/><b/></r>"));
    DomNodeListPtr list;
    ASSERT_EQ(GetDomChildNodes(Root(), &list), S_OK);
    for (const LONG index : {-1, 2, 3, 0x7FFFFFFF, -0x7FFFFFFF - 1}) {
        DomNodePtr node;
        EXPECT_EQ(GetDomItem(list, index, &node), S_FALSE) << index;
        EXPECT_EQ(node, nullptr);
    }
}

TEST_F(Dom, LongListsAreReadByIndexInOrder)
{
    constexpr std::size_t kCount = 100'000;
    CString xml = L"<r>\n";
    for (std::size_t i = 0; i < kCount; ++i) {
        xml += L"<u n='" + std::to_wstring(i) + L"'/>\n";
    }
    const std::int64_t start = ClockMs();
    const std::vector<DomNodePtr> children = Load(xml + L"</r>");
    ASSERT_EQ(children.size(), kCount);
    EXPECT_EQ(Attribute(children.front(), L"n"), "0");
    EXPECT_EQ(Attribute(children.back(), L"n"), std::to_string(kCount - 1));
    // A list that is walked from its start for every item takes minutes.
    EXPECT_LT(ClockMs() - start, static_cast<std::int64_t>(kLongMs));
}

TEST_F(Dom, AttributesAreFoundByTheirQualifiedName)
{
    const DomNodePtr node = LoadOne(L"<r xmlns:x='u'><a x:b='1' b='2' B='' c='&lt;&#x3042;&amp;'/></r>");
    EXPECT_EQ(Attribute(node, L"x:b"), "1");
    EXPECT_EQ(Attribute(node, L"b"), "2");
    EXPECT_EQ(Attribute(node, L"B"), "");
    EXPECT_EQ(Attribute(node, L"c"), "<\xE3\x81\x82&");
    EXPECT_EQ(Attribute(node, L"C"), "(none)");
    EXPECT_EQ(Attribute(node, L"x"), "(none)");
    EXPECT_EQ(Attribute(node, L""), "(none)");
}

TEST_F(Dom, AttributeValuesKeepTheirSpaces)
{
    const DomNodePtr node = LoadOne(L"<r><a b=' x  y ' c='p\r\nq\tr' d='&#10;'/></r>");
    EXPECT_EQ(Attribute(node, L"b"), " x  y ");
    EXPECT_EQ(Attribute(node, L"c"), "p q r");
    EXPECT_EQ(Attribute(node, L"d"), "\n");
}

TEST_F(Dom, OnlyElementsHaveAttributes)
{
    const std::vector<DomNodePtr> children = Load(L"<r>text<!-- c --><?p q='1'?><![CDATA[x]]><a/></r>");
    for (const DomNodePtr& node : children) {
        DomAttributeMapPtr map;
        const HRESULT status = GetDomAttributes(node, &map);
        EXPECT_EQ(status, node == children.back() ? S_OK : S_FALSE) << Name(node);
        EXPECT_EQ(map != nullptr, node == children.back()) << Name(node);
    }
}

// Texts and values.

TEST_F(Dom, TextIsTrimmedOfWhiteSpace)
{
    EXPECT_EQ(TextOf(L"12345"), "12345");
    EXPECT_EQ(TextOf(L" \t\r\n12345\n "), "12345");
    EXPECT_EQ(TextOf(L" a  b\nc "), "a  b\nc");
    EXPECT_EQ(TextOf(L"x\r\ny\rz"), "x\ny\nz");
    EXPECT_EQ(TextOf(L"   "), "");
    EXPECT_EQ(TextOf(L""), "");
    EXPECT_EQ(TextOf(L"\xA0x\x3000"), "\xC2\xA0x\xE3\x80\x80");
    EXPECT_EQ(Text(LoadOne(L"<r> text </r>")), "text");
}

TEST_F(Dom, TextOfCdataIsKeptWhole)
{
    EXPECT_EQ(TextOf(L"<![CDATA[ <x> & ]]>"), " <x> & ");
    EXPECT_EQ(TextOf(L" <![CDATA[ x ]]> "), " x ");
    EXPECT_EQ(TextOf(L"<![CDATA[   ]]>"), "   ");
    EXPECT_EQ(TextOf(L"a<![CDATA[ b ]]>c"), "a b c");
    EXPECT_EQ(Text(LoadOne(L"<r><![CDATA[ x ]]></r>")), " x ");
}

TEST_F(Dom, TextLeavesOutCommentsAndInstructions)
{
    EXPECT_EQ(TextOf(L"x<!-- c -->y<?p q?>z"), "xyz");
    EXPECT_EQ(TextOf(L"<!-- c --> 5 "), "5");
}

TEST_F(Dom, TextHasThatOfAllDescendants)
{
    EXPECT_EQ(TextOf(L"<b>1</b><c>2<d>3</d></c>4"), "1234");
    EXPECT_EQ(TextOf(L"x <b> y </b> z"), "x  y  z");
}

TEST_F(Dom, WhiteSpaceBetweenElementsPartsTheirTextsByOneSpace)
{
    EXPECT_EQ(TextOf(L"\n <b>1</b>\n <c>2</c>\n"), "1 2");
    EXPECT_EQ(TextOf(L"<b>1</b> <!-- c --> <c/> <d>2</d>"), "1 2");
    EXPECT_EQ(TextOf(L"<b>1 </b> <c>2</c>"), "1  2");
    EXPECT_EQ(TextOf(L"1<b> <c>2</c></b>"), "12");
    EXPECT_EQ(TextOf(L"1<b> </b>2"), "1 2");
}

TEST_F(Dom, TextIsNotTrimmedWhereSpaceIsToBePreserved)
{
    EXPECT_EQ(Text(LoadOne(L"<r><a xml:space='preserve'> x <b> y </b> </a></r>")), " x  y  ");
}

TEST_F(Dom, NodesOtherThanElementsHaveAValue)
{
    const auto value = [](const DomNodePtr& node) {
        CString text = L"(not set)";
        EXPECT_TRUE(SUCCEEDED(GetDomNodeValue(node, &text)));
        return EncodeUtf8(text);
    };
    const std::vector<DomNodePtr> nodes = Load(L"<r>text<!-- c --><?p q r?><![CDATA[ x ]]><a>inner</a></r>");
    ASSERT_EQ(nodes.size(), 5U);
    EXPECT_EQ(value(nodes[0]), "text");
    EXPECT_EQ(value(nodes[1]), " c ");
    EXPECT_EQ(value(nodes[2]), "q r");
    EXPECT_EQ(value(nodes[3]), " x ");
    EXPECT_EQ(value(nodes[4]), "");
}

TEST_F(Dom, HandlesKeepTheirDocumentAlive)
{
    const DomNodePtr node = LoadOne(L"<r><a b='1'><c>text</c></a></r>");
    DomAttributeMapPtr map;
    ASSERT_EQ(GetDomAttributes(node, &map), S_OK);
    const DomNodePtr text = Children(Children(node).at(0)).at(0);
    m_document.reset();
    EXPECT_EQ(Text(text), "text");
    EXPECT_EQ(Text(node), "text");
    DomNodePtr attribute;
    EXPECT_EQ(GetDomNamedItem(map, L"b", &attribute), S_OK);
    ASSERT_NE(attribute, nullptr);
    map.reset();
    EXPECT_EQ(Name(attribute), "b");
}

TEST_F(Dom, HandlesOutliveTheNextLoad)
{
    const DomNodePtr node = LoadOne(L"<r><a>first</a></r>");
    EXPECT_EQ(Text(LoadOne(L"<r><a>second</a></r>")), "second");
    EXPECT_EQ(Text(node), "first");
}

// Files.

TEST_F(Dom, FileIsDecodedAsItSays)
{
    const testing_support::CScratchFolder folder;
    const std::string files[] = {
        "<r>\xE3\x81\x82\xC3\xA9</r>",
        "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<r>\xE3\x81\x82\xC3\xA9</r>",
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><r>&#x3042;\xE9</r>",
        std::string("\xFF\xFE<\0r\0>\0\x42\x30\xE9\0<\0/\0r\0>\0", 20),
        std::string("\xFE\xFF\0<\0r\0>\x30\x42\0\xE9\0<\0/\0r\0>", 20),
    };
    for (const std::string& bytes : files) {
        EXPECT_TRUE(LoadsFile(folder.Write("report.xml", bytes))) << bytes;
        DomNodeListPtr list;
        ASSERT_EQ(GetDomChildNodes(Root(), &list), S_OK);
        EXPECT_EQ(Text(Items(list).at(0)), "\xE3\x81\x82\xC3\xA9") << bytes;
    }
}

TEST_F(Dom, FileThatIsNoDocumentIsNotLoaded)
{
    const testing_support::CScratchFolder folder;
    for (const char* bytes : {"", " ", "<r>", "<r>\xE9</r>", "  <?xml version=\"1.0\"?><r/>",
                              "<?xml version=\"1.0\" encoding=\"nonsense\"?><r/>", "<r>&#0;</r>"}) {
        EXPECT_FALSE(LoadsFile(folder.Write("report.xml", bytes))) << bytes;
    }
}

TEST_F(Dom, MissingFileIsNotLoaded)
{
    const testing_support::CScratchFolder folder;
    ASSERT_TRUE(Loads(L"<r/>"));
    EXPECT_FALSE(LoadsFile(folder.Path() / "missing.xml"));
    EXPECT_FALSE(LoadsFile(folder.Path() / "missing" / "missing.xml"));
    EXPECT_FALSE(LoadsFile(folder.Path()));
    DomElementPtr element;
    EXPECT_TRUE(FAILED(GetDomDocumentElement(m_document, &element)));
}

} // namespace
} // namespace contract
