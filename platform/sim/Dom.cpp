// The real document object model, unless a fault is due.
#include "platform/Dom.h"

#include "platform/sim/MachineState.h"

#include <new>
#include <utility>

namespace platform {

using sim::Call;

// The functions of Dom.h as the native backend defines them: CMakeLists.txt builds its DOM with these names.
decltype(CreateDomDocument) RealCreateDomDocument;
decltype(LoadDomText) RealLoadDomText;
decltype(LoadDomFile) RealLoadDomFile;
decltype(GetDomDocumentElement) RealGetDomDocumentElement;
HRESULT RealGetDomChildNodes(const DomNodePtr& node, DomNodeListPtr* list);
HRESULT RealGetDomChildNodes(const DomElementPtr& element, DomNodeListPtr* list);
decltype(GetDomItem) RealGetDomItem;
decltype(GetDomLength) RealGetDomLength;
decltype(GetDomAttributes) RealGetDomAttributes;
decltype(GetDomNodeName) RealGetDomNodeName;
decltype(GetDomTagName) RealGetDomTagName;
decltype(GetDomText) RealGetDomText;
decltype(GetDomNamedItem) RealGetDomNamedItem;
decltype(GetDomNodeValue) RealGetDomNodeValue;

namespace {

// Empties the result and gives the status of an injected fault; S_OK when there is none.
template <class Result>
HRESULT Fault(Call call, Result* result)
{
    *result = {};
    return static_cast<HRESULT>(sim::Machine().faults.Take(call).value_or(static_cast<DWORD>(S_OK)));
}

// The result of the real function, or the fault that is due instead.
template <class Result, class Function>
HRESULT UnlessFault(Call call, Result* result, Function real)
{
    const HRESULT fault = Fault(call, result);
    return fault != S_OK ? fault : real();
}

// As above, for a function that may also throw.
template <class Function>
HRESULT UnlessFault(Call call, Call callThrows, bool* loaded, Function real)
{
    const HRESULT fault = Fault(call, loaded);
    if (sim::Machine().faults.Take(callThrows)) {
        throw std::bad_alloc();
    }
    return fault != S_OK ? fault : real();
}

} // namespace

HRESULT CreateDomDocument(DomDocumentPtr* document)
{
    return UnlessFault(Call::kCreateDomDocument, document, [&] { return RealCreateDomDocument(document); });
}

HRESULT LoadDomText(const DomDocumentPtr& document, CString xml, bool* loaded)
{
    return UnlessFault(Call::kLoadDomText, Call::kLoadDomTextThrows, loaded,
                       [&] { return RealLoadDomText(document, std::move(xml), loaded); });
}

HRESULT LoadDomFile(const DomDocumentPtr& document, const CString& path, bool* loaded)
{
    return UnlessFault(Call::kLoadDomFile, Call::kLoadDomFileThrows, loaded,
                       [&] { return RealLoadDomFile(document, path, loaded); });
}

HRESULT GetDomDocumentElement(const DomDocumentPtr& document, DomElementPtr* element)
{
    return UnlessFault(Call::kGetDomDocumentElement, element,
                       [&] { return RealGetDomDocumentElement(document, element); });
}

HRESULT GetDomChildNodes(const DomNodePtr& node, DomNodeListPtr* list)
{
    return UnlessFault(Call::kGetDomChildNodes, list, [&] { return RealGetDomChildNodes(node, list); });
}

HRESULT GetDomChildNodes(const DomElementPtr& element, DomNodeListPtr* list)
{
    return UnlessFault(Call::kGetDomChildNodes, list, [&] { return RealGetDomChildNodes(element, list); });
}

HRESULT GetDomItem(const DomNodeListPtr& list, LONG index, DomNodePtr* node)
{
    return UnlessFault(Call::kGetDomItem, node, [&] { return RealGetDomItem(list, index, node); });
}

HRESULT GetDomLength(const DomNodeListPtr& list, LONG* length)
{
    return UnlessFault(Call::kGetDomLength, length, [&] { return RealGetDomLength(list, length); });
}

HRESULT GetDomAttributes(const DomNodePtr& node, DomAttributeMapPtr* attributes)
{
    return UnlessFault(Call::kGetDomAttributes, attributes, [&] { return RealGetDomAttributes(node, attributes); });
}

HRESULT GetDomNodeName(const DomNodePtr& node, CString* name)
{
    return UnlessFault(Call::kGetDomNodeName, name, [&] { return RealGetDomNodeName(node, name); });
}

HRESULT GetDomTagName(const DomElementPtr& element, CString* name)
{
    return UnlessFault(Call::kGetDomNodeName, name, [&] { return RealGetDomTagName(element, name); });
}

HRESULT GetDomText(const DomNodePtr& node, CString* text)
{
    return UnlessFault(Call::kGetDomText, text, [&] { return RealGetDomText(node, text); });
}

HRESULT GetDomNamedItem(const DomAttributeMapPtr& attributes, const CString& name, DomNodePtr* attribute)
{
    return UnlessFault(Call::kGetDomNamedItem, attribute,
                       [&] { return RealGetDomNamedItem(attributes, name, attribute); });
}

HRESULT GetDomNodeValue(const DomNodePtr& node, CString* value)
{
    return UnlessFault(Call::kGetDomNodeValue, value, [&] { return RealGetDomNodeValue(node, value); });
}

} // namespace platform
