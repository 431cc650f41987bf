#include "platform/linux/DomTree.h"

#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <new>
#include <utility>
#include <vector>

namespace platform::linux {

namespace {

std::string_view View(const xmlChar* text) { return reinterpret_cast<const char*>(text); }

struct FreeParser {
    void operator()(xmlParserCtxt* parser) const { xmlFreeParserCtxt(parser); }
};
using ParserPtr = std::unique_ptr<xmlParserCtxt, FreeParser>;

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

bool IsBlank(std::string_view text) { return text.find_first_not_of(" \t\r\n") == std::string_view::npos; }

} // namespace

// Takes what the parser finds and makes nodes of it. What happens outside the root makes none.
class CDomTreeBuilder {
public:
    // Both outlive it. bytes: the document.
    CDomTreeBuilder(xmlParserCtxt* parser, const CParserReports& reports, std::string_view bytes, CDomTree* tree);

    bool IsOutOfMemory() const { return m_isOutOfMemory; }

    // Gives the parser, whose context is the builder, its next bytes.
    static int ReadInput(void* builder, char* buffer, int size);

private:
    // An element of which the end has not come.
    struct OpenElement {
        CDomElement* element;
        CDomNode** end;      // the place for its next child
        bool hasGap = false; // since its last child
    };

    static void OnDocumentType(void* builder, const xmlChar*, const xmlChar*, const xmlChar*);
    static void OnStart(void* builder, const xmlChar* name, const xmlChar* prefix, const xmlChar*, int, const xmlChar**,
                        int attributeCount, int, const xmlChar** attributes);
    static void OnEnd(void* builder, const xmlChar*, const xmlChar*, const xmlChar*);
    static void OnText(void* builder, const xmlChar* text, int size);
    static void OnCdataSection(void* builder, const xmlChar* text, int size);
    static void OnComment(void* builder, const xmlChar* text);
    static void OnInstruction(void* builder, const xmlChar* target, const xmlChar* text);

    template <class Step>
    static void Take(void* builder, Step step);

    CDomNode* Make(CDomNode::Kind kind, const xmlChar* name, std::string_view text);
    void AddChild(CDomNode* child);
    void AddContent(CDomNode::Kind kind, const xmlChar* name, std::string_view text);
    void AddText();
    void AddAttributes(CDomElement* element, int count, const xmlChar** attributes);
    const xmlChar* QualifiedName(const xmlChar* prefix, const xmlChar* name);
    std::string_view Keep(std::string_view text);
    void Stop();

    xmlParserCtxt* m_parser;
    const CParserReports& m_reports;
    std::string_view m_rest; // bytes that the parser has not read yet
    CDomTree& m_tree;
    std::vector<OpenElement> m_open = {};
    std::string m_text = {}; // that has come since the last node: the parser gives it in pieces
    bool m_isOutOfMemory = false;
};

CDomTreeBuilder::CDomTreeBuilder(xmlParserCtxt* parser, const CParserReports& reports, std::string_view bytes,
                                 CDomTree* tree)
    : m_parser(parser), m_reports(reports), m_rest(bytes), m_tree(*tree)
{
    xmlSAXHandler handlers = {};
    handlers.initialized = XML_SAX2_MAGIC;
    handlers.internalSubset = OnDocumentType;
    handlers.startElementNs = OnStart;
    handlers.endElementNs = OnEnd;
    handlers.characters = OnText;
    handlers.ignorableWhitespace = OnText;
    handlers.cdataBlock = OnCdataSection;
    handlers.comment = OnComment;
    handlers.processingInstruction = OnInstruction;
    *parser->sax = handlers;
    parser->userData = this;
}

// None after an error, because the parser would go on and report each further one, and none when there are too many
// names, because its hash table of names does not grow.
int CDomTreeBuilder::ReadInput(void* builder, char* buffer, int size)
{
    constexpr int kMostNames = 10'000;
    auto* self = static_cast<CDomTreeBuilder*>(builder);
    if (self->m_reports.IsRefused() || xmlDictSize(self->m_parser->dict) > kMostNames) {
        self->m_parser->wellFormed = 0;
        return 0;
    }
    const std::size_t count = self->m_rest.copy(buffer, static_cast<std::size_t>(size));
    self->m_rest.remove_prefix(count);
    return static_cast<int>(count);
}

// Runs what a callback does. Exceptions may not pass through the library.
template <class Step>
void CDomTreeBuilder::Take(void* builder, Step step)
{
    auto* self = static_cast<CDomTreeBuilder*>(builder);
    try {
        step(*self);
    } catch (const std::bad_alloc&) {
        self->m_isOutOfMemory = true;
        self->Stop();
    }
}

void CDomTreeBuilder::Stop()
{
    m_parser->wellFormed = 0; // stopping alone counts as the document's end
    xmlStopParser(m_parser);
}

// Ends the parse before anything that the document type declares is read.
void CDomTreeBuilder::OnDocumentType(void* builder, const xmlChar*, const xmlChar*, const xmlChar*)
{
    static_cast<CDomTreeBuilder*>(builder)->Stop();
}

void CDomTreeBuilder::OnStart(void* builder, const xmlChar* name, const xmlChar* prefix, const xmlChar*, int,
                              const xmlChar**, int attributeCount, int, const xmlChar** attributes)
{
    Take(builder, [=](CDomTreeBuilder& self) {
        self.AddText();
        auto* element = new (self.m_tree.m_memory.allocate(sizeof(CDomElement), alignof(CDomElement))) CDomElement;
        element->kind = CDomNode::Kind::kElement;
        element->name = reinterpret_cast<const char*>(self.QualifiedName(prefix, name));
        element->preservesSpace = !self.m_open.empty() && self.m_open.back().element->preservesSpace;
        self.AddAttributes(element, attributeCount, attributes);
        if (self.m_open.empty()) {
            self.m_tree.m_root = element;
        } else {
            self.AddChild(element);
        }
        self.m_open.push_back({element, &element->firstChild});
    });
}

// attributes: five pointers each, to the local name, the prefix, the namespace, the begin and the end of the value.
void CDomTreeBuilder::AddAttributes(CDomElement* element, int count, const xmlChar** attributes)
{
    CDomNode** end = &element->attributes.first;
    for (; count > 0; --count, attributes += 5) {
        const std::string_view value(reinterpret_cast<const char*>(attributes[3]),
                                     static_cast<std::size_t>(attributes[4] - attributes[3]));
        CDomNode* attribute = Make(CDomNode::Kind::kAttribute, QualifiedName(attributes[1], attributes[0]), value);
        *end = attribute;
        end = &attribute->next;
        if (attributes[1] != nullptr && View(attributes[1]) == "xml" && View(attributes[0]) == "space") {
            element->preservesSpace = value == "preserve" || (value != "default" && element->preservesSpace);
        }
    }
}

void CDomTreeBuilder::OnEnd(void* builder, const xmlChar*, const xmlChar*, const xmlChar*)
{
    Take(builder, [](CDomTreeBuilder& self) {
        self.AddText();
        self.m_open.back().element->endsInGap = self.m_open.back().hasGap;
        self.m_open.pop_back();
    });
}

void CDomTreeBuilder::OnText(void* builder, const xmlChar* text, int size)
{
    Take(builder, [=](CDomTreeBuilder& self) {
        self.m_text.append(reinterpret_cast<const char*>(text), static_cast<std::size_t>(size));
        if (self.m_text.size() > XML_MAX_TEXT_LENGTH) {
            self.Stop();
        }
    });
}

void CDomTreeBuilder::OnCdataSection(void* builder, const xmlChar* text, int size)
{
    Take(builder, [=](CDomTreeBuilder& self) {
        self.AddContent(CDomNode::Kind::kCdataSection, nullptr,
                        {reinterpret_cast<const char*>(text), static_cast<std::size_t>(size)});
    });
}

void CDomTreeBuilder::OnComment(void* builder, const xmlChar* text)
{
    Take(builder, [=](CDomTreeBuilder& self) { self.AddContent(CDomNode::Kind::kComment, nullptr, View(text)); });
}

void CDomTreeBuilder::OnInstruction(void* builder, const xmlChar* target, const xmlChar* text)
{
    Take(builder, [=](CDomTreeBuilder& self) {
        self.AddContent(CDomNode::Kind::kInstruction, target, text == nullptr ? "" : View(text));
    });
}

// A node whose name, unless null, the tree's names have, and a copy of the text.
CDomNode* CDomTreeBuilder::Make(CDomNode::Kind kind, const xmlChar* name, std::string_view text)
{
    auto* node = new (m_tree.m_memory.allocate(sizeof(CDomNode), alignof(CDomNode))) CDomNode;
    node->kind = kind;
    node->name = reinterpret_cast<const char*>(name);
    node->text = Keep(text);
    return node;
}

void CDomTreeBuilder::AddChild(CDomNode* child)
{
    OpenElement& parent = m_open.back();
    child->followsGap = std::exchange(parent.hasGap, false);
    *parent.end = child;
    parent.end = &child->next;
    ++parent.element->childCount;
}

// Adds a node that is neither element nor text to the innermost element, if there is one.
void CDomTreeBuilder::AddContent(CDomNode::Kind kind, const xmlChar* name, std::string_view text)
{
    if (!m_open.empty()) {
        AddText();
        AddChild(Make(kind, name, text));
    }
}

// Adds the text before the next node, which is what the parser has given of it so far.
void CDomTreeBuilder::AddText()
{
    if (m_text.empty()) {
        return;
    }
    if (!m_open.back().element->preservesSpace && IsBlank(m_text)) {
        m_open.back().hasGap = true;
    } else {
        AddChild(Make(CDomNode::Kind::kText, nullptr, m_text));
    }
    m_text.clear();
}

const xmlChar* CDomTreeBuilder::QualifiedName(const xmlChar* prefix, const xmlChar* name)
{
    const xmlChar* qualified = prefix == nullptr ? name : xmlDictQLookup(m_parser->dict, prefix, name);
    if (qualified == nullptr) {
        throw std::bad_alloc();
    }
    return qualified;
}

std::string_view CDomTreeBuilder::Keep(std::string_view text)
{
    if (text.empty()) {
        return {};
    }
    auto* copy = static_cast<char*>(m_tree.m_memory.allocate(text.size(), 1));
    text.copy(copy, text.size());
    return {copy, text.size()};
}

HRESULT CDomTree::Parse(std::string bytes, bool ignoresDeclaration, std::shared_ptr<CDomTree>* tree)
{
    const CParserReports reports;
    const auto result = std::make_shared<CDomTree>();
    ParserPtr parser(xmlNewParserCtxt());
    if (!parser) {
        return E_OUTOFMEMORY;
    }
    xmlDictReference(parser->dict);
    result->m_names.reset(parser->dict);
    CDomTreeBuilder builder(parser.get(), reports, bytes, result.get());
    // References to what XML itself declares are replaced. There are no others without a document type, nor is anything
    // fetched.
    const int options = XML_PARSE_NOENT | (ignoresDeclaration ? XML_PARSE_IGNORE_ENC : 0);
    xmlCtxtReadIO(parser.get(), CDomTreeBuilder::ReadInput, nullptr, &builder, nullptr, nullptr, options);
    const bool isWellFormed = parser->wellFormed != 0 && !reports.IsRefused();
    parser.reset();
    if (reports.IsOutOfMemory() || builder.IsOutOfMemory()) {
        return E_OUTOFMEMORY;
    }
    if (!isWellFormed) {
        return S_FALSE;
    }
    *tree = result;
    return S_OK;
}

} // namespace platform::linux
