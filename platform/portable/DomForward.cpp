// Dom.h of the native platforms: the real document object model and nothing else.
#include "platform/portable/RealDom.h"

namespace platform {

HRESULT CreateDomDocument(DomDocumentPtr* document) { return real_dom::CreateDomDocument(document); }

HRESULT LoadDomText(const DomDocumentPtr& document, const CString& xml, bool* loaded)
{
    return real_dom::LoadDomText(document, xml, loaded);
}

HRESULT LoadDomFile(const DomDocumentPtr& document, const CString& path, bool* loaded)
{
    return real_dom::LoadDomFile(document, path, loaded);
}

HRESULT GetDomDocumentElement(const DomDocumentPtr& document, DomElementPtr* element)
{
    return real_dom::GetDomDocumentElement(document, element);
}

HRESULT GetDomChildNodes(const DomNodePtr& node, DomNodeListPtr* list)
{
    return real_dom::GetDomChildNodes(node, list);
}

HRESULT GetDomChildNodes(const DomElementPtr& element, DomNodeListPtr* list)
{
    return real_dom::GetDomChildNodes(element, list);
}

HRESULT GetDomItem(const DomNodeListPtr& list, LONG index, DomNodePtr* node)
{
    return real_dom::GetDomItem(list, index, node);
}

HRESULT GetDomLength(const DomNodeListPtr& list, LONG* length) { return real_dom::GetDomLength(list, length); }

HRESULT GetDomAttributes(const DomNodePtr& node, DomAttributeMapPtr* attributes)
{
    return real_dom::GetDomAttributes(node, attributes);
}

HRESULT GetDomNodeName(const DomNodePtr& node, CString* name) { return real_dom::GetDomNodeName(node, name); }

HRESULT GetDomTagName(const DomElementPtr& element, CString* name) { return real_dom::GetDomTagName(element, name); }

HRESULT GetDomText(const DomNodePtr& node, CString* text) { return real_dom::GetDomText(node, text); }

HRESULT GetDomNamedItem(const DomAttributeMapPtr& attributes, const CString& name, DomNodePtr* attribute)
{
    return real_dom::GetDomNamedItem(attributes, name, attribute);
}

HRESULT GetDomNodeValue(const DomNodePtr& node, CString* value) { return real_dom::GetDomNodeValue(node, value); }

} // namespace platform
