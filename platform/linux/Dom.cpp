// The document object model on libxml2's parser, made to behave as MSXML does: which names are refused, which text is
// dropped, how it is trimmed, what may stand before and after the document.
#include "platform/Dom.h"

#include "platform/linux/DomTree.h"
#include "platform/portable/DocumentLimits.h"
#include "platform/portable/StatusOf.h"
#include "platform/Text.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace platform {

class CDomDocument {
public:
    std::shared_ptr<linux::CDomTree> tree; // null: nothing loaded
};

class CDomNodeList {
public:
    std::vector<CDomNode*> nodes;
    std::shared_ptr<void> tree;
};

namespace {

using Kind = CDomNode::Kind;

constexpr std::string_view kWhiteSpace = " \t\r\n";

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
    bool AddContent(const CDomElement& element)
    {
        const std::size_t start = m_text.size();
        bool hasGap = false;
        const auto addGap = [&] {
            hasGap = true;
            m_isSpaceDue = m_isSpaceDue || m_text.size() > start;
        };
        for (const CDomNode* child = element.firstChild; child != nullptr; child = child->next) {
            if (child->followsGap) {
                addGap();
            }
            if (child->kind == Kind::kElement && AddContent(static_cast<const CDomElement&>(*child))) {
                addGap();
            } else if (child->kind == Kind::kText) {
                Add(child->text, Trim(child->text));
            } else if (child->kind == Kind::kCdataSection) {
                Add(child->text, child->text);
            }
        }
        if (element.endsInGap) {
            addGap();
        }
        return hasGap && m_text.size() == start;
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

HRESULT ListChildren(const CDomNode& parent, const std::shared_ptr<void>& tree, DomNodeListPtr* list)
{
    return portable::StatusOf(list, [&] {
        auto result = std::make_shared<CDomNodeList>();
        result->tree = tree;
        if (parent.kind == Kind::kElement) {
            const auto& element = static_cast<const CDomElement&>(parent);
            result->nodes.reserve(element.childCount);
            for (CDomNode* child = element.firstChild; child != nullptr; child = child->next) {
                result->nodes.push_back(child);
            }
        }
        *list = std::move(result);
        return S_OK;
    });
}

std::string_view NodeName(const CDomNode& node)
{
    switch (node.kind) {
    case Kind::kText:
        return "#text";
    case Kind::kCdataSection:
        return "#cdata-section";
    case Kind::kComment:
        return "#comment";
    default:
        return node.name;
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

std::string TextOf(const CDomElement& element)
{
    CTextCollector text;
    text.AddContent(element);
    return std::string(element.preservesSpace ? text.Whole() : text.Trimmed());
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
    const HRESULT status = linux::CDomTree::Parse(std::move(bytes), true, &document->tree);
    *loaded = document->tree != nullptr;
    return status;
}

HRESULT LoadDomFile(const DomDocumentPtr& document, const CString& path, bool* loaded)
{
    document->tree = nullptr;
    std::optional<std::string> bytes = ReadFile(path);
    const HRESULT status = bytes ? linux::CDomTree::Parse(std::move(*bytes), false, &document->tree) : S_FALSE;
    *loaded = document->tree != nullptr;
    return status;
}

HRESULT GetDomDocumentElement(const DomDocumentPtr& document, DomElementPtr* element)
{
    element->reset();
    if (!document->tree) {
        return E_FAIL;
    }
    *element = {document->tree, document->tree->Root()};
    return S_OK;
}

HRESULT GetDomChildNodes(const DomNodePtr& node, DomNodeListPtr* list) { return ListChildren(*node, node, list); }

HRESULT GetDomChildNodes(const DomElementPtr& element, DomNodeListPtr* list)
{
    return ListChildren(*element, element, list);
}

HRESULT GetDomItem(const DomNodeListPtr& list, LONG index, DomNodePtr* node)
{
    node->reset();
    if (index < 0 || static_cast<std::size_t>(index) >= list->nodes.size()) {
        return S_FALSE;
    }
    *node = {list->tree, list->nodes[static_cast<std::size_t>(index)]};
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
    if (node->kind != Kind::kElement) {
        return S_FALSE;
    }
    *attributes = {node, &static_cast<CDomElement*>(node.get())->attributes};
    return S_OK;
}

HRESULT GetDomNodeName(const DomNodePtr& node, CString* name)
{
    return portable::StatusOf(name, [&] {
        *name = DecodeUtf8(NodeName(*node));
        return S_OK;
    });
}

HRESULT GetDomTagName(const DomElementPtr& element, CString* name) { return GetDomNodeName(element, name); }

HRESULT GetDomText(const DomNodePtr& node, CString* text)
{
    return portable::StatusOf(text, [&] {
        if (node->kind == Kind::kElement) {
            *text = DecodeUtf8(TextOf(static_cast<const CDomElement&>(*node)));
        } else {
            *text = DecodeUtf8(node->kind == Kind::kText ? Trim(node->text) : node->text);
        }
        return S_OK;
    });
}

HRESULT GetDomNamedItem(const DomAttributeMapPtr& attributes, const CString& name, DomNodePtr* attribute)
{
    attribute->reset();
    return portable::StatusOf(attribute, [&] {
        const std::string wanted = EncodeUtf8(name);
        CDomNode* each = attributes->first;
        while (each != nullptr && each->name != wanted) {
            each = each->next;
        }
        if (each == nullptr) {
            return S_FALSE;
        }
        *attribute = {attributes, each};
        return S_OK;
    });
}

HRESULT GetDomNodeValue(const DomNodePtr& node, CString* value)
{
    if (node->kind == Kind::kElement) {
        value->clear();
        return S_FALSE;
    }
    return portable::StatusOf(value, [&] {
        *value = DecodeUtf8(node->text);
        return S_OK;
    });
}

} // namespace platform
