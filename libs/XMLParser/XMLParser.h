/*
 * libXMLParser: a small read-only XML DOM for C callers, built on pugixml.
 *
 * The document owns every node and every string reachable from it; one
 * freeXMLDoc() releases them all. Nodes follow the W3C numbering for their
 * type. Attributes are nodes of type 2 chained through nextSibling.
 *
 * Parsing rules:
 *  - the XML declaration, comments, processing instructions and the DOCTYPE
 *    are not represented; the root node is the document element and its
 *    parent is NULL;
 *  - adjacent character data is one text node (type 3); a CDATA section is
 *    one node of type 4;
 *  - whitespace-only text between elements is dropped, but text that is the
 *    whole content of an element (<VALUE> </VALUE>) is kept as it stands;
 *  - no DTD is loaded and no custom entity is expanded; only the five
 *    predefined entities and character references are decoded.
 */
#ifndef CIMXML_XMLPARSER_H
#define CIMXML_XMLPARSER_H

#include <stddef.h>

#if defined(_WIN32)
#define XMLPARSER_API
#else
#define XMLPARSER_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

enum {
    XML_ELEMENT_NODE = 1,
    XML_ATTRIBUTE_NODE = 2,
    XML_TEXT_NODE = 3,
    XML_CDATA_SECTION_NODE = 4
};

typedef struct XMLNode XMLNode;

/* Every field is read-only for callers and lives as long as its document. */
struct XMLNode {
    int type;              /* XML_ELEMENT_NODE ... XML_CDATA_SECTION_NODE */
    const char* name;      /* element or attribute name; "" for text/CDATA */
    const char* value;     /* text/CDATA content, attribute value; NULL for elements */
    XMLNode* attributes;   /* first attribute of an element, or NULL */
    XMLNode* parent;       /* NULL for the root element */
    XMLNode* firstChild;   /* NULL when none */
    XMLNode* nextSibling;  /* NULL at the end of the list */
};

/* The document handle. Its first field is the root element. */
typedef struct XMLDoc {
    XMLNode* root;
    void* impl; /* private */
} XMLDoc;

/* Caller-owned parse context: holds the error of the last failed parse. */
typedef struct XMLParseContext {
    int status;          /* 0 = ok, otherwise a parse error code */
    size_t offset;       /* byte offset of the fault in the parsed text */
    char errorText[256]; /* description and offset, NUL-terminated */
} XMLParseContext;

/* Parses the NUL-terminated text (it is copied; the caller keeps it).
 * Returns a document the caller frees with freeXMLDoc, or NULL with the
 * error kept in ctx (ctx may be NULL, then the error is only dropped). */
XMLPARSER_API XMLDoc* parseText(XMLParseContext* ctx, const char* text);

/* Same, for a text of known length (need not be NUL-terminated). */
XMLPARSER_API XMLDoc* parseTextLength(XMLParseContext* ctx, const char* text, size_t length);

/* Same as parseText, without the copy: the text is parsed where it stands
 * and so is changed. The document's strings point into it, so the caller
 * keeps it unchanged until after freeXMLDoc, and frees it itself. For a large
 * buffer the caller has no further use for. */
XMLPARSER_API XMLDoc* parseTextInPlace(XMLParseContext* ctx, char* text);

/* Text of the last error kept in ctx ("" when there was none). Never NULL. */
XMLPARSER_API const char* getErrorText(XMLParseContext* ctx);

/* Releases the document and every node and string in it. NULL is ignored. */
XMLPARSER_API void freeXMLDoc(XMLDoc* doc);

/* For a caller that visits the tree once in document order (an element, then
 * its attributes, then its children) and keeps only the ancestors of the node
 * it is at: the node records that lie before `node` and are not its
 * ancestors are released, a block at a time, so a large document shrinks
 * while it is read. For a document parseText copied (1 MB and more), the
 * text before `node` goes too: the strings of the released nodes are then
 * gone, those of `node`'s ancestors are kept (they may move, so read them
 * again from the nodes). Call it with each node visited; a node of another
 * document, or one before the last call's, is ignored. */
XMLPARSER_API void releaseXMLNodesBefore(XMLDoc* doc, const XMLNode* node);

#ifdef __cplusplus
}
#endif

#endif
