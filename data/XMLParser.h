// Loads an XML document and reads its nodes, with a trace line for every failure.
#pragma once

#include "platform/CodeException.h"
#include "platform/Dom.h"

// A failure of the document object model itself.
class CComException : public platform::CCodeException<HRESULT> {
public:
    // code: the COM status.
    explicit CComException(HRESULT code) : CCodeException("COM exception", code) {}
};

// Stateless. An object and the handles it gives belong to one thread, which must be inside an apartment
// (platform/Apartment.h). Handles belong to the caller; a null one means failure. Only Load and LoadFile throw: running
// out of memory while reading is a failure like others. (The caller makes the texts that are passed by value.)
class CXMLParser {
public:
    CXMLParser();
    virtual ~CXMLParser();
    CXMLParser(const CXMLParser&) = delete;
    CXMLParser& operator=(const CXMLParser&) = delete;

    // For derived classes: called before the first use and after the last one. Initialize is always true here.
    virtual bool Initialize();
    virtual void Finalize();

    // Loads a document from text, or from a file as its own declaration encodes it. The root element, which keeps its
    // document alive, or null when it is not a well-formed document. Throws CComException: the status when the document
    // object cannot be created, E_OUTOFMEMORY when memory runs out while the argument is passed on.
    platform::DomElementPtr Load(CString strXml);
    platform::DomElementPtr LoadFile(CString strPath);

    // The children in document order; null on failure or for null.
    platform::DomNodeListPtr GetChildNodes(const platform::DomNodePtr& node);
    platform::DomNodeListPtr GetChildNodes(const platform::DomElementPtr& element);

    // The child at index, from 0; null, without a trace line, for an index outside the list; null on failure or for
    // null.
    platform::DomNodePtr GetNode(const platform::DomNodeListPtr& list, LONG index);

    // The attributes; null, without a trace line, for a node that is not an element; null on failure or for null.
    platform::DomAttributeMapPtr GetNodeAttributes(const platform::DomNodePtr& node);

    // The qualified name, such as "#comment" for a comment; empty on failure or for null.
    CString GetTagName(const platform::DomNodePtr& node);
    CString GetTagName(const platform::DomElementPtr& element);

    // The text of the node with that of all its descendants; empty on failure or for null.
    CString GetTagValue(const platform::DomNodePtr& node);

    // The number of children; 0 on failure or for null.
    LONG GetChildCount(const platform::DomNodeListPtr& list);

    // The text of the attribute of this name. False, value untouched, when there is no such attribute, on failure, and
    // for a null map or an empty name.
    bool GetAttribue(const platform::DomAttributeMapPtr& attributes, CString strName, CString& value);
};
