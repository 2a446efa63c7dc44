#include "moxidom/MOXIDOM_ParseException.h"

MOXIDOM_ParseException::MOXIDOM_ParseException(int errorCode, int line, int column, const std::string& text)
    : std::runtime_error("XML parse error at line " + std::to_string(line) + ", column " +
                         std::to_string(column) + ": " + text),
      m_code(errorCode),
      m_line(line),
      m_column(column),
      m_text(text) {}
