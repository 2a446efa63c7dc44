#ifndef MOXIDOM_MOXIDOM_DOCUMENT_H
#define MOXIDOM_MOXIDOM_DOCUMENT_H

#include <string>

#include "moxidom/MOXIDOM_Element.h"
#include "moxidom/MOXIDOM_Node.h"

// A handle on a document. Like every node handle it shares the document:
// copies designate the same document, and the document (with all its nodes)
// is released when the last handle on it or on any of its nodes goes.
//
// Building a SOAP request:
//     MOXIDOM_Document doc = MOXIDOM_Document::create();
//     MOXIDOM_Element env = doc.createElementNS(SOAP_ENV, "soapenv:Envelope");
//     doc.appendChild(env);
//     MOXIDOM_Element call = env.appendElementNS(SOAP_ENV, "soapenv:Body")
//                                .appendElementNS("urn:calc", "c:add");
//     call.appendElementNS("urn:calc", "c:a").appendText("1");
class MOXIDOM_Document : public MOXIDOM_Node {
public:
    // A new, empty document (no document element yet).
    MOXIDOM_Document();
    static MOXIDOM_Document create() { return MOXIDOM_Document(); }
    // Parses a complete XML text (UTF-8 unless its declaration says otherwise),
    // with the parser's rules (no DOCTYPE). Throws MOXIDOM_ParseException.
    static MOXIDOM_Document parseString(const std::string& xml);

    // The root element, or a null handle.
    MOXIDOM_Element getDocumentElement() const;

    // New nodes belong to this document but are in no tree until appended.
    // A namespace URI of "" means no namespace; bad names raise
    // INVALID_CHARACTER_ERR or NAMESPACE_ERR.
    MOXIDOM_Element createElementNS(const std::string& namespaceURI, const std::string& qualifiedName);
    // An element in no namespace.
    MOXIDOM_Element createElement(const std::string& name);
    MOXIDOM_Node createTextNode(const std::string& text);
    MOXIDOM_Node createCDATASection(const std::string& text);
    MOXIDOM_Node createComment(const std::string& text);
    MOXIDOM_Node createProcessingInstruction(const std::string& target, const std::string& data);
    // A copy of a node of any document, owned by this one, in no tree yet.
    MOXIDOM_Node importNode(const MOXIDOM_Node& node, bool deep = true);

private:
    // A null document handle, for getOwnerDocument of a null node.
    struct NullTag {};
    explicit MOXIDOM_Document(NullTag);
    explicit MOXIDOM_Document(const std::shared_ptr<MOXIDOM_DocumentHolder>& owner);

    XERCES_CPP_NAMESPACE::DOMNode* requireDocument(const char* operation) const;

    friend class MOXIDOM_Node;
    friend class MOXIDOM_Parser;
};

#endif
