// The document object model on libxml2, made to behave as MSXML does. libxml2 has limits of its own (256 levels, 10 MB
// of text in one node); this file adds which names are refused, which text is dropped, how it is trimmed, what may
// stand before and after the document.
#include "platform/Dom.h"

#include "platform/portable/DocumentLimits.h"
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
#include <malloc.h>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace platform {

using XmlTree = std::shared_ptr<xmlDoc>;

class CDomDocument {
public:
    XmlTree tree; // null: nothing loaded
};

class CDomNodeList {
public:
    std::vector<xmlNode*> nodes;
    std::shared_ptr<void> tree;
};

namespace {

// A handle of a node (an attribute too: the two structures begin alike), an element or an element's attributes is the
// address of libxml2's own node, and shares the tree, so that making one takes no memory.
template <class Handle>
std::shared_ptr<Handle> HandleOf(const std::shared_ptr<void>& tree, xmlNode* node)
{
    return {tree, reinterpret_cast<Handle*>(node)};
}

template <class Handle>
xmlNode* NodeOf(const std::shared_ptr<Handle>& handle)
{
    return reinterpret_cast<xmlNode*>(handle.get());
}

struct FreeParser {
    void operator()(xmlParserCtxt* parser) const { xmlFreeParserCtxt(parser); }
};
using ParserPtr = std::unique_ptr<xmlParserCtxt, FreeParser>;

std::string_view View(const xmlChar* text)
{
    return text == nullptr ? std::string_view() : std::string_view(reinterpret_cast<const char*>(text));
}

constexpr std::string_view kWhiteSpace = " \t\r\n";

bool IsBlank(const xmlChar* text)
{
    while (*text == ' ' || *text == '\t' || *text == '\r' || *text == '\n') {
        ++text;
    }
    return *text == '\0';
}

// xml:space of this element; inherited: that of the element around it, which counts when this one has none.
bool PreservesSpace(const xmlNode* element, bool inherited)
{
    const xmlAttr* attribute = xmlHasNsProp(element, BAD_CAST "space", XML_XML_NAMESPACE);
    const std::string_view value =
        attribute != nullptr && attribute->children != nullptr ? View(attribute->children->content) : "";
    return value == "preserve" || (value != "default" && inherited);
}

// Whether white space counts inside this element: xml:space of the nearest element that has it.
bool PreservesSpace(const xmlNode* element)
{
    return element->type == XML_ELEMENT_NODE && PreservesSpace(element, PreservesSpace(element->parent));
}

// MSXML does not list text of white space alone. The nodes stay in the tree, because they still separate words.
bool IsDropped(const xmlNode* node, bool preserve)
{
    return !preserve && node->type == XML_TEXT_NODE && (node->content == nullptr || IsBlank(node->content));
}

// Collects what the library reports on the calling thread as long as this lives. (Without a handler, reports may reach
// standard error whatever the options of the parser.)
class CParserReports {
public:
    CParserReports() : m_handler(xmlStructuredError), m_context(xmlStructuredErrorContext)
    {
        xmlSetStructuredErrorFunc(
            this, [](void* reports, xmlError* error) { static_cast<CParserReports*>(reports)->Take(*error); });
    }
    ~CParserReports() { xmlSetStructuredErrorFunc(m_context, m_handler); }
    CParserReports(const CParserReports&) = delete;
    CParserReports& operator=(const CParserReports&) = delete;

    bool IsOutOfMemory() const { return m_isOutOfMemory; }
    // Whether the document is not well-formed. An undeclared prefix counts, an unusual namespace name does not.
    bool IsRefused() const { return m_isRefused; }

private:
    void Take(const xmlError& error)
    {
        const bool isBadName = error.domain == XML_FROM_NAMESPACE && error.code >= XML_NS_ERR_XML_NAMESPACE;
        m_isRefused = m_isRefused || error.level == XML_ERR_FATAL || isBadName;
        m_isOutOfMemory = m_isOutOfMemory || error.code == XML_ERR_NO_MEMORY;
    }

    xmlStructuredErrorFunc m_handler;
    void* m_context;
    bool m_isRefused = false;
    bool m_isOutOfMemory = false;
};

// The bytes that a parser has not read yet.
struct ParserInput {
    std::string_view rest;
    const CParserReports& reports;
    xmlParserCtxt* parser;
};

// Gives the parser its next bytes. None after an error, because it would go on and report each further one, and none
// when there are too many names, because its hash table of names does not grow.
int ReadInput(void* context, char* buffer, int size)
{
    constexpr int kMostNames = 10'000;
    auto* input = static_cast<ParserInput*>(context);
    if (input->reports.IsRefused() || xmlDictSize(input->parser->dict) > kMostNames) {
        input->parser->wellFormed = 0;
        return 0;
    }
    const std::size_t count = input->rest.copy(buffer, static_cast<std::size_t>(size));
    input->rest.remove_prefix(count);
    return static_cast<int>(count);
}

// Ends the parse before anything that the document type declares is read.
void RefuseDocumentType(void* context, const xmlChar*, const xmlChar*, const xmlChar*)
{
    auto* parser = static_cast<xmlParserCtxt*>(context);
    parser->wellFormed = 0; // stopping alone counts as the document's end
    xmlStopParser(parser);
}

// The library would join adjacent sections.
void AddCdataSection(void* context, const xmlChar* text, int size)
{
    const auto* parser = static_cast<xmlParserCtxt*>(context);
    xmlAddChild(parser->node, xmlNewCDataBlock(parser->myDoc, text, size));
}

// Returns freed memory to the system after a large document; the C library would keep it.
void ReturnMemoryOf(std::size_t documentBytes)
{
    constexpr std::size_t kLargeBytes = std::size_t{256} * 1024;
    if (documentBytes > kLargeBytes) {
        malloc_trim(0);
    }
}

// Parses bytes into tree, which stays null when they are no well-formed document. options: added to the common ones.
HRESULT Parse(std::string bytes, int options, XmlTree* tree)
{
    const CParserReports reports;
    ParserPtr parser(xmlNewParserCtxt());
    if (!parser) {
        return E_OUTOFMEMORY;
    }
    parser->sax->internalSubset = RefuseDocumentType;
    parser->sax->cdataBlock = AddCdataSection;
    ParserInput input{bytes, reports, parser.get()};
    options |= XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_COMPACT;
    xmlDoc* result = xmlCtxtReadIO(parser.get(), ReadInput, nullptr, &input, nullptr, nullptr, options);
    XmlTree owner(result, [size = bytes.size()](xmlDoc* freed) {
        xmlFreeDoc(freed);
        ReturnMemoryOf(size);
    });
    parser.reset();
    std::string().swap(bytes); // an assignment would keep its memory
    if (reports.IsOutOfMemory()) {
        return E_OUTOFMEMORY;
    }
    if (result != nullptr && !reports.IsRefused()) {
        *tree = std::move(owner);
    }
    return *tree ? S_OK : S_FALSE;
}

// The part of a wide text that MSXML looks at: up to the first zero character, without white space and a byte order
// mark before the document. (The parser ignores one more mark on both systems.)
std::wstring_view DocumentPart(std::wstring_view text)
{
    constexpr wchar_t kByteOrderMark = 0xFEFF;
    text = text.substr(0, text.find(L'\0'));
    while (!text.empty() && IsWhiteSpace(text.front())) {
        text.remove_prefix(1);
    }
    if (!text.empty() && text.front() == kByteOrderMark) {
        text.remove_prefix(1);
    }
    return text;
}

bool IsCharacter(wchar_t unit)
{
    const auto character = static_cast<char32_t>(unit);
    return character < 0xD800 || (character > 0xDFFF && character <= 0x10FFFF);
}

// Looks at whole blocks first, which the compiler turns into a few instructions.
bool AreCharacters(std::wstring_view text)
{
    constexpr std::size_t kBlock = 16;
    for (; text.size() >= kBlock; text.remove_prefix(kBlock)) {
        const wchar_t* const units = text.data();
        bool isSuspect = false;
        for (std::size_t i = 0; i < kBlock; ++i) {
            isSuspect |= static_cast<char32_t>(units[i]) >= 0xD800;
        }
        if (isSuspect && !std::all_of(units, units + kBlock, IsCharacter)) {
            return false;
        }
    }
    return std::all_of(text.begin(), text.end(), IsCharacter);
}

std::string_view Trim(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(kWhiteSpace);
    return first == std::string_view::npos ? text.substr(0, 0)
                                           : text.substr(first, text.find_last_not_of(kWhiteSpace) + 1 - first);
}

// Gathers the text of an element with that of all its descendants.
//
// White space that is not listed still separates words: it counts as one space between two pieces, however much there
// is of it, and as nothing before the first piece of an element.
class CTextCollector {
public:
    // Adds the content of an element. Whether it is white space that is not listed, and nothing else. Depth is bounded
    // by the parser's own limit.
    bool AddContent(const xmlNode* element, bool preserve)
    {
        const std::size_t start = m_text.size();
        bool isGap = false;
        for (const xmlNode* child = element->children; child != nullptr; child = child->next) {
            const bool isDropped = IsDropped(child, preserve);
            if (isDropped || (child->type == XML_ELEMENT_NODE && AddContent(child, PreservesSpace(child, preserve)))) {
                isGap = true;
                m_isSpaceDue = m_isSpaceDue || m_text.size() > start;
            } else if (child->type == XML_TEXT_NODE) {
                Add(View(child->content), Trim(View(child->content)));
            } else if (child->type == XML_CDATA_SECTION_NODE) {
                Add(View(child->content), View(child->content));
            }
        }
        return isGap && m_text.size() == start;
    }

    std::string_view Whole() const { return m_text; }
    std::string_view Trimmed() const { return Whole().substr(m_first, m_end - m_first); }

private:
    // Adds a piece of which trimmed, a part of it, may not be cut away at the ends.
    void Add(std::string_view piece, std::string_view trimmed)
    {
        if (piece.empty()) {
            return;
        }
        if (std::exchange(m_isSpaceDue, false)) {
            m_text += ' ';
        }
        if (!trimmed.empty()) {
            const std::size_t first = m_text.size() + static_cast<std::size_t>(trimmed.data() - piece.data());
            m_first = m_end == 0 ? first : m_first;
            m_end = first + trimmed.size();
        }
        m_text += piece;
    }

    std::string m_text = {};
    std::size_t m_first = 0;
    std::size_t m_end = 0;
    bool m_isSpaceDue = false; // before the next piece
};

template <class Handle>
HRESULT ListChildren(const std::shared_ptr<Handle>& parent, DomNodeListPtr* list)
{
    return portable::StatusOf(list, [&] {
        auto result = std::make_shared<CDomNodeList>();
        result->tree = parent;
        const bool preserve = PreservesSpace(NodeOf(parent));
        for (xmlNode* child = NodeOf(parent)->children; child != nullptr; child = child->next) {
            if (!IsDropped(child, preserve)) {
                result->nodes.push_back(child);
            }
        }
        *list = std::move(result);
        return S_OK;
    });
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

// The value of a node that is no element.
std::string_view Content(const xmlNode* node)
{
    if (node->type == XML_ATTRIBUTE_NODE) {
        return node->children == nullptr ? std::string_view() : View(node->children->content);
    }
    return View(node->content);
}

CString Text(const xmlNode* node)
{
    if (node->type == XML_ELEMENT_NODE) {
        CTextCollector text;
        const bool preserve = PreservesSpace(node);
        text.AddContent(node, preserve);
        return DecodeUtf8(preserve ? text.Whole() : text.Trimmed());
    }
    return DecodeUtf8(node->type == XML_TEXT_NODE ? Trim(Content(node)) : Content(node));
}

bool HasQualifiedName(const xmlNode* node, std::string_view name)
{
    if (node->ns == nullptr || node->ns->prefix == nullptr) {
        return View(node->name) == name;
    }
    return QualifiedName(node) == name;
}

// An element's attribute of this qualified name, or null.
xmlNode* FindAttribute(const xmlNode* element, std::string_view name)
{
    for (xmlAttr* each = element->properties; each != nullptr; each = each->next) {
        auto* const attribute = reinterpret_cast<xmlNode*>(each);
        if (HasQualifiedName(attribute, name)) {
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

HRESULT LoadDomText(const DomDocumentPtr& document, CString xml, bool* loaded)
{
    document->tree = nullptr;
    *loaded = false;
    const std::wstring_view part = DocumentPart(xml);
    // Encoding would replace what is no character.
    if (!portable::IsWithinLimits(part) || !AreCharacters(part)) {
        return S_FALSE;
    }
    std::string bytes = EncodeUtf8(part);
    CString().swap(xml); // an assignment would keep its memory
    ReturnMemoryOf(bytes.size());
    const HRESULT status = Parse(std::move(bytes), XML_PARSE_IGNORE_ENC, &document->tree);
    *loaded = document->tree != nullptr;
    return status;
}

HRESULT LoadDomFile(const DomDocumentPtr& document, const CString& path, bool* loaded)
{
    document->tree = nullptr;
    std::optional<std::string> bytes = ReadFile(path);
    const HRESULT status = bytes ? Parse(std::move(*bytes), 0, &document->tree) : S_FALSE;
    *loaded = document->tree != nullptr;
    return status;
}

HRESULT GetDomDocumentElement(const DomDocumentPtr& document, DomElementPtr* element)
{
    element->reset();
    if (!document->tree) {
        return E_FAIL;
    }
    *element = HandleOf<CDomElement>(document->tree, xmlDocGetRootElement(document->tree.get()));
    return S_OK;
}

HRESULT GetDomChildNodes(const DomNodePtr& node, DomNodeListPtr* list) { return ListChildren(node, list); }

HRESULT GetDomChildNodes(const DomElementPtr& element, DomNodeListPtr* list) { return ListChildren(element, list); }

HRESULT GetDomItem(const DomNodeListPtr& list, LONG index, DomNodePtr* node)
{
    node->reset();
    if (index < 0 || static_cast<std::size_t>(index) >= list->nodes.size()) {
        return S_FALSE;
    }
    *node = HandleOf<CDomNode>(list->tree, list->nodes[static_cast<std::size_t>(index)]);
    return S_OK;
}

HRESULT GetDomLength(const DomNodeListPtr& list, LONG* length)
{
    *length = static_cast<LONG>(list->nodes.size());
    return S_OK;
}

HRESULT GetDomAttributes(const DomNodePtr& node, DomAttributeMapPtr* attributes)
{
    attributes->reset();
    if (NodeOf(node)->type != XML_ELEMENT_NODE) {
        return S_FALSE;
    }
    *attributes = HandleOf<CDomAttributeMap>(node, NodeOf(node));
    return S_OK;
}

HRESULT GetDomNodeName(const DomNodePtr& node, CString* name)
{
    return portable::StatusOf(name, [&] {
        *name = DecodeUtf8(NodeName(NodeOf(node)));
        return S_OK;
    });
}

HRESULT GetDomTagName(const DomElementPtr& element, CString* name)
{
    return portable::StatusOf(name, [&] {
        *name = DecodeUtf8(QualifiedName(NodeOf(element)));
        return S_OK;
    });
}

HRESULT GetDomText(const DomNodePtr& node, CString* text)
{
    return portable::StatusOf(text, [&] {
        *text = Text(NodeOf(node));
        return S_OK;
    });
}

HRESULT GetDomNamedItem(const DomAttributeMapPtr& attributes, const CString& name, DomNodePtr* attribute)
{
    attribute->reset();
    return portable::StatusOf(attribute, [&] {
        xmlNode* const found = FindAttribute(NodeOf(attributes), EncodeUtf8(name));
        if (found == nullptr) {
            return S_FALSE;
        }
        *attribute = HandleOf<CDomNode>(attributes, found);
        return S_OK;
    });
}

HRESULT GetDomNodeValue(const DomNodePtr& node, CString* value)
{
    if (NodeOf(node)->type == XML_ELEMENT_NODE) {
        value->clear();
        return S_FALSE;
    }
    return portable::StatusOf(value, [&] {
        *value = DecodeUtf8(Content(NodeOf(node)));
        return S_OK;
    });
}

} // namespace platform
