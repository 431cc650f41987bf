// A read-only XML document object model with the behaviour of MSXML: what it accepts, which nodes it lists and how it
// trims text.
//
// - Text and files load synchronously, are not validated, and nothing outside them is fetched.
// - Text nodes of white space alone are not listed, unless xml:space says otherwise; comments, processing instructions
//   and CDATA sections are nodes like elements.
// - Handles are shared; any of them keeps its whole document alive. A document and its handles belong to one thread,
//   which must be inside an apartment (Apartment.h).
//
// Every function returns a COM status and leaves its result empty on failure. Running out of memory is E_OUTOFMEMORY;
// the two functions that load throw std::bad_alloc when it happens before the document is made. Handles passed in must
// not be null.
#pragma once

#include "platform/Types.h"

#include <memory>

namespace platform {

class CDomDocument;
class CDomElement;
class CDomNode;
class CDomNodeList;
class CDomAttributeMap;
using DomDocumentPtr = std::shared_ptr<CDomDocument>;
using DomElementPtr = std::shared_ptr<CDomElement>;
using DomNodePtr = std::shared_ptr<CDomNode>;
using DomNodeListPtr = std::shared_ptr<CDomNodeList>;
using DomAttributeMapPtr = std::shared_ptr<CDomAttributeMap>;

// A new, empty document that loads synchronously.
HRESULT CreateDomDocument(DomDocumentPtr* document);

// Loads XML text, whatever encoding it declares. *loaded: whether it is a well-formed document that is taken; when not,
// the status is S_FALSE or a failure. Not taken are documents with a document type, those with a name whose prefix no
// element around it declares, and those beyond a limit (platform/portable/DocumentLimits.h; Linux: also 10,000
// different names). Frees the text before it makes the document.
HRESULT LoadDomText(const DomDocumentPtr& document, CString xml, bool* loaded);

// Loads a file, decoded as its own declaration says. As LoadDomText, without the limits of DocumentLimits.h; a missing
// file is not loaded.
HRESULT LoadDomFile(const DomDocumentPtr& document, const CString& path, bool* loaded);

// The root element. A failure, never success with null, when nothing is loaded.
HRESULT GetDomDocumentElement(const DomDocumentPtr& document, DomElementPtr* element);

// The children in document order, fixed at this call. Not for attributes.
HRESULT GetDomChildNodes(const DomNodePtr& node, DomNodeListPtr* list);
HRESULT GetDomChildNodes(const DomElementPtr& element, DomNodeListPtr* list);

// The child at index, from 0, in constant time. S_FALSE and null for an index below 0 or past the end.
HRESULT GetDomItem(const DomNodeListPtr& list, LONG index, DomNodePtr* node);

// The number of children, in constant time.
HRESULT GetDomLength(const DomNodeListPtr& list, LONG* length);

// The attributes of an element. S_FALSE and null for a node of another kind, which has none.
HRESULT GetDomAttributes(const DomNodePtr& node, DomAttributeMapPtr* attributes);

// The qualified name ("x:a") of an element or attribute; the target of a processing instruction; for other nodes
// "#text", "#comment", "#cdata-section".
HRESULT GetDomNodeName(const DomNodePtr& node, CString* name);
HRESULT GetDomTagName(const DomElementPtr& element, CString* name);

// The text of the node with that of all its descendants, comments and processing instructions left out; space, tab, CR
// and LF trimmed at both ends, unless xml:space says otherwise; CDATA sections kept whole. White space that is not
// listed parts two texts of an element by one space.
HRESULT GetDomText(const DomNodePtr& node, CString* text);

// The attribute of this qualified name. S_FALSE and null when there is none.
HRESULT GetDomNamedItem(const DomAttributeMapPtr& attributes, const CString& name, DomNodePtr* attribute);

// The node's value as text: an attribute's, text's, comment's content; empty for a node that has none.
HRESULT GetDomNodeValue(const DomNodePtr& node, CString* value);

} // namespace platform
