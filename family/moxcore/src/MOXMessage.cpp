#include "moxcore/MOXMessage.h"

#include <string>

#include "moxcore/MOXMessageCatalog.h"
#include "moxcore/MOXUtConvert.h"

MOXMessage::MOXMessage(const I18NString& messageFile, unsigned number) : m_number(number) {
    setMsgFile(messageFile);
}

MOXMessage::~MOXMessage() = default;

MOXMessageBase* MOXMessage::clone() const { return new MOXMessage(*this); }

const char* MOXMessage::getClassName() const { return "MOXMessage"; }

I18NString MOXMessage::format() const {
    const std::vector<MOXMessageParm>& parms = getParameters();
    const char* pattern = MOXMessageCatalog::lookup(getMsgFile().c_str(), m_number);
    std::string out;
    if (pattern == nullptr) {
        // An unknown number still shows everything the raiser gave.
        std::string hex;
        out = "message " + MOXUtConvert::hexCvt(hex, m_number, 8, '0', MOXUtConvert::getHexPrefix()) +
              " (no text in catalog \"" + getMsgFile().str() + "\")";
        for (size_t i = 0; i < parms.size(); ++i) out += (i == 0 ? ": " : ", ") + parms[i].getText().str();
        return I18NString(out);
    }
    // "%1".."%9" are the parameters; "%[" ... "%]" encloses an optional piece
    // that is left out when a parameter it names was not given.
    std::string* target = &out;
    std::string optional;
    bool optionalComplete = true;
    for (const char* p = pattern; *p != '\0'; ++p) {
        if (*p != '%' || p[1] == '\0') {
            *target += *p;
            continue;
        }
        const char next = *++p;
        if (next >= '1' && next <= '9') {
            size_t index = static_cast<size_t>(next - '1');
            if (index < parms.size())
                *target += parms[index].getText().str();
            else
                optionalComplete = false;
        } else if (next == '[') {
            optional.clear();
            optionalComplete = true;
            target = &optional;
        } else if (next == ']') {
            if (optionalComplete) out += optional;
            target = &out;
        } else {
            *target += next;  // "%%" and any other escaped character
        }
    }
    return I18NString(out);
}

I18NString MOXMessage::toString() const {
    std::string hex;
    MOXUtConvert::hexCvt(hex, m_number, 8, '0', MOXUtConvert::getHexPrefix());
    return I18NString(getMsgFile().str() + " " + hex + ": " + format().str());
}
