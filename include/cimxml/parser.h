/*
 * Response parser: CIM-XML text to a record tree.
 *
 * parseXML() parses the text with libXMLParser, walks the DOM once in
 * document order and calls one Create<Record> builder per element; each
 * builder links its record into its parent's record, which the walk finds on
 * a process-wide element stack (map/top). The root CIM record is returned;
 * the caller frees it with Free_CIM (or takes a subtree and frees the rest
 * with Free_Header).
 *
 * The stack and returnAddress are process globals without locks: one parse
 * at a time per process.
 */
#ifndef CIMXML_PARSER_H
#define CIMXML_PARSER_H

#include "records.h"

CIMXML_BEGIN_DECLS

struct XMLNode; /* libXMLParser's DOM node */

#define CIMXML_ELEMENT_NAME_SIZE 256
#define CIMXML_ELEMENT_STACK_SIZE 4096

/* One element-stack entry, passed and returned by value. */
typedef struct ElementStackEntry {
    void* address;                        /* the record built for the element */
    char name[CIMXML_ELEMENT_NAME_SIZE];  /* the element's name, NUL-terminated */
} ElementStackEntry;

/* The element stack (entry 0 is the bottom), its top index (-1 = empty) and
 * the root record of the last parse. returnAddress is not reset between
 * parses. */
CIMXML_API extern ElementStackEntry map[CIMXML_ELEMENT_STACK_SIZE];
CIMXML_API extern int top;
CIMXML_API extern void* returnAddress;
/* Kept for compatibility; never read or written by the library. */
CIMXML_API extern void* testObjWithPath;

/* Returns the root CIM record, or NULL (text without "<?xml" or "<CIM ", or
 * XML that does not parse: then "\n Invalid XML... <error>" goes to stdout). */
CIMXML_API CIM* parseXML(const char* text);

CIMXML_API int recursiveParseCIM(struct XMLNode* node);
CIMXML_API int Push(ElementStackEntry entry);
CIMXML_API void* Pop(const char* name);
CIMXML_API void removeParent(const char* name);
CIMXML_API int printStack(void);

/* Reads an embedded instance from a CDATA section's text into *result.
 * Returns 0, or -1 when the text does not parse or an allocation fails. */
CIMXML_API int ParseCDataContent(const char* text, Instance** result);

/* Builders: one per element, called by the walk with the element's DOM node
 * and the record of its parent element (possibly NULL). */

CIMXML_API ElementStackEntry CreatePropertyArray(struct XMLNode* node, void* parentRecord); /* PROPERTY.ARRAY */
CIMXML_API ElementStackEntry CreateProperty(struct XMLNode* node, void* parentRecord); /* PROPERTY */
CIMXML_API ElementStackEntry CreateValue(struct XMLNode* node, void* parentRecord); /* VALUE */
CIMXML_API ElementStackEntry CreateValueArray(struct XMLNode* node, void* parentRecord); /* VALUE.ARRAY */
CIMXML_API ElementStackEntry CreateCIM(struct XMLNode* node, void* parentRecord); /* CIM */
CIMXML_API ElementStackEntry CreateMessage(struct XMLNode* node, void* parentRecord); /* MESSAGE */
CIMXML_API ElementStackEntry CreateSimpleRsp(struct XMLNode* node, void* parentRecord); /* SIMPLERSP */
CIMXML_API ElementStackEntry CreateIMethodResponse(struct XMLNode* node, void* parentRecord); /* IMETHODRESPONSE */
CIMXML_API ElementStackEntry CreateIReturnValue(struct XMLNode* node, void* parentRecord); /* IRETURNVALUE */
CIMXML_API ElementStackEntry CreateClass(struct XMLNode* node, void* parentRecord); /* CLASS */
CIMXML_API ElementStackEntry CreateQualifier(struct XMLNode* node, void* parentRecord); /* QUALIFIER */
CIMXML_API ElementStackEntry CreateNamedInstance(struct XMLNode* node, void* parentRecord); /* VALUE.NAMEDINSTANCE */
CIMXML_API ElementStackEntry CreateInstanceName(struct XMLNode* node, void* parentRecord); /* INSTANCENAME */
CIMXML_API ElementStackEntry CreateInstance(struct XMLNode* node, void* parentRecord); /* INSTANCE */
CIMXML_API ElementStackEntry CreateClassName(struct XMLNode* node, void* parentRecord); /* CLASSNAME */
CIMXML_API ElementStackEntry CreateKeyValue(struct XMLNode* node, void* parentRecord); /* KEYVALUE */
CIMXML_API ElementStackEntry CreateKeyBinding(struct XMLNode* node, void* parentRecord); /* KEYBINDING */
CIMXML_API ElementStackEntry CreateValueReference(struct XMLNode* node, void* parentRecord); /* VALUE.REFERENCE */
CIMXML_API ElementStackEntry CreateError(struct XMLNode* node, void* parentRecord); /* ERROR */
CIMXML_API ElementStackEntry CreateInstancePath(struct XMLNode* node, void* parentRecord); /* INSTANCEPATH */
CIMXML_API ElementStackEntry CreateObjectWithPath(struct XMLNode* node, void* parentRecord); /* VALUE.OBJECTWITHPATH */
CIMXML_API ElementStackEntry CreateNamespacePath(struct XMLNode* node, void* parentRecord); /* NAMESPACEPATH */
CIMXML_API ElementStackEntry CreateLocalNamespacePath(struct XMLNode* node, void* parentRecord); /* LOCALNAMESPACEPATH */
CIMXML_API ElementStackEntry CreateHost(struct XMLNode* node, void* parentRecord); /* HOST */
CIMXML_API ElementStackEntry CreateNamespace(struct XMLNode* node, void* parentRecord); /* NAMESPACE */
CIMXML_API ElementStackEntry CreateLocalInstancePath(struct XMLNode* node, void* parentRecord); /* LOCALINSTANCEPATH */
CIMXML_API ElementStackEntry CreatePropertyReference(struct XMLNode* node, void* parentRecord); /* PROPERTY.REFERENCE */
CIMXML_API ElementStackEntry CreateMethod(struct XMLNode* node, void* parentRecord); /* METHOD */
CIMXML_API ElementStackEntry CreateParameter(struct XMLNode* node, void* parentRecord); /* PARAMETER */
CIMXML_API ElementStackEntry CreateParameterReference(struct XMLNode* node, void* parentRecord); /* PARAMETER.REFERENCE */
CIMXML_API ElementStackEntry CreateParameterArray(struct XMLNode* node, void* parentRecord); /* PARAMETER.ARRAY */
CIMXML_API ElementStackEntry CreateParameterRefArray(struct XMLNode* node, void* parentRecord); /* PARAMETER.REFARRAY */
CIMXML_API ElementStackEntry CreateMethodResponse(struct XMLNode* node, void* parentRecord); /* METHODRESPONSE */
CIMXML_API ElementStackEntry CreateQualifierDecl(struct XMLNode* node, void* parentRecord); /* QUALIFIER.DECLARATION */
CIMXML_API ElementStackEntry CreateIParamValue(struct XMLNode* node, void* parentRecord); /* IPARAMVALUE */
CIMXML_API ElementStackEntry CreateIMethodCall(struct XMLNode* node, void* parentRecord); /* IMETHODCALL */
CIMXML_API ElementStackEntry CreateDeclGroup(struct XMLNode* node, void* parentRecord); /* DECLGROUP */
CIMXML_API ElementStackEntry CreateDeclaration(struct XMLNode* node, void* parentRecord); /* DECLARATION */
CIMXML_API ElementStackEntry CreateParamValue(struct XMLNode* node, void* parentRecord); /* PARAMVALUE */
CIMXML_API ElementStackEntry CreateDeclGroupWithName(struct XMLNode* node, void* parentRecord); /* DECLGROUP.WITHNAME */
CIMXML_API ElementStackEntry CreateReturnValue(struct XMLNode* node, void* parentRecord); /* RETURNVALUE */
CIMXML_API ElementStackEntry CreateTableRow(struct XMLNode* node, void* parentRecord); /* TABLEROW */
CIMXML_API ElementStackEntry CreateTable(struct XMLNode* node, void* parentRecord); /* TABLE */
CIMXML_API ElementStackEntry CreateNamedObject(struct XMLNode* node, void* parentRecord); /* VALUE.NAMEDOBJECT */
CIMXML_API ElementStackEntry CreateExpParamValue(struct XMLNode* node, void* parentRecord); /* EXPPARAMVALUE */
CIMXML_API ElementStackEntry CreateObject(struct XMLNode* node, void* parentRecord); /* VALUE.OBJECT */
CIMXML_API ElementStackEntry CreateSimpleReq(struct XMLNode* node, void* parentRecord); /* SIMPLEREQ */
CIMXML_API ElementStackEntry CreateMultiReq(struct XMLNode* node, void* parentRecord); /* MULTIREQ */
CIMXML_API ElementStackEntry CreateMultiExpReq(struct XMLNode* node, void* parentRecord); /* MULTIEXPREQ */
CIMXML_API ElementStackEntry CreateMultiExpRsp(struct XMLNode* node, void* parentRecord); /* MULTIEXPRSP */
CIMXML_API ElementStackEntry CreateSimpleExpRsp(struct XMLNode* node, void* parentRecord); /* SIMPLEEXPRSP */
CIMXML_API ElementStackEntry CreateExpMethodCall(struct XMLNode* node, void* parentRecord); /* EXPMETHODCALL */
CIMXML_API ElementStackEntry CreateMethodCall(struct XMLNode* node, void* parentRecord); /* METHODCALL */
CIMXML_API ElementStackEntry CreateObjectWithLocalPath(struct XMLNode* node, void* parentRecord); /* VALUE.OBJECTWITHLOCALPATH */
CIMXML_API ElementStackEntry CreateExpMethodResponse(struct XMLNode* node, void* parentRecord); /* EXPMETHODRESPONSE */
CIMXML_API ElementStackEntry CreateTableRowDecl(struct XMLNode* node, void* parentRecord); /* TABLEROW.DECLARATION */
CIMXML_API ElementStackEntry CreateSimpleReqAck(struct XMLNode* node, void* parentRecord); /* SIMPLEREQACK */
CIMXML_API ElementStackEntry CreateSimpleExpReq(struct XMLNode* node, void* parentRecord); /* SIMPLEEXPREQ */
CIMXML_API ElementStackEntry CreateMultiRsp(struct XMLNode* node, void* parentRecord); /* MULTIRSP */
CIMXML_API ElementStackEntry CreateClassPath(struct XMLNode* node, void* parentRecord); /* CLASSPATH */
CIMXML_API ElementStackEntry CreateLocalClassPath(struct XMLNode* node, void* parentRecord); /* LOCALCLASSPATH */
CIMXML_API ElementStackEntry CreateObjectPath(struct XMLNode* node, void* parentRecord); /* OBJECTPATH */
CIMXML_API ElementStackEntry CreateResponseDestination(struct XMLNode* node, void* parentRecord); /* RESPONSEDESTINATION */
CIMXML_API ElementStackEntry CreateDeclGroupWithPath(struct XMLNode* node, void* parentRecord); /* DECLGROUP.WITHPATH */
CIMXML_API ElementStackEntry CreateValueRefArray(struct XMLNode* node, void* parentRecord); /* VALUE.REFARRAY */
CIMXML_API ElementStackEntry CreateValueNull(struct XMLNode* node, void* parentRecord); /* not dispatched */
CIMXML_API ElementStackEntry CreateTableCellDecl(struct XMLNode* node, void* parentRecord); /* not dispatched */
CIMXML_API ElementStackEntry CreateTableCellReference(struct XMLNode* node, void* parentRecord); /* not dispatched */

CIMXML_END_DECLS

#endif
