// The document object model on MSXML, through COM.
#include "platform/Dom.h"

#include "platform/portable/DocumentLimits.h"
#include "platform/portable/StatusOf.h"

#include <msxml.h>
#include <new>
#include <oleauto.h>
#include <string_view>
#include <utility>
#include <vector>

namespace platform {

namespace {

struct ReleaseInterface {
    void operator()(IUnknown* object) const { object->Release(); }
};
template <class Interface>
using ComPtr = std::unique_ptr<Interface, ReleaseInterface>;

struct FreeBstr {
    void operator()(OLECHAR* text) const { SysFreeString(text); }
};
using BstrPtr = std::unique_ptr<OLECHAR, FreeBstr>;

class CVariant {
public:
    CVariant() { VariantInit(&m_value); }
    ~CVariant() { VariantClear(&m_value); }
    CVariant(const CVariant&) = delete;
    CVariant& operator=(const CVariant&) = delete;
    VARIANT* Get() { return &m_value; }

private:
    VARIANT m_value{};
};

BstrPtr MakeBstr(std::wstring_view text)
{
    BstrPtr copy(SysAllocStringLen(text.data(), static_cast<UINT>(text.size())));
    if (!copy) {
        throw std::bad_alloc();
    }
    return copy;
}

CString TextOf(BSTR text) { return text == nullptr ? CString() : CString(text, SysStringLen(text)); }

// A COM call that gives success without an object means: there is none.
HRESULT FailureIfNull(HRESULT status, const void* object)
{
    return SUCCEEDED(status) && object == nullptr ? E_FAIL : status;
}

} // namespace

// Every interface pointer of MSXML keeps its document alive, so the handles need to hold no more than that.
class CDomDocument {
public:
    ComPtr<IXMLDOMDocument> object;
};

class CDomElement {
public:
    ComPtr<IXMLDOMElement> object;
};

class CDomNode {
public:
    ComPtr<IXMLDOMNode> object;
};

// The nodes themselves, not MSXML's list: that one walks from its first node for every index.
class CDomNodeList {
public:
    std::vector<DomNodePtr> nodes;
};

class CDomAttributeMap {
public:
    ComPtr<IXMLDOMNamedNodeMap> object;
};

namespace {

// Puts an interface pointer, or nothing, into a new handle.
template <class Handle, class Interface>
std::shared_ptr<Handle> Wrap(Interface* object)
{
    ComPtr<Interface> owner(object);
    if (!owner) {
        return nullptr;
    }
    auto handle = std::make_shared<Handle>();
    handle->object = std::move(owner);
    return handle;
}

HRESULT ListChildren(IXMLDOMNode* parent, DomNodeListPtr* list)
{
    list->reset();
    auto result = std::make_shared<CDomNodeList>();
    IXMLDOMNode* next = nullptr;
    HRESULT status = parent->get_firstChild(&next);
    while (SUCCEEDED(status) && next != nullptr) {
        result->nodes.push_back(Wrap<CDomNode>(std::exchange(next, nullptr)));
        status = result->nodes.back()->object->get_nextSibling(&next);
    }
    if (FAILED(status)) {
        return status;
    }
    *list = std::move(result);
    return S_OK;
}

// Reads a text property.
template <class Interface>
HRESULT ReadText(Interface* object, HRESULT (STDMETHODCALLTYPE Interface::*property)(BSTR*), CString* text)
{
    text->clear();
    BSTR value = nullptr;
    const HRESULT status = (object->*property)(&value);
    const BstrPtr owner(value);
    if (SUCCEEDED(status)) {
        *text = TextOf(value);
    }
    return status;
}

// Completes a load: sets *loaded and returns the status. A document with a document type is discarded.
HRESULT FinishLoad(IXMLDOMDocument* document, HRESULT status, VARIANT_BOOL successful, bool* loaded)
{
    *loaded = false;
    if (FAILED(status) || successful == VARIANT_FALSE) {
        return status;
    }
    IXMLDOMDocumentType* type = nullptr;
    status = document->get_doctype(&type);
    const ComPtr<IXMLDOMDocumentType> owner(type);
    *loaded = SUCCEEDED(status) && type == nullptr;
    if (*loaded) {
        return S_OK;
    }
    // The empty text, which is no document, makes MSXML drop the last one.
    const BstrPtr none = MakeBstr(L"");
    return document->loadXML(none.get(), &successful);
}

} // namespace

HRESULT CreateDomDocument(DomDocumentPtr* document)
{
    document->reset();
    CLSID type;
    HRESULT status = CLSIDFromProgID(L"MSXML.DOMDocument", &type);
    if (FAILED(status)) {
        return status;
    }
    void* object = nullptr;
    status = CoCreateInstance(type, nullptr, CLSCTX_ALL, IID_IXMLDOMDocument, &object);
    if (FAILED(status)) {
        return status;
    }
    return portable::StatusOf(document, [&] {
        *document = Wrap<CDomDocument>(static_cast<IXMLDOMDocument*>(object));
        if (!*document) {
            return E_POINTER;
        }
        // MSXML would otherwise load in the background, check against a document type and fetch what that refers to.
        (*document)->object->put_async(VARIANT_FALSE);
        (*document)->object->put_validateOnParse(VARIANT_FALSE);
        (*document)->object->put_resolveExternals(VARIANT_FALSE);
        return S_OK;
    });
}

HRESULT LoadDomText(const DomDocumentPtr& document, CString xml, bool* loaded)
{
    *loaded = false;
    // The empty text, which is no document, makes MSXML drop the last one.
    const BstrPtr text = MakeBstr(portable::IsWithinLimits(xml) ? std::wstring_view(xml) : L"");
    CString().swap(xml); // an assignment would keep its memory
    VARIANT_BOOL successful = VARIANT_FALSE;
    const HRESULT status = document->object->loadXML(text.get(), &successful);
    return FinishLoad(document->object.get(), status, successful, loaded);
}

HRESULT LoadDomFile(const DomDocumentPtr& document, const CString& path, bool* loaded)
{
    *loaded = false;
    CVariant source;
    source.Get()->vt = VT_BSTR;
    source.Get()->bstrVal = MakeBstr(path).release();
    VARIANT_BOOL successful = VARIANT_FALSE;
    const HRESULT status = document->object->load(*source.Get(), &successful);
    return FinishLoad(document->object.get(), status, successful, loaded);
}

HRESULT GetDomDocumentElement(const DomDocumentPtr& document, DomElementPtr* element)
{
    IXMLDOMElement* root = nullptr;
    const HRESULT status = document->object->get_documentElement(&root);
    return portable::StatusOf(element, [&] {
        *element = Wrap<CDomElement>(root);
        return FailureIfNull(status, root);
    });
}

HRESULT GetDomChildNodes(const DomNodePtr& node, DomNodeListPtr* list)
{
    return portable::StatusOf(list, [&] { return ListChildren(node->object.get(), list); });
}

HRESULT GetDomChildNodes(const DomElementPtr& element, DomNodeListPtr* list)
{
    return portable::StatusOf(list, [&] { return ListChildren(element->object.get(), list); });
}

HRESULT GetDomItem(const DomNodeListPtr& list, LONG index, DomNodePtr* node)
{
    node->reset();
    if (index < 0 || static_cast<std::size_t>(index) >= list->nodes.size()) {
        return S_FALSE;
    }
    *node = list->nodes[static_cast<std::size_t>(index)];
    return S_OK;
}

HRESULT GetDomLength(const DomNodeListPtr& list, LONG* length)
{
    *length = static_cast<LONG>(list->nodes.size());
    return S_OK;
}

HRESULT GetDomAttributes(const DomNodePtr& node, DomAttributeMapPtr* attributes)
{
    IXMLDOMNamedNodeMap* map = nullptr;
    const HRESULT status = node->object->get_attributes(&map);
    return portable::StatusOf(attributes, [&] {
        *attributes = Wrap<CDomAttributeMap>(map);
        return status;
    });
}

HRESULT GetDomNodeName(const DomNodePtr& node, CString* name)
{
    return portable::StatusOf(name, [&] { return ReadText(node->object.get(), &IXMLDOMNode::get_nodeName, name); });
}

HRESULT GetDomTagName(const DomElementPtr& element, CString* name)
{
    return portable::StatusOf(name,
                              [&] { return ReadText(element->object.get(), &IXMLDOMElement::get_tagName, name); });
}

HRESULT GetDomText(const DomNodePtr& node, CString* text)
{
    return portable::StatusOf(text, [&] { return ReadText(node->object.get(), &IXMLDOMNode::get_text, text); });
}

HRESULT GetDomNamedItem(const DomAttributeMapPtr& attributes, const CString& name, DomNodePtr* attribute)
{
    return portable::StatusOf(attribute, [&] {
        const BstrPtr key = MakeBstr(name);
        IXMLDOMNode* item = nullptr;
        const HRESULT status = attributes->object->getNamedItem(key.get(), &item);
        *attribute = Wrap<CDomNode>(item);
        return status;
    });
}

HRESULT GetDomNodeValue(const DomNodePtr& node, CString* value)
{
    value->clear();
    return portable::StatusOf(value, [&] {
        CVariant content;
        const HRESULT status = node->object->get_nodeValue(content.Get());
        if (SUCCEEDED(status) && SUCCEEDED(VariantChangeType(content.Get(), content.Get(), 0, VT_BSTR))) {
            *value = TextOf(content.Get()->bstrVal);
        }
        return status;
    });
}

} // namespace platform
