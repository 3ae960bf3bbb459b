/*
 * Connection handle, operation entry points, CIM-XML operations over HTTP and
 * the HTTP transport.
 *
 * Ownership: every record tree an operation returns, and every Error record
 * stored through errorOut, belongs to the caller, who frees it with the
 * Free_<Record> function of its type. Records the caller passes in (class
 * names, instance names, instances, parameters) are borrowed for the call
 * and stay the caller's.
 *
 * Flags passed to operations are unsigned: 0 sends "FALSE", 1 sends "TRUE",
 * 2 or more leaves the parameter out so that the server's default applies.
 *
 * errorOut is the address of an Error*; it is written only when the server
 * answered with a CIM error (or refused the credentials: code "401",
 * description "Unauthorized User") and must always be a valid address. In
 * the standard wire mode (below) every other failure is stored there too.
 */
#ifndef CIMXML_CLIENT_H
#define CIMXML_CLIENT_H

#include <stddef.h>

#include "records.h"

CIMXML_BEGIN_DECLS

/* The connection record. The handle owns its four strings. */
typedef struct ClientHandle {
    char* host;        /* dotted IPv4 address (no name lookup), may be NULL */
    int port;          /* TCP port; the low 16 bits are used */
    char* nameSpace;   /* CIM namespace, e.g. "root/cimv2"; may be NULL */
    int timeout;       /* handed to the HTTP exchange, in milliseconds */
    char* userName;
    char* password;
    int interfaceType; /* 0 = CIM-XML over HTTP, 1 = local broker */
} ClientHandle;

/* ---- connection handle ----------------------------------------------------- */

/* Returns a new handle (free it with Free_client_Configuration), or NULL when
 * userName or password is NULL or memory runs out. The back end is chosen
 * once, here: the local broker when "/etc/Binary.txt" exists, else HTTP. */
CIMXML_API ClientHandle* client_Configuration(const char* host, int port, const char* nameSpace, int timeout,
                                              const char* userName, const char* password);
/* 0, or -1 for a NULL handle. */
CIMXML_API int Free_client_Configuration(ClientHandle* handle);
/* 1 when the marker file "/etc/Binary.txt" exists (local broker), else 0. */
CIMXML_API int get_cimc_interface(void);
/* 0 when the marker file can be opened for reading, else -1. */
CIMXML_API int checkForBinary(void);
/* Replaces the namespace with a copy of nameSpace: 0, or -1. */
CIMXML_API int CIMC_SetNamespace(ClientHandle* handle, const char* nameSpace);
/* strncpy(dst, nameSpace, len): no terminator when the namespace has len or
 * more characters. -1 for a NULL handle/dst or a handle without namespace. */
CIMXML_API int CIMC_GetNamespace(ClientHandle* handle, char* dst, size_t len);
/* Unbounded copies: dst must be large enough. -1 only for a NULL handle;
 * a NULL field leaves dst untouched and returns 0. */
CIMXML_API int CIMC_GetUserNameFromHandle(ClientHandle* handle, char* dst);
CIMXML_API int CIMC_GetPassWordFromHandle(ClientHandle* handle, char* dst);
/* The library-wide trace sink: prints nothing, returns 0. */
CIMXML_API int EmptyPrintf(const char* format, ...);

/* ---- wire mode ------------------------------------------------------------- */
/* CIMXML_WIRE_DEFAULT keeps the exact request text and framing existing
 * object managers are used to. CIMXML_WIRE_STANDARD follows DSP0200 and
 * DSP0201 (headers CIMOperation, CIMMethod, CIMObject and Host, escaped
 * well-formed XML, replies read by Content-Length or chunks) and reports
 * every failure as an Error record. A handle takes its mode and scheme when
 * it is created, from CIMXML_WIRE=standard, CIMXML_TLS=1, CIMXML_CA_FILE and
 * CIMXML_TLS_INSECURE=1 in the environment. */
#define CIMXML_WIRE_DEFAULT 0
#define CIMXML_WIRE_STANDARD 1
#define CIMXML_WIRE_FROM_ENVIRONMENT (-1)

/* Sets the wire mode and, when scheme is not NULL, the scheme ("http" or
 * "https", any case) of handle. With a NULL handle it sets them for every
 * handle created afterwards, in place of the environment;
 * CIMXML_WIRE_FROM_ENVIRONMENT (NULL handle only) gives both back to the
 * environment. Returns 0, or -1 for an unknown mode or scheme or a handle
 * not made by client_Configuration. */
CIMXML_API int CIMC_SetWireMode(ClientHandle* handle, int mode, const char* scheme);

/* Codes of the Error records a standard-mode operation stores when it gets
 * no CIM answer (besides "401" and the HTTP status of any other refused
 * request, e.g. "400" or "501" with the CIMError header in the description).
 * The description says what failed and why. */
#define CIMXML_ERROR_CONNECT "1001"  /* no connection to the object manager */
#define CIMXML_ERROR_SEND "1002"     /* the request could not be sent whole */
#define CIMXML_ERROR_TIMEOUT "1003"  /* no reply within the handle's time-out */
#define CIMXML_ERROR_CLOSED "1004"   /* the peer closed before the reply was whole */
#define CIMXML_ERROR_PROTOCOL "1005" /* not an HTTP reply, or a malformed one */
#define CIMXML_ERROR_TLS "1006"      /* TLS set-up, handshake or certificate check failed */
#define CIMXML_ERROR_REPLY "1007"    /* the body is not a CIM-XML reply */
#define CIMXML_ERROR_MEMORY "1008"   /* out of memory */

/* ---- operation entry points ---------------------------------------------- */
/* Each dispatches on handle->interfaceType. A NULL handle yields NULL (-1 for
 * invokeMethod). `reserved` arguments are accepted and ignored. */

/* Always over HTTP, whatever the back end. */
CIMXML_API Class* CIM_GetClass(ClientHandle* handle, ClassName* className, unsigned int localOnly,
                               unsigned int includeQualifiers, unsigned int includeClassOrigin, void* reserved,
                               Error** errorOut);
/* HTTP only (NULL on the local broker). */
CIMXML_API Class* CIM_EnumerateClasses(ClientHandle* handle, ClassName* className, unsigned int deepInheritance,
                                       unsigned int localOnly, unsigned int includeQualifiers,
                                       unsigned int includeClassOrigin, Error** errorOut);
CIMXML_API NamedInstance* EnumerateInstances(ClientHandle* handle, ClassName* className, unsigned int localOnly,
                                             unsigned int deepInheritance, unsigned int includeQualifiers,
                                             unsigned int includeClassOrigin, void* reserved, Error** errorOut);
/* HTTP only (NULL on the local broker). */
CIMXML_API ClassName* EnumerateClassNames(ClientHandle* handle, ClassName* className, unsigned int deepInheritance,
                                          Error** errorOut);
CIMXML_API Instance* GetInstance(ClientHandle* handle, InstanceName* instanceName, unsigned int localOnly,
                                 unsigned int includeQualifiers, unsigned int includeClassOrigin, void* reserved,
                                 Error** errorOut);
CIMXML_API InstanceName* EnumerateInstanceNames(ClientHandle* handle, ClassName* className, Error** errorOut);
CIMXML_API ObjectWithPath* Associators(ClientHandle* handle, ObjectName* objectName, ClassName* assocClass,
                                       ClassName* resultClass, const char* role, const char* resultRole,
                                       unsigned int includeQualifiers, unsigned int includeClassOrigin,
                                       void* reserved, Error** errorOut);
CIMXML_API ObjectPath* AssociatorNames(ClientHandle* handle, ObjectName* objectName, ClassName* assocClass,
                                       ClassName* resultClass, const char* role, const char* resultRole,
                                       Error** errorOut);
CIMXML_API ObjectWithPath* References(ClientHandle* handle, ObjectName* objectName, ClassName* resultClass,
                                      const char* role, unsigned int includeQualifiers,
                                      unsigned int includeClassOrigin, void* reserved, Error** errorOut);
CIMXML_API ObjectPath* ReferenceNames(ClientHandle* handle, ObjectName* objectName, ClassName* resultClass,
                                      const char* role, Error** errorOut);
CIMXML_API InstanceName* CIM_CreateInstance(ClientHandle* handle, Instance* newInstance, Error** errorOut);
/* Success is reported by *errorOut staying untouched. The returned pointer
 * carries no meaning over HTTP (NULL); on the local broker it is the local
 * result code cast through intptr_t. */
CIMXML_API NamedInstance* ModifyInstance(ClientHandle* handle, NamedInstance* modifiedInstance,
                                         unsigned int includeQualifiers, void* reserved, Error** errorOut);
CIMXML_API InstanceName* DeleteInstance(ClientHandle* handle, InstanceName* instanceName, Error** errorOut);
/* Extrinsic method call. objectPath names the target: with key bindings an
 * instance, without them the class. Results as CIMC_XML_invokeMethod; the
 * local broker hands them back the same way. */
CIMXML_API int invokeMethod(ClientHandle* handle, InstanceName* objectPath, const char* methodName,
                            ParamValue* inParams, ParamValue** outParams, Error** errorOut);
/* HTTP only (NULL on the local broker). */
CIMXML_API ObjectWithPath* ExecQuery(ClientHandle* handle, const char* queryLanguage, const char* query,
                                     Error** errorOut);

/* ---- CIM-XML operations over HTTP ------------------------------------------ */

CIMXML_API Class* CIMC_XML_GetClass(ClientHandle* handle, ClassName* className, unsigned int localOnly,
                                    unsigned int includeQualifiers, unsigned int includeClassOrigin,
                                    void* reserved, Error** errorOut);
CIMXML_API Class* CIMC_XML_EnumerateClasses(ClientHandle* handle, ClassName* className,
                                            unsigned int deepInheritance, unsigned int localOnly,
                                            unsigned int includeQualifiers, unsigned int includeClassOrigin,
                                            Error** errorOut);
CIMXML_API NamedInstance* CIMC_XML_EnumerateInstances(ClientHandle* handle, ClassName* className,
                                                      unsigned int localOnly, unsigned int deepInheritance,
                                                      unsigned int includeQualifiers,
                                                      unsigned int includeClassOrigin, Error** errorOut);
CIMXML_API ClassName* CIMC_XML_EnumerateClassNames(ClientHandle* handle, ClassName* className,
                                                   unsigned int deepInheritance, Error** errorOut);
CIMXML_API Instance* CIMC_XML_GetInstance(ClientHandle* handle, InstanceName* instanceName, unsigned int localOnly,
                                          unsigned int includeQualifiers, unsigned int includeClassOrigin,
                                          void* reserved, Error** errorOut);
CIMXML_API InstanceName* CIMC_XML_EnumerateInstanceNames(ClientHandle* handle, ClassName* className,
                                                         Error** errorOut);
CIMXML_API ObjectWithPath* CIMC_XML_Associators(ClientHandle* handle, ObjectName* objectName,
                                                ClassName* assocClass, ClassName* resultClass, const char* role,
                                                const char* resultRole, unsigned int includeQualifiers,
                                                unsigned int includeClassOrigin, void* reserved, Error** errorOut);
CIMXML_API ObjectPath* CIMC_XML_AssociatorNames(ClientHandle* handle, ObjectName* objectName, ClassName* assocClass,
                                                ClassName* resultClass, const char* role, const char* resultRole,
                                                Error** errorOut);
CIMXML_API ObjectWithPath* CIMC_XML_References(ClientHandle* handle, ObjectName* objectName,
                                               ClassName* resultClass, const char* role,
                                               unsigned int includeQualifiers, unsigned int includeClassOrigin,
                                               void* reserved, Error** errorOut);
/* Returns a new ObjectPath whose InstancePath carries the reply's instance
 * name list. */
CIMXML_API ObjectPath* CIMC_XML_ReferenceNames(ClientHandle* handle, ObjectName* objectName,
                                               ClassName* resultClass, const char* role, Error** errorOut);
CIMXML_API InstanceName* CIMC_XML_CreateInstance(ClientHandle* handle, Instance* newInstance, Error** errorOut);
/* Returns NULL: only errorOut reports. */
CIMXML_API NamedInstance* CIMC_XML_ModifyInstance(ClientHandle* handle, NamedInstance* modifiedInstance,
                                                  unsigned int includeQualifiers, void* reserved,
                                                  Error** errorOut);
/* Returns NULL: only errorOut reports. */
CIMXML_API InstanceName* CIMC_XML_DeleteInstance(ClientHandle* handle, InstanceName* instanceName,
                                                 Error** errorOut);
CIMXML_API ObjectWithPath* CIMC_XML_ExecQuery(ClientHandle* handle, const char* queryLanguage, const char* query,
                                              Error** errorOut);
/* Calls methodName on objectPath (only its first node is used): with key
 * bindings a METHODCALL on that instance, without them on its class, in the
 * handle's namespace. inParams is written as PARAMVALUEs and stays the
 * caller's.
 *
 * Returns 0 when the server answered with a method response, -1 otherwise
 * (NULL handle, objectPath or methodName; transport failure; unreadable
 * reply; CIM error or refused credentials, stored through errorOut as for
 * the intrinsic operations).
 *
 * *outParams (when outParams is not NULL) is set to NULL first; on success
 * it receives one chain that the caller frees with Free_ParamValue:
 *   - first, when the reply has a RETURNVALUE, a node named "ReturnValue"
 *     whose paramType is its PARAMTYPE and whose value (or valueReference)
 *     is the method's return value;
 *   - then the output parameters in reply order, as PARAMVALUEs.
 * A method with no return value and no output parameters leaves it NULL. */
CIMXML_API int CIMC_XML_invokeMethod(ClientHandle* handle, InstanceName* objectPath, const char* methodName,
                                     ParamValue* inParams, ParamValue** outParams, Error** errorOut);

/* ---- HTTP transport ------------------------------------------------------------ */

/* Appends the request header block to buffer (zero-filled by the caller),
 * never past bufferSize - 1 characters. Returns strlen(buffer). */
CIMXML_API int CIMC_CreateStdHttpHeaders(const char* host, int contentLength, char* buffer, unsigned int bufferSize,
                                         const char* userName, const char* password);
/* Base64 of the NUL-terminated input; alphabet characters stop at
 * output + outputSize. */
CIMXML_API void Encode64(char* output, const char* input, int outputSize);
/* 0, or -1 with "String too big" in output when the result would not fit. */
CIMXML_API int Decode64(char* output, const char* input, int outputSize);
/* A connected IPv4 stream socket, or -1. */
CIMXML_API int CIMC_TcpConnect(const char* host, int port);
/* Sends one request and collects the reply body into *responseOut (the caller
 * frees it). Returns 0, 401 ("401 Unauthorized"), or -1. Always the default
 * wire mode over plain TCP; the operations follow their handle's settings. */
CIMXML_API int CIMSendRequest(const char* requestText, char** responseOut, const char* host, int port,
                              const char* userName, const char* password, int timeout);

CIMXML_END_DECLS

#endif
