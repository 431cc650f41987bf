// The document object model on libxml2, made to behave as MSXML does. libxml2 is the parser inside wine's MSXML too, so
// limits (256 levels, 10 MB of text in one node) come out the same by themselves; this file adds the rest: which text
// is dropped, how it is trimmed, what may stand before and after the document.
#include "platform/Dom.h"

#include "platform/portable/DocumentCheck.h"
#include "platform/portable/StatusOf.h"
#include "platform/Text.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace platform {

// Every handle shares the tree and so keeps it alive.
using XmlTree = std::shared_ptr<xmlDoc>;

class CDomDocument {
public:
    XmlTree tree; // null: nothing loaded
};

class CDomElement {
public:
    XmlTree tree;
    const xmlNode* node;
};

class CDomNode {
public:
    XmlTree tree;
    const xmlNode* node; // an attribute too: the two structures begin alike
};

class CDomNodeList {
public:
    XmlTree tree;
    std::vector<const xmlNode*> nodes;
};

class CDomAttributeMap {
public:
    XmlTree tree;
    const xmlNode* element;
};

namespace {

struct FreeParser {
    void operator()(xmlParserCtxt* parser) const { xmlFreeParserCtxt(parser); }
};
using ParserPtr = std::unique_ptr<xmlParserCtxt, FreeParser>;

struct FreeXml {
    void operator()(xmlChar* text) const { xmlFree(text); }
};
using XmlTextPtr = std::unique_ptr<xmlChar, FreeXml>;

std::string_view View(const xmlChar* text)
{
    return text == nullptr ? std::string_view() : std::string_view(reinterpret_cast<const char*>(text));
}

constexpr std::string_view kWhiteSpace = " \t\r\n";

bool IsBlank(std::string_view text) { return text.find_first_not_of(kWhiteSpace) == std::string_view::npos; }

// Whether white space counts inside this element: xml:space of the nearest element that has it, declared defaults
// included.
bool PreservesSpace(const xmlNode* node) { return xmlNodeGetSpacePreserve(node) == 1; }

// MSXML does not list text of white space alone. The nodes stay in the tree, because they still separate words.
bool IsDropped(const xmlNode* node, bool preserve)
{
    return !preserve && node->type == XML_TEXT_NODE && IsBlank(View(node->content));
}

// Refuses what a document refers to outside itself.
xmlParserInput* ResolveNothing(void*, const xmlChar*, const xmlChar*) { return nullptr; }

// While it lives, the calling thread's parser errors go nowhere: some would otherwise reach standard error,
// whatever the options of the parser.
class CQuietErrors {
public:
    CQuietErrors() : m_handler(xmlStructuredError), m_context(xmlStructuredErrorContext)
    {
        xmlSetStructuredErrorFunc(nullptr, [](void*, xmlError*) {});
    }
    ~CQuietErrors() { xmlSetStructuredErrorFunc(m_context, m_handler); }
    CQuietErrors(const CQuietErrors&) = delete;
    CQuietErrors& operator=(const CQuietErrors&) = delete;

private:
    xmlStructuredErrorFunc m_handler;
    void* m_context;
};

struct ParsedDocument {
    XmlTree tree;         // null: no well-formed document
    std::string encoding; // declared; empty when there is no declaration or it says UTF-8 or UTF-16
};

// Parses bytes; encoding null: as they say themselves.
ParsedDocument Parse(std::string_view bytes, const char* encoding)
{
    if (bytes.empty() || bytes.size() > std::numeric_limits<int>::max() || !portable::MayBeParsed(bytes)) {
        return {};
    }
    const CQuietErrors quiet;
    const ParserPtr parser(xmlNewParserCtxt());
    if (!parser) {
        throw std::bad_alloc();
    }
    // The plain interface, which refuses two attributes whose prefixes stand for one namespace.
    const int options = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_SAX1;
    parser->sax->resolveEntity = ResolveNothing;
    xmlDoc* tree =
        xmlCtxtReadMemory(parser.get(), bytes.data(), static_cast<int>(bytes.size()), nullptr, encoding, options);
    if (tree == nullptr) {
        return {};
    }
    ParsedDocument document{XmlTree(tree, xmlFreeDoc), {}};
    if (parser->input != nullptr) {
        document.encoding = View(parser->input->encoding);
    }
    return document;
}

// What MSXML skips before a document in wide text: the white space of the system, which is more than that of XML.
bool IsSkippedBefore(wchar_t character)
{
    constexpr std::wstring_view kSkipped = L"\t\n\v\f\r \x85\xA0\x1680\x2000\x2001\x2002\x2003\x2004\x2005\x2006"
                                           L"\x2007\x2008\x2009\x200A\x2028\x2029\x202F\x205F\x3000";
    return kSkipped.find(character) != std::wstring_view::npos;
}

// The part of a wide text that MSXML looks at: up to the first zero character, without white space and a byte order
// mark before the document. (The parser ignores one more mark on both systems.)
std::wstring_view DocumentPart(std::wstring_view text)
{
    constexpr wchar_t kByteOrderMark = 0xFEFF;
    text = text.substr(0, text.find(L'\0'));
    while (!text.empty() && IsSkippedBefore(text.front())) {
        text.remove_prefix(1);
    }
    if (!text.empty() && text.front() == kByteOrderMark) {
        text.remove_prefix(1);
    }
    return text;
}

// Encodings that wide text may declare, with no effect, in capitals. Others are refused, as they cannot be switched to.
bool MayBeDeclaredInWideText(std::string_view encoding)
{
    static constexpr std::string_view kKnown[] = {
        "ASCII",        "GBK",          "HTML",         "ISO-8859-1",   "ISO-8859-10",  "ISO-8859-11",
        "ISO-8859-13",  "ISO-8859-14",  "ISO-8859-15",  "ISO-8859-16",  "ISO-8859-2",   "ISO-8859-3",
        "ISO-8859-4",   "ISO-8859-5",   "ISO-8859-6",   "ISO-8859-7",   "ISO-8859-8",   "ISO-8859-9",
        "ISO-LATIN-1",  "ISO-LATIN-2",  "US-ASCII",     "UTF-16",       "UTF-16BE",     "UTF-16LE",
        "UTF-8",        "UTF16",        "UTF8",         "WINDOWS-1250", "WINDOWS-1251", "WINDOWS-1252",
        "WINDOWS-1253", "WINDOWS-1254", "WINDOWS-1255", "WINDOWS-1256", "WINDOWS-1257", "WINDOWS-1258",
    };
    std::string capitals(encoding);
    std::transform(capitals.begin(), capitals.end(), capitals.begin(),
                   [](char each) { return each >= 'a' && each <= 'z' ? static_cast<char>(each - 'a' + 'A') : each; });
    return encoding.empty() || std::find(std::begin(kKnown), std::end(kKnown), capitals) != std::end(kKnown);
}

bool IsCharacter(wchar_t unit)
{
    const auto character = static_cast<char32_t>(unit);
    return character < 0xD800 || (character > 0xDFFF && character <= 0x10FFFF);
}

// The text of an element's content, piece by piece.
//
// White space that is not listed still separates words: it counts as one space between two pieces, however much there
// is of it, and as nothing before the first piece of an element.
class CTextPieces {
public:
    // White space that is not listed.
    void AddGap() { m_gap = true; }

    // A piece of which trimmed, a part of it, may not be cut away at the ends.
    void Add(std::string_view piece, std::string_view trimmed)
    {
        if (m_gap && !IsEmpty()) {
            m_text += ' ';
        }
        m_gap = false;
        if (!trimmed.empty() || piece.empty()) {
            m_first = std::min(m_first, m_text.size() + static_cast<std::size_t>(trimmed.data() - piece.data()));
            m_end = m_text.size() + static_cast<std::size_t>(trimmed.data() - piece.data()) + trimmed.size();
        }
        m_text += piece;
    }

    // All of a child element.
    void Add(const CTextPieces& child)
    {
        if (!child.IsEmpty()) {
            Add(child.Whole(), child.Trimmed());
        }
        m_gap = m_gap || child.m_gap;
    }

    bool IsEmpty() const { return m_text.empty(); }
    std::string_view Whole() const { return m_text; }
    std::string_view Trimmed() const
    {
        return m_first < m_end ? Whole().substr(m_first, m_end - m_first) : Whole().substr(0, 0);
    }

private:
    std::string m_text = {};
    std::size_t m_first = std::string::npos;
    std::size_t m_end = 0;
    bool m_gap = false;
};

std::string_view Trimmed(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(kWhiteSpace);
    return first == std::string_view::npos ? text.substr(0, 0)
                                           : text.substr(first, text.find_last_not_of(kWhiteSpace) + 1 - first);
}

// The text below a node, entity references replaced, added to text. Without white space between elements, unless
// blanks count.
void CollectPlainText(const xmlNode* parent, bool blanksCount, std::string* text)
{
    for (const xmlNode* child = parent->children; child != nullptr; child = child->next) {
        if (child->type == XML_ENTITY_DECL) {
            // The child of a reference is the declaration itself, whose neighbours are other declarations.
            CollectPlainText(child, blanksCount, text);
            return;
        }
        if (child->type == XML_CDATA_SECTION_NODE || (child->type == XML_TEXT_NODE && !IsDropped(child, blanksCount))) {
            *text += View(child->content);
        } else if (child->type == XML_ELEMENT_NODE || child->type == XML_ENTITY_REF_NODE) {
            CollectPlainText(child, blanksCount, text);
        }
    }
}

// Depth is bounded by the parser's own limit.
CTextPieces CollectText(const xmlNode* parent)
{
    CTextPieces pieces;
    const bool preserve = PreservesSpace(parent);
    for (const xmlNode* child = parent->children; child != nullptr; child = child->next) {
        if (IsDropped(child, preserve)) {
            pieces.AddGap();
        } else if (child->type == XML_TEXT_NODE) {
            pieces.Add(View(child->content), Trimmed(View(child->content)));
        } else if (child->type == XML_CDATA_SECTION_NODE) {
            pieces.Add(View(child->content), View(child->content));
        } else if (child->type == XML_ELEMENT_NODE) {
            pieces.Add(CollectText(child));
        } else if (child->type == XML_ENTITY_REF_NODE) {
            std::string text;
            CollectPlainText(child, false, &text);
            pieces.Add(text, Trimmed(text));
        }
    }
    return pieces;
}

HRESULT ListChildren(const XmlTree& tree, const xmlNode* parent, DomNodeListPtr* list)
{
    auto result = std::make_shared<CDomNodeList>();
    result->tree = tree;
    // What an entity reference stands for is not listed below it.
    const xmlNode* child = parent->type == XML_ENTITY_REF_NODE ? nullptr : parent->children;
    const bool preserve = child != nullptr && PreservesSpace(parent);
    for (; child != nullptr; child = child->next) {
        if (!IsDropped(child, preserve)) {
            result->nodes.push_back(child);
        }
    }
    *list = std::move(result);
    return S_OK;
}

std::string QualifiedName(const xmlNode* node)
{
    std::string name;
    const bool mayHavePrefix = node->type == XML_ELEMENT_NODE || node->type == XML_ATTRIBUTE_NODE;
    if (mayHavePrefix && node->ns != nullptr && node->ns->prefix != nullptr) {
        name.append(View(node->ns->prefix)).append(":");
    }
    return name.append(View(node->name));
}

std::string NodeName(const xmlNode* node)
{
    switch (node->type) {
    case XML_TEXT_NODE:
        return "#text";
    case XML_CDATA_SECTION_NODE:
        return "#cdata-section";
    case XML_COMMENT_NODE:
        return "#comment";
    default:
        return QualifiedName(node);
    }
}

// A file's bytes; nothing when it cannot be read.
std::optional<std::string> ReadFile(const CString& path)
{
    std::ifstream file(std::filesystem::path(EncodeUtf8(path)), std::ios::binary);
    std::string bytes;
    std::array<char, 16384> chunk = {};
    while (file.read(chunk.data(), chunk.size()) || file.gcount() > 0) {
        bytes.append(chunk.data(), static_cast<std::size_t>(file.gcount()));
    }
    return file.eof() && !file.bad() ? std::optional(std::move(bytes)) : std::nullopt;
}

CString Content(const xmlNode* node)
{
    if (node->type != XML_ATTRIBUTE_NODE) {
        return DecodeUtf8(View(XmlTextPtr(xmlNodeGetContent(node)).get()));
    }
    // The library's time would grow with the square of the number of references.
    std::string text;
    CollectPlainText(node, true, &text);
    return DecodeUtf8(text);
}

CString Text(const xmlNode* node)
{
    switch (node->type) {
    case XML_ELEMENT_NODE: {
        const CTextPieces pieces = CollectText(node);
        return DecodeUtf8(PreservesSpace(node) ? pieces.Whole() : pieces.Trimmed());
    }
    case XML_TEXT_NODE:
        return DecodeUtf8(Trimmed(View(node->content)));
    case XML_ENTITY_REF_NODE:
        return {};
    default:
        return Content(node);
    }
}

// An element's attribute of this qualified name, or null.
const xmlNode* FindAttribute(const xmlNode* element, std::string_view name)
{
    for (const xmlAttr* each = element->properties; each != nullptr; each = each->next) {
        const auto* attribute = reinterpret_cast<const xmlNode*>(each);
        if (QualifiedName(attribute) == name) {
            return attribute;
        }
    }
    return nullptr;
}

} // namespace

HRESULT CreateDomDocument(DomDocumentPtr* document)
{
    return portable::StatusOf(document, [&] {
        *document = std::make_shared<CDomDocument>();
        return S_OK;
    });
}

HRESULT LoadDomText(const DomDocumentPtr& document, const CString& xml, bool* loaded)
{
    document->tree = nullptr;
    const std::wstring_view part = DocumentPart(xml);
    // Encoding would replace what is no character.
    if (std::all_of(part.begin(), part.end(), IsCharacter)) {
        ParsedDocument parsed = Parse(EncodeUtf8(part), "UTF-8");
        if (MayBeDeclaredInWideText(parsed.encoding)) {
            document->tree = std::move(parsed.tree);
        }
    }
    *loaded = document->tree != nullptr;
    return *loaded ? S_OK : S_FALSE;
}

HRESULT LoadDomFile(const DomDocumentPtr& document, const CString& path, bool* loaded)
{
    document->tree = nullptr;
    if (const std::optional<std::string> bytes = ReadFile(path)) {
        document->tree = Parse(*bytes, nullptr).tree;
    }
    *loaded = document->tree != nullptr;
    return *loaded ? S_OK : S_FALSE;
}

HRESULT GetDomDocumentElement(const DomDocumentPtr& document, DomElementPtr* element)
{
    element->reset();
    if (!document->tree) {
        return E_FAIL;
    }
    return portable::StatusOf(element, [&] {
        *element =
            std::make_shared<CDomElement>(CDomElement{document->tree, xmlDocGetRootElement(document->tree.get())});
        return S_OK;
    });
}

HRESULT GetDomChildNodes(const DomNodePtr& node, DomNodeListPtr* list)
{
    return portable::StatusOf(list, [&] { return ListChildren(node->tree, node->node, list); });
}

HRESULT GetDomChildNodes(const DomElementPtr& element, DomNodeListPtr* list)
{
    return portable::StatusOf(list, [&] { return ListChildren(element->tree, element->node, list); });
}

HRESULT GetDomItem(const DomNodeListPtr& list, LONG index, DomNodePtr* node)
{
    node->reset();
    if (index < 0 || static_cast<std::size_t>(index) >= list->nodes.size()) {
        return S_FALSE;
    }
    return portable::StatusOf(node, [&] {
        *node = std::make_shared<CDomNode>(CDomNode{list->tree, list->nodes[static_cast<std::size_t>(index)]});
        return S_OK;
    });
}

HRESULT GetDomLength(const DomNodeListPtr& list, LONG* length)
{
    *length = static_cast<LONG>(list->nodes.size());
    return S_OK;
}

HRESULT GetDomAttributes(const DomNodePtr& node, DomAttributeMapPtr* attributes)
{
    attributes->reset();
    if (node->node->type != XML_ELEMENT_NODE) {
        return S_FALSE;
    }
    return portable::StatusOf(attributes, [&] {
        *attributes = std::make_shared<CDomAttributeMap>(CDomAttributeMap{node->tree, node->node});
        return S_OK;
    });
}

HRESULT GetDomNodeName(const DomNodePtr& node, CString* name)
{
    return portable::StatusOf(name, [&] {
        *name = DecodeUtf8(NodeName(node->node));
        return S_OK;
    });
}

HRESULT GetDomTagName(const DomElementPtr& element, CString* name)
{
    return portable::StatusOf(name, [&] {
        *name = DecodeUtf8(QualifiedName(element->node));
        return S_OK;
    });
}

HRESULT GetDomText(const DomNodePtr& node, CString* text)
{
    return portable::StatusOf(text, [&] {
        *text = Text(node->node);
        return S_OK;
    });
}

HRESULT GetDomNamedItem(const DomAttributeMapPtr& attributes, const CString& name, DomNodePtr* attribute)
{
    attribute->reset();
    return portable::StatusOf(attribute, [&] {
        const xmlNode* found = FindAttribute(attributes->element, EncodeUtf8(name));
        if (found == nullptr) {
            return S_FALSE;
        }
        *attribute = std::make_shared<CDomNode>(CDomNode{attributes->tree, found});
        return S_OK;
    });
}

HRESULT GetDomNodeValue(const DomNodePtr& node, CString* value)
{
    if (node->node->type == XML_ELEMENT_NODE || node->node->type == XML_ENTITY_REF_NODE) {
        value->clear();
        return S_FALSE;
    }
    return portable::StatusOf(value, [&] {
        *value = Content(node->node);
        return S_OK;
    });
}

} // namespace platform
