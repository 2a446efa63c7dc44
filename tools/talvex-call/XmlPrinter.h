#ifndef TALVEX_TOOLS_XMLPRINTER_H
#define TALVEX_TOOLS_XMLPRINTER_H

#include <ostream>

#include "moxidom/MOXIDOM.h"

// Writes a parsed document or element indented, one element per line.
// Elements holding only text stay on one line; an element whose own text is
// mixed with child elements is written as it is, so no whitespace that
// carries meaning is added or lost. The tree is walked without recursion, and
// indentation stops growing at 80 columns: any depth prints, in output
// proportional to the tree.
void printXml(std::ostream& out, const MOXIDOM_Node& node, int indentStep = 2);

#endif
