#include "moxhttptools/MOXStringTokenizer.h"

#include "moxcore/MOXThrow.h"
#include "moxhttptools/NoSuchElementExceptionST.h"

static const char MOX_UNIT[] = "MOXStringTokenizer";

MOXStringTokenizer::MOXStringTokenizer(const char* text, const char* delimiters, int flag)
    : m_text(text != nullptr ? text : ""), m_delimiters(delimiters != nullptr ? delimiters : " \t\r\n\f"), m_pos(0) {
    if (flag != 0) {
        MOX_THROW(MOXIllegalArgumentError, "MOXStringTokenizer::MOXStringTokenizer - flag must be 0");
    }
}

bool MOXStringTokenizer::isDelimiter(char c) const { return m_delimiters.find(c) != std::string::npos; }

std::string::size_type MOXStringTokenizer::skipDelimiters(std::string::size_type from) const {
    while (from < m_text.size() && isDelimiter(m_text[from])) ++from;
    return from;
}

int MOXStringTokenizer::hasMoreTokens() const { return skipDelimiters(m_pos) < m_text.size() ? 1 : 0; }

std::string MOXStringTokenizer::nextToken() {
    std::string::size_type begin = skipDelimiters(m_pos);
    if (begin >= m_text.size()) {
        MOX_THROW(NoSuchElementExceptionST, "MOXStringTokenizer::nextToken - no token left");
    }
    std::string::size_type end = begin;
    while (end < m_text.size() && !isDelimiter(m_text[end])) ++end;
    m_pos = end;
    return m_text.substr(begin, end - begin);
}

std::string MOXStringTokenizer::theRest() const { return m_text.substr(skipDelimiters(m_pos)); }
