#ifndef MOXHTTPTOOLS_HTTPHEADER_H
#define MOXHTTPTOOLS_HTTPHEADER_H

#include <string>
#include <vector>

class MOXByteBuffer;

// One header value with parameters, such as
//     multipart/related; type="text/xml"; boundary="=_=vorna-mp-boundary=_="
// taken apart into its main value and its attributes.
//
// Parsing is lenient, because peers are: a ';' inside double quotes does not
// split (also in the main value, so a quoted SOAPAction stays whole); a quoted
// attribute value may hold any byte, with a backslash taking the next byte
// literally; an unquoted value is the run of bytes up to a blank or ';';
// anything else that does not fit is skipped. No input makes it fail.
class HTTPHeader {
public:
    HTTPHeader();

    // Replaces the contents with the parse of value; null counts as empty.
    void parse(const char* value);

    // The main value (the text before the first unquoted ';'), trimmed, in the
    // case received, quotes kept; "" when empty. Valid until the next parse.
    const char* getValue() const;

    // The value of the first attribute of that name, compared without regard
    // to ASCII case; quotes removed and escapes resolved. "" for an attribute
    // written without '=' ("; secure"); null when absent. Valid until the next parse.
    const char* getAttribute(const char* name) const;

    // Number of attributes, in the order received.
    unsigned getAttributeCount() const { return static_cast<unsigned>(m_attributes.size()); }

    // Appends the normalised text: the main value, then "; name=value" per
    // attribute in the order received ("; name" for one without '='). A value
    // is quoted, with '"' and '\' escaped, unless it is a non-empty token.
    void dump(MOXByteBuffer& out) const;

private:
    struct Attribute {
        std::string name;
        std::string value;
        bool hasValue;
    };

    std::string m_value;
    std::vector<Attribute> m_attributes;
};

#endif
