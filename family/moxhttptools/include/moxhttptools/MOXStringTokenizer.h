#ifndef MOXHTTPTOOLS_MOXSTRINGTOKENIZER_H
#define MOXHTTPTOOLS_MOXSTRINGTOKENIZER_H

#include <string>

// Splits a text into tokens separated by runs of delimiter characters, the way
// start lines are taken apart ("POST /x HTTP/1.1" on " \t").
//
// The text is copied, so the caller's buffer may go away. Delimiters are never
// returned as tokens; empty tokens do not exist (a run of delimiters is one gap).
class MOXStringTokenizer {
public:
    // text: null counts as empty. delimiters: each character is a delimiter;
    // null means " \t\r\n\f". flag: reserved, must be 0 (anything else raises
    // MOXIllegalArgumentError).
    MOXStringTokenizer(const char* text, const char* delimiters, int flag);

    // 1 when nextToken would succeed.
    int hasMoreTokens() const;
    // The next token; raises NoSuchElementExceptionST when only delimiters (or
    // nothing) are left, without moving.
    std::string nextToken();
    // The text after the last token taken, with the delimiter run right after
    // that token skipped; the rest is returned as it is (inner and trailing
    // delimiters kept). Before any token it is the text minus its leading
    // delimiters; when nothing follows it is "". Does not consume anything.
    std::string theRest() const;

private:
    bool isDelimiter(char c) const;
    std::string::size_type skipDelimiters(std::string::size_type from) const;

    std::string m_text;
    std::string m_delimiters;
    std::string::size_type m_pos;  // just after the last token taken
};

#endif
