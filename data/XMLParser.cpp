#include "data/XMLParser.h"

#include "config/TraceLog.h"

#include <new>
#include <utility>

namespace {

using platform::DomAttributeMapPtr;
using platform::DomDocumentPtr;
using platform::DomElementPtr;
using platform::DomNodeListPtr;
using platform::DomNodePtr;

// Several messages print "(0x08X)" literally: readers of the log know them in this form.
constexpr wchar_t kNullNode[] = L"Node Parameter NULL.";
constexpr wchar_t kNullElement[] = L"Doc Element Parameter NULL.";
constexpr wchar_t kChildrenFailed[] = L"ChildNode get fail.(0x08X)";
constexpr wchar_t kTagNameFailed[] = L"Tag Name get fail.(0x08X)";
constexpr wchar_t kTagName[] = L"TagName is \"%s\"";

DomDocumentPtr MakeDocument()
{
    DomDocumentPtr document;
    const HRESULT status = platform::CreateDomDocument(&document);
    if (FAILED(status) && status != E_NOINTERFACE) {
        throw CComException(status);
    }
    if (!document) {
        throw CComException(E_POINTER);
    }
    return document;
}

// Loads source with LoadDomText or LoadDomFile and gives the root element; null, traced, on failure.
template <class LoadCall>
DomElementPtr LoadDocument(const CTraceLog& log, LoadCall load, CString source, const wchar_t* loadFailed)
{
    const DomDocumentPtr document = MakeDocument();
    bool loaded = false;
    HRESULT status = E_FAIL;
    try {
        status = load(document, std::move(source), &loaded);
    } catch (const std::bad_alloc&) {
        throw CComException(E_OUTOFMEMORY);
    }
    if (FAILED(status) || !loaded) {
        log.Err(loadFailed, status);
        return nullptr;
    }
    DomElementPtr element;
    status = platform::GetDomDocumentElement(document, &element);
    if (FAILED(status)) {
        log.Err(L"XML Document Element get fail.(0x08X)", status);
        return nullptr;
    }
    return element;
}

// Whether a call of the object model succeeded; traced when not.
bool Succeeded(const CTraceLog& log, HRESULT status, const wchar_t* failed)
{
    if (FAILED(status)) {
        log.Err(failed, status);
        return false;
    }
    return true;
}

// Whether there is something to read; traced when not.
template <class Handle>
bool IsGiven(const CTraceLog& log, const Handle& handle, const wchar_t* missing)
{
    if (!handle) {
        log.Err(missing);
        return false;
    }
    return true;
}

} // namespace

CXMLParser::CXMLParser() { const CTraceScope scope(L"CXMLParser::CXMLParser"); }

CXMLParser::~CXMLParser() { const CTraceScope scope(L"CXMLParser::~CXMLParser"); }

bool CXMLParser::Initialize()
{
    const CTraceScope scope(L"CXMLParser::Initialize");
    return true;
}

void CXMLParser::Finalize() { const CTraceScope scope(L"CXMLParser::Finalize"); }

DomElementPtr CXMLParser::Load(CString strXml)
{
    const CTraceScope scope(L"CXMLParser::Load");
    return LoadDocument(scope, platform::LoadDomText, std::move(strXml), L"XML Load fail.(0x08X)");
}

DomElementPtr CXMLParser::LoadFile(CString strPath)
{
    const CTraceScope scope(L"CXMLParser::LoadFile");
    return LoadDocument(scope, platform::LoadDomFile, std::move(strPath), L"XML Load File fail.(0x08X)");
}

DomNodeListPtr CXMLParser::GetChildNodes(const DomNodePtr& node)
{
    const CTraceScope scope(L"CXMLParser::GetChildNodes");
    DomNodeListPtr list;
    if (IsGiven(scope, node, kNullNode)) {
        Succeeded(scope, platform::GetDomChildNodes(node, &list), kChildrenFailed);
    }
    return list;
}

DomNodeListPtr CXMLParser::GetChildNodes(const DomElementPtr& element)
{
    const CTraceScope scope(L"CXMLParser::GetChildNodes");
    DomNodeListPtr list;
    if (IsGiven(scope, element, kNullElement)) {
        Succeeded(scope, platform::GetDomChildNodes(element, &list), kChildrenFailed);
    }
    return list;
}

DomNodePtr CXMLParser::GetNode(const DomNodeListPtr& list, LONG index)
{
    const CTraceScope scope(L"CXMLParser::GetNode");
    DomNodePtr node;
    if (IsGiven(scope, list, kNullNode)) {
        Succeeded(scope, platform::GetDomItem(list, index, &node), L"Node get fail.(0x08X)");
    }
    return node;
}

DomAttributeMapPtr CXMLParser::GetNodeAttributes(const DomNodePtr& node)
{
    const CTraceScope scope(L"CXMLParser::GetNodeAttributes");
    DomAttributeMapPtr attributes;
    if (IsGiven(scope, node, kNullNode)) {
        Succeeded(scope, platform::GetDomAttributes(node, &attributes), L"Attribute get fail.(0x08X)");
    }
    return attributes;
}

CString CXMLParser::GetTagName(const DomNodePtr& node)
{
    const CTraceScope scope(L"CXMLParser::GetTagName");
    CString name;
    if (IsGiven(scope, node, kNullNode) && Succeeded(scope, platform::GetDomNodeName(node, &name), kTagNameFailed)) {
        scope.Tra(kTagName, name);
    }
    return name;
}

CString CXMLParser::GetTagName(const DomElementPtr& element)
{
    const CTraceScope scope(L"CXMLParser::GetTagName");
    CString name;
    if (IsGiven(scope, element, kNullElement) &&
        Succeeded(scope, platform::GetDomTagName(element, &name), kTagNameFailed)) {
        scope.Tra(kTagName, name);
    }
    return name;
}

CString CXMLParser::GetTagValue(const DomNodePtr& node)
{
    const CTraceScope scope(L"CXMLParser::GetTagValue");
    CString text;
    if (IsGiven(scope, node, kNullNode) &&
        Succeeded(scope, platform::GetDomText(node, &text), L"Tag Value get fail.(0x08X)")) {
        scope.Tra(L"TagValue is \"%s\"", text);
    }
    return text;
}

LONG CXMLParser::GetChildCount(const DomNodeListPtr& list)
{
    const CTraceScope scope(L"CXMLParser::GetChildCount");
    LONG count = 0;
    if (IsGiven(scope, list, kNullNode)) {
        Succeeded(scope, platform::GetDomLength(list, &count), L"ChildName Count get fail.(0x08X)");
        scope.Tra(L"ChildNode Count is %d", count);
    }
    return count;
}

bool CXMLParser::GetAttribue(const DomAttributeMapPtr& attributes, CString strName, CString& value)
{
    const CTraceScope scope(L"CXMLParser::GetAttribue");
    if (!attributes || strName.empty()) {
        scope.Err(L"Node Parameter NULL or AttrName Empty.");
        return false;
    }
    DomNodePtr attribute;
    if (!Succeeded(scope, platform::GetDomNamedItem(attributes, strName, &attribute),
                   L"Target Attribute get fail.(0x%08X)")) {
        return false;
    }
    if (!attribute) {
        scope.Tra(L"Target Attribute no Attirbute.");
        return false;
    }
    CString text;
    if (!Succeeded(scope, platform::GetDomNodeValue(attribute, &text), L"Target Attribute Value get fail.(0x%08X)")) {
        return false;
    }
    value = std::move(text);
    scope.Tra(L"Attribute : \"%s\" = \"%s\"", strName, value);
    return true;
}
