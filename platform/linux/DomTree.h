// XML text as a tree of nodes, made by libxml2's parser. The nodes are this program's own, a few words each in one
// block of memory: libxml2's would be twice as large and one allocation each, which took more time than the parse.
#pragma once

#include "platform/Dom.h"

#include <cstdint>
#include <libxml/tree.h>
#include <memory>
#include <memory_resource>
#include <string>
#include <string_view>

namespace platform {

// A node as the document has it. Nodes and all that they refer to belong to their tree and never change.
class CDomNode {
public:
    enum class Kind : std::uint8_t { kElement, kAttribute, kText, kCdataSection, kComment, kInstruction };

    Kind kind = Kind::kText;
    bool followsGap = false;    // white space alone that is no node of its own stands before it
    const char* name = nullptr; // qualified, of an element or attribute; an instruction's target; null for others
    std::string_view text = {}; // the content, in UTF-8; empty for an element
    CDomNode* next = nullptr;   // the next child, or attribute, of the same element; null: it is the last
};

// Without those that declare namespaces.
class CDomAttributeMap {
public:
    CDomNode* first = nullptr;
};

// A node of Kind::kElement is one of these.
class CDomElement : public CDomNode {
public:
    CDomAttributeMap attributes = {};
    CDomNode* firstChild = nullptr;
    std::uint32_t childCount = 0;
    bool preservesSpace = false; // white space alone makes nodes inside: xml:space of the nearest element that has it
    bool endsInGap = false;      // such white space that makes none follows the last child
};

namespace linux {

// A document's nodes. One thread at a time.
class CDomTree {
public:
    // Parses a document. bytes: UTF-8 when ignoresDeclaration is set, otherwise encoded as they declare. *tree: set
    // with S_OK; left as it is with S_FALSE, for what is no well-formed document or has a document type, an undeclared
    // prefix, more than 256 levels, some 10,000 different names or a text of more than 10,000,000 bytes, and with
    // E_OUTOFMEMORY. May throw std::bad_alloc.
    static HRESULT Parse(std::string bytes, bool ignoresDeclaration, std::shared_ptr<CDomTree>* tree);

    CDomTree() = default;
    CDomTree(const CDomTree&) = delete;
    CDomTree& operator=(const CDomTree&) = delete;

    // Belongs to the tree. Never null in a tree that Parse gives.
    CDomElement* Root() const { return m_root; }

private:
    friend class CDomTreeBuilder;

    struct FreeNames {
        void operator()(xmlDict* names) const { xmlDictFree(names); }
    };

    std::unique_ptr<xmlDict, FreeNames> m_names = {};
    std::pmr::monotonic_buffer_resource m_memory = {};
    CDomElement* m_root = nullptr;
};

} // namespace linux
} // namespace platform
