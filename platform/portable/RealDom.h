// The DOM that reads real documents: MSXML on Windows, libxml2 elsewhere. The native platform hands every call of Dom.h
// to it; the simulated machine does so too unless a fault is due. Contracts as in Dom.h.
#pragma once

#include "platform/Dom.h"

#include <new>

namespace platform::real_dom {

// What EnterApartment and LeaveApartment of Thread.h do for the DOM's sake.
void EnterApartment();
void LeaveApartment();

HRESULT CreateDomDocument(DomDocumentPtr* document);
HRESULT LoadDomText(const DomDocumentPtr& document, const CString& xml, bool* loaded);
HRESULT LoadDomFile(const DomDocumentPtr& document, const CString& path, bool* loaded);
HRESULT GetDomDocumentElement(const DomDocumentPtr& document, DomElementPtr* element);
HRESULT GetDomChildNodes(const DomNodePtr& node, DomNodeListPtr* list);
HRESULT GetDomChildNodes(const DomElementPtr& element, DomNodeListPtr* list);
HRESULT GetDomItem(const DomNodeListPtr& list, LONG index, DomNodePtr* node);
HRESULT GetDomLength(const DomNodeListPtr& list, LONG* length);
HRESULT GetDomAttributes(const DomNodePtr& node, DomAttributeMapPtr* attributes);
HRESULT GetDomNodeName(const DomNodePtr& node, CString* name);
HRESULT GetDomTagName(const DomElementPtr& element, CString* name);
HRESULT GetDomText(const DomNodePtr& node, CString* text);
HRESULT GetDomNamedItem(const DomAttributeMapPtr& attributes, const CString& name, DomNodePtr* attribute);
HRESULT GetDomNodeValue(const DomNodePtr& node, CString* value);

// Runs the body of one of the functions that do not throw: want of memory is a failed status and an empty result.
template <class Result, class Body>
HRESULT StatusOf(Result* result, Body body)
{
    try {
        return body();
    } catch (const std::bad_alloc&) {
        *result = {};
        return E_OUTOFMEMORY;
    }
}

} // namespace platform::real_dom
