#ifndef MOXIDOM_MOXIDOM_H
#define MOXIDOM_MOXIDOM_H

// The DOM library: documents and node handles over Xerces-C, a stream parser,
// a serialiser writing through DomWriter, and the URL parser.

#include "moxidom/DomWriter.h"
#include "moxidom/MOXIDOM_DOMException.h"
#include "moxidom/MOXIDOM_Document.h"
#include "moxidom/MOXIDOM_Element.h"
#include "moxidom/MOXIDOM_Helper.h"
#include "moxidom/MOXIDOM_Node.h"
#include "moxidom/MOXIDOM_ParseException.h"
#include "moxidom/MOXIDOM_Parser.h"
#include "moxidom/XmlUrl.h"

#endif
