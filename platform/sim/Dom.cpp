// The real document object model, unless a fault is due.
#include "platform/Dom.h"

#include "platform/portable/RealDom.h"
#include "platform/sim/MachineState.h"

#include <new>

namespace platform {

using sim::Call;

namespace {

// Empties the result and gives the status of an injected fault; S_OK when there is none.
template <class Result>
HRESULT Fault(Call call, Result* result)
{
    *result = {};
    return static_cast<HRESULT>(sim::Machine().faults.Take(call).value_or(static_cast<DWORD>(S_OK)));
}

void ThrowIfDue(Call call)
{
    if (sim::Machine().faults.Take(call)) {
        throw std::bad_alloc();
    }
}

} // namespace

HRESULT CreateDomDocument(DomDocumentPtr* document)
{
    const HRESULT fault = Fault(Call::kCreateDomDocument, document);
    return fault != S_OK ? fault : real_dom::CreateDomDocument(document);
}

HRESULT LoadDomText(const DomDocumentPtr& document, const CString& xml, bool* loaded)
{
    const HRESULT fault = Fault(Call::kLoadDomText, loaded);
    ThrowIfDue(Call::kLoadDomTextThrows);
    return fault != S_OK ? fault : real_dom::LoadDomText(document, xml, loaded);
}

HRESULT LoadDomFile(const DomDocumentPtr& document, const CString& path, bool* loaded)
{
    const HRESULT fault = Fault(Call::kLoadDomFile, loaded);
    ThrowIfDue(Call::kLoadDomFileThrows);
    return fault != S_OK ? fault : real_dom::LoadDomFile(document, path, loaded);
}

HRESULT GetDomDocumentElement(const DomDocumentPtr& document, DomElementPtr* element)
{
    const HRESULT fault = Fault(Call::kGetDomDocumentElement, element);
    return fault != S_OK ? fault : real_dom::GetDomDocumentElement(document, element);
}

HRESULT GetDomChildNodes(const DomNodePtr& node, DomNodeListPtr* list)
{
    const HRESULT fault = Fault(Call::kGetDomChildNodes, list);
    return fault != S_OK ? fault : real_dom::GetDomChildNodes(node, list);
}

HRESULT GetDomChildNodes(const DomElementPtr& element, DomNodeListPtr* list)
{
    const HRESULT fault = Fault(Call::kGetDomChildNodes, list);
    return fault != S_OK ? fault : real_dom::GetDomChildNodes(element, list);
}

HRESULT GetDomItem(const DomNodeListPtr& list, LONG index, DomNodePtr* node)
{
    const HRESULT fault = Fault(Call::kGetDomItem, node);
    return fault != S_OK ? fault : real_dom::GetDomItem(list, index, node);
}

HRESULT GetDomLength(const DomNodeListPtr& list, LONG* length)
{
    const HRESULT fault = Fault(Call::kGetDomLength, length);
    return fault != S_OK ? fault : real_dom::GetDomLength(list, length);
}

HRESULT GetDomAttributes(const DomNodePtr& node, DomAttributeMapPtr* attributes)
{
    const HRESULT fault = Fault(Call::kGetDomAttributes, attributes);
    return fault != S_OK ? fault : real_dom::GetDomAttributes(node, attributes);
}

HRESULT GetDomNodeName(const DomNodePtr& node, CString* name)
{
    const HRESULT fault = Fault(Call::kGetDomNodeName, name);
    return fault != S_OK ? fault : real_dom::GetDomNodeName(node, name);
}

HRESULT GetDomTagName(const DomElementPtr& element, CString* name)
{
    const HRESULT fault = Fault(Call::kGetDomNodeName, name);
    return fault != S_OK ? fault : real_dom::GetDomTagName(element, name);
}

HRESULT GetDomText(const DomNodePtr& node, CString* text)
{
    const HRESULT fault = Fault(Call::kGetDomText, text);
    return fault != S_OK ? fault : real_dom::GetDomText(node, text);
}

HRESULT GetDomNamedItem(const DomAttributeMapPtr& attributes, const CString& name, DomNodePtr* attribute)
{
    const HRESULT fault = Fault(Call::kGetDomNamedItem, attribute);
    return fault != S_OK ? fault : real_dom::GetDomNamedItem(attributes, name, attribute);
}

HRESULT GetDomNodeValue(const DomNodePtr& node, CString* value)
{
    const HRESULT fault = Fault(Call::kGetDomNodeValue, value);
    return fault != S_OK ? fault : real_dom::GetDomNodeValue(node, value);
}

} // namespace platform
