// The local broker back end: loading the broker's client library
// (libcimcClient<id>.so), handing it the trace setting, the Entering/Leaving
// log lines, and the twelve local operations. Every operation runs through
// one frame (localFrame) and supplies only its log texts, its request path,
// its broker call and its mapping.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cimxml/lifecycle.h"
#include "cimxml/local.h"
#include "local/broker_values.h"
#include "model/alloc.h"
#include "rtlog.h"

using cimxml::newRecord;
using cimxml::zalloc;
using cimxml::local::charsArg;
using cimxml::local::release;

namespace {

constexpr std::size_t kLibraryNameBuffer = 512;
constexpr std::size_t kEntryNameBuffer = 256;
constexpr std::size_t kLoadMessageBuffer = 1025;  // at most 1024 bytes are written into it
constexpr std::size_t kCategoryBuffer = 512;

// getCIMCEnv's failure message, in a buffer that belongs to the caller (the
// local operations never free it).
__attribute__((format(printf, 4, 5))) void loadMessage(int* rc, int code, char** msg, const char* format, ...) {
    char* buffer = static_cast<char*>(zalloc(kLoadMessageBuffer));
    *msg = buffer;
    *rc = code;
    if (!buffer) return;
    va_list args;
    va_start(args, format);
    std::vsnprintf(buffer, kLoadMessageBuffer - 1, format, args);
    va_end(args);
}

const char* orNull(const char* text) { return text ? text : "(null)"; }

// ---- the frame ---------------------------------------------------------------

struct Session {
    CIMCEnv* env = nullptr;
    CIMCClient* client = nullptr;
    CIMCStatus status{0, nullptr};  // filled by the operation's broker call
};

enum class Outcome {
    Success,
    Failure,       // -1 without an Error record
    BrokerFailed,  // nothing came back: an Error when the status has a message, else a plain success
};

const char* statusMessage(const CIMCStatus& status) {
    return status.msg ? static_cast<const char*>(status.msg->hdl) : nullptr;
}

// Both texts are sized from the message: with a short message the code text
// is cut to fit. Callers have always seen it this way.
void storeError(Error** errorOut, int code, const char* message) {
    if (!errorOut) return;
    Error* error = newRecord<Error>();
    if (!error) return;
    std::size_t size = std::strlen(message) + 1;
    error->code = static_cast<char*>(zalloc(size));
    if (error->code) std::snprintf(error->code, size, "%d", code);
    error->description = static_cast<char*>(zalloc(size));
    if (error->description) std::memcpy(error->description, message, size);
    *errorOut = error;
}

// load env -> connect -> Entering -> body (guards, call, mapping) -> Error
// record -> release client and env -> Leaving. `name` is the Leaving
// category; NULL for the operations that log nothing. `category` fills the
// Entering text (left empty when the operation has no class name).
template <class Category, class Body>
int localFrame(const char* name, const char* userName, const char* password, Error** errorOut,
               Category category, Body body) noexcept {
    try {
        Session s;
        int code = 0;
        char* message = nullptr;
        s.env = getCIMCEnv("SfcbLocal", 0, &code, &message);
        if (!s.env) {
            std::fprintf(stderr, " local connect failed [%s] \n", orNull(message));
            if (name) cimc_debug(0, name);
            return -1;
        }
        s.client = s.env->ft->connect(s.env, "localhost", "SfcbLocal", nullptr, userName, password, &s.status);
        if (!s.client) {
            std::puts(" failed the call to connect ");
            release(s.env);
            if (name) cimc_debug(0, name);
            return -1;
        }
        s.status = CIMCStatus{0, nullptr};
        if (name) {
            char text[kCategoryBuffer] = "";
            category(text, sizeof text);
            cimc_debug(1, text);
        }

        Outcome outcome = body(s);
        if (outcome == Outcome::BrokerFailed) {
            const char* text = statusMessage(s.status);
            if (text) storeError(errorOut, s.status.rc, text);
            outcome = text ? Outcome::Failure : Outcome::Success;
        }

        release(s.client);
        release(s.env);
        if (name) cimc_debug(0, name);
        return outcome == Outcome::Success ? 0 : -1;
    } catch (...) {
        return -1;
    }
}

// The request path: namespace and class, plus the keys of `keys` if given.
CIMCObjectPath* requestPath(Session& s, const char* nameSpace, const char* className, InstanceName* keys) {
    CIMCObjectPath* path = s.env->ft->newObjectPath(s.env, nameSpace, className, nullptr);
    if (!path) return nullptr;
    if (keys && CIMC_AddKeyValues(path, keys, s.env) < 0) {
        release(path);
        return nullptr;
    }
    return path;
}

const char* classOf(const InstanceName* name) {
    return name && name->className ? name->className->name : nullptr;
}

// One enumeration item into the list. An item that carries no object (an
// enumeration broken off by the broker keeps answering has-next) fails like
// a mapping failure instead of looping or reaching the mapping with NULL.
// Records built under this function stay unfreed when the walk fails.
template <class Step>
bool mapEnumerationItem(CIMCData& item, Step& step) {
    if ((item.state & (CIMC_nullValue | CIMC_notFound | CIMC_badValue)) || !item.value.dataPtr.ptr) return false;
    return step(item);
}

// Walks an enumeration item by item (a failed item stops it) and releases it.
template <class Step>
bool walk(CIMCEnumeration* en, Step step) {
    bool ok = true;
    while (en->ft->hasNext(en, nullptr)) {
        CIMCData item = en->ft->getNext(en, nullptr);
        if (!mapEnumerationItem(item, step)) {
            ok = false;
            break;
        }
    }
    release(en);
    return ok;
}

// Turns an enumeration into a record list in the broker's order. On a
// mapping failure the list built so far is neither freed nor stored.
template <class Node, class Step>
Outcome collect(CIMCEnumeration* en, Node** result, Step step) {
    if (!en) return Outcome::BrokerFailed;
    Node* head = nullptr;
    if (!walk(en, [&](CIMCData& item) { return step(item, &head); })) return Outcome::Failure;
    if (head && result) *result = head;
    return Outcome::Success;
}

// A step that fills one new node per item with `map` and appends it. A node
// whose mapping fails is freed; the nodes before it stay as they are.
template <class Node, class Map>
auto nodePerItem(Map map, int (*freeNode)(Node*)) {
    Node* tail = nullptr;
    return [map, freeNode, tail](CIMCData& item, Node** head) mutable {
        Node* node = newRecord<Node>();
        if (!node) return false;
        if (map(item, node) < 0) {
            freeNode(node);
            return false;
        }
        if (tail) tail->next = node;
        else *head = node;
        tail = node;
        return true;
    };
}

// One broker object into one new record; the object is released.
template <class Record, class Object, class Map>
Outcome single(Object* object, Record** result, Map map, int (*freeRecord)(Record*)) {
    if (!object) return Outcome::BrokerFailed;
    Record* record = newRecord<Record>();
    if (!record || map(record, object) < 0) {
        freeRecord(record);
        release(object);
        return Outcome::Failure;
    }
    release(object);
    if (result) *result = record;
    else freeRecord(record);
    return Outcome::Success;
}

// What every operation does around its broker call: the guard on the
// arguments it needs, the request path from namespace, class and keys, and
// the path's release once the call is made and mapped.
template <class Call>
Outcome onPath(Session& s, bool ready, const char* nameSpace, const char* className, InstanceName* keys, Call call) {
    if (!ready || !nameSpace || !className) return Outcome::Failure;
    CIMCObjectPath* path = requestPath(s, nameSpace, className, keys);
    if (!path) return Outcome::Failure;
    Outcome outcome = call(path);
    release(path);
    return outcome;
}

bool isCreationKey(const char* name) {
    static const char* const kKeys[] = {"Name", "SystemCreationClassName", "CreationClassName", "SystemName"};
    for (const char* key : kKeys)
        if (std::strcmp(name, key) == 0) return true;
    return false;
}

// A new broker instance on `path` holding the record's properties.
CIMCInstance* brokerInstance(Session& s, CIMCObjectPath* path, Instance* record) {
    CIMCInstance* instance = s.env->ft->newInstance(s.env, path, nullptr);
    if (!instance) return nullptr;
    for (Property* p = record->properties; p; p = p->next) CIMC_Handle_Modify_Properties(p, instance, s.env);
    for (PropertyArray* pa = record->propertyArrays; pa; pa = pa->next)
        CIMC_Handle_Modify_PropertieArray(pa, instance, s.env);
    return instance;
}

// The in-parameters of a method call, builder by builder in this order.
void buildArguments(ParamValue* params, const char* nameSpace, CIMCArgs* in, CIMCEnv* env) {
    for (ParamValue* p = params; p; p = p->next) {
        if (p->value && p->value->instance) CIMC_CreateCDataArgument(p, nameSpace, in, env);
        else if (p->valueArray) CIMC_CreatePropertyArrayArguments(p, nameSpace, in, env);
        if (p->name && p->paramType) {
            if (p->value && p->value->value) {
                CIMC_CreatePropertyArguments(p, in, env);
                continue;
            }
            if (!p->valueReference && !p->valueRefArray) continue;
        }
        CIMC_CreateValueRefArguments(p, nameSpace, in, env);
    }
}

// The return value and out-arguments as records. On a failed conversion the
// records built so far are kept unfreed and not handed out.
bool mapInvokeResults(CIMCData* returned, CIMCArgs* out, ParamValue** list) {
    return CIMC_Handle_Invoke_ReturnValues(returned, out, list) >= 0;
}

int classCategory(char* text, std::size_t size, const char* format, const char* className) {
    if (className) std::snprintf(text, size, format, className);
    return 0;
}

}  // namespace

extern "C" {

// ---- environment loading, trace and log lines ----------------------------------

CIMCEnv* getCIMCEnv(const char* id, unsigned int options, int* rc, char** msg) {
    int rcLocal = 0;
    char* msgLocal = nullptr;
    if (!rc) rc = &rcLocal;
    if (!msg) msg = &msgLocal;
    id = orNull(id);

    char library[kLibraryNameBuffer];
    std::snprintf(library, sizeof library, "libcimcClient%s.so", id);
    // Never unloaded: broker objects may outlive any one operation.
    void* handle = dlopen(library, RTLD_NOW);
    if (!handle) {
        loadMessage(rc, 1, msg, "Unable to load %s library %s", library, orNull(dlerror()));
        return nullptr;
    }

    char entry[kEntryNameBuffer];
    std::snprintf(entry, sizeof entry, "_Create_%s_Env", id);
    void* symbol = dlsym(handle, entry);
    if (!symbol) {
        loadMessage(rc, 2, msg, "Unable to locate entry %s in %s", entry, library);
        return nullptr;
    }

    setSFCBTrace(handle);
    *rc = 0;
    *msg = nullptr;
    CIMCEnvFactory factory = reinterpret_cast<CIMCEnvFactory>(symbol);
    CIMCEnv* env = factory(id, options, rc, msg);
    if (env) env->hdl = handle;
    return env;
}

void setSFCBTrace(void* libraryHandle) {
    const char* text = std::getenv("SFCB_TRACE");
    if (!text) return;
    // "%ld" semantics; strtol keeps an out-of-range number defined (saturated).
    long mask = 0;
    char* end = nullptr;
    long parsed = std::strtol(text, &end, 10);
    if (end != text) mask = parsed;

    void* maskVariable = dlsym(libraryHandle, "_sfcb_trace_mask");
    void* debugVariable = dlsym(libraryHandle, "_sfcb_debug");
    if (!maskVariable || !debugVariable) return;
    *static_cast<long*>(maskVariable) = mask;
    *static_cast<int*>(debugVariable) = 1;
}

int cimc_debug(int entering, const char* name) {
    // Unlocked once-flag: a second rt_log_init from a racing first call is harmless.
    static int initialised = 0;
    if (!initialised) {
        rt_log_init();
        initialised = 1;
    }
    _rt_log("src/clientapi", 103, "BINCIMCLIENT", name, 2, "[%d] ---%s", static_cast<int>(getpid()),
            entering ? "Entering" : "Leaving");
    return 0;
}

// ---- the operations ---------------------------------------------------------------

int CIMC_EnumInstances(NamedInstance** result, const char* className, const char* /*host*/,
                       const char* userName, const char* password, int deepInheritance, Error** errorOut,
                       const char* nameSpace) {
    return localFrame(
        "EnumInstances", userName, password, errorOut,
        [&](char* t, std::size_t n) { classCategory(t, n, "EnumInstances: classname: %s", className); },
        [&](Session& s) {
            return onPath(s, true, nameSpace, className, nullptr, [&](CIMCObjectPath* path) {
                CIMCFlags flags = deepInheritance == 1 ? CIMC_FLAG_DeepInheritance : 0;
                CIMCEnumeration* en = s.client->ft->enumInstances(s.client, path, flags, nullptr, &s.status);
                return collect(en, result, nodePerItem<NamedInstance>([](CIMCData& item, NamedInstance* node) {
                    return mapInstance(item.value.inst, node);
                }, Free_NamedInstance));
            });
        });
}

int CIMC_EnumInstanceNames(InstanceName** result, const char* className, const char* /*host*/,
                           const char* userName, const char* password, Error** errorOut, const char* nameSpace) {
    return localFrame(
        "EnumInstanceNames", userName, password, errorOut,
        [&](char* t, std::size_t n) { classCategory(t, n, "EnumInstanceNames: classname: %s", className); },
        [&](Session& s) {
            return onPath(s, true, nameSpace, className, nullptr, [&](CIMCObjectPath* path) {
                CIMCEnumeration* en = s.client->ft->enumInstanceNames(s.client, path, &s.status);
                return collect(en, result, [](CIMCData& item, InstanceName** head) {
                    return AddToEnumInstanceNameList(head, item.value.ref) >= 0;
                });
            });
        });
}

int CIMC_GetInstance(Instance** result, InstanceName* instanceName, const char* /*host*/, const char* userName,
                     const char* password, Error** errorOut, const char* nameSpace) {
    const char* className = classOf(instanceName);
    return localFrame(
        "GetInstance", userName, password, errorOut,
        [&](char* t, std::size_t n) { classCategory(t, n, "GetInstance: classname: %s", className); },
        [&](Session& s) {
            return onPath(s, true, nameSpace, className, instanceName, [&](CIMCObjectPath* path) {
                CIMCInstance* instance = s.client->ft->getInstance(s.client, path, 0, nullptr, &s.status);
                return single(instance, result, [](Instance* record, CIMCInstance* object) {
                    return mapGetInstance(record, object);
                }, Free_Instance);
            });
        });
}

int CIMC_GetClass(Class** result, const char* className, const char* /*host*/, const char* userName,
                  const char* password, Error** errorOut, const char* nameSpace) {
    return localFrame(
        "GetClass", userName, password, errorOut,
        [&](char* t, std::size_t n) { classCategory(t, n, "GetClass: classname: %s", className); },
        [&](Session& s) {
            return onPath(s, true, nameSpace, className, nullptr, [&](CIMCObjectPath* path) {
                CIMCClass* cls = s.client->ft->getClass(s.client, path, 0, nullptr, &s.status);
                return single(cls, result, [](Class* record, CIMCClass* object) {
                    return mapGetClass(object, record);
                }, Free_Class);
            });
        });
}

int CIMC_Associators(ObjectWithPath** result, InstanceName* objectPath, const char* assocClass,
                     const char* resultClass, const char* role, const char* resultRole, const char* /*host*/,
                     const char* userName, const char* password, Error** errorOut, const char* nameSpace) {
    const char* className = classOf(objectPath);
    return localFrame(
        "Associators", userName, password, errorOut,
        [&](char* t, std::size_t n) {
            if (className)
                std::snprintf(t, n, "Associators: classname: %s, assoc: %s, result: %s", className,
                              orNull(assocClass), orNull(resultClass));
        },
        [&](Session& s) {
            return onPath(s, true, nameSpace, className, objectPath, [&](CIMCObjectPath* path) {
                CIMCEnumeration* en = s.client->ft->associators(s.client, path, assocClass, resultClass, role,
                                                                resultRole, 0, nullptr, &s.status);
                return collect(en, result, nodePerItem<ObjectWithPath>([](CIMCData& item, ObjectWithPath* node) {
                    return mapAssociators(item.value.inst, node);
                }, Free_ObjectWithPath));
            });
        });
}

int CIMC_AssociatorNames(ObjectPath** result, InstanceName* objectPath, const char* className,
                         const char* assocClass, const char* resultClass, const char* role, const char* resultRole,
                         const char* /*host*/, const char* userName, const char* password, Error** errorOut,
                         const char* nameSpace) {
    return localFrame(
        "AssociatorNames", userName, password, errorOut,
        [&](char* t, std::size_t n) {
            if (className)
                std::snprintf(t, n, "AssociatorNames: classname: %s, assoc: %s, result: %s", className,
                              orNull(assocClass), orNull(resultClass));
        },
        [&](Session& s) {
            return onPath(s, objectPath != nullptr, nameSpace, className, objectPath, [&](CIMCObjectPath* path) {
                CIMCEnumeration* en = s.client->ft->associatorNames(s.client, path, assocClass, resultClass, role,
                                                                    resultRole, &s.status);
                return collect(en, result, nodePerItem<ObjectPath>([](CIMCData& item, ObjectPath* node) {
                    return mapAssociatorNames(item.value.ref, node);
                }, Free_ObjectPath));
            });
        });
}

int CIMC_References(ObjectWithPath** result, ObjectName* objectName, ClassName* resultClass, const char* role,
                    unsigned int includeQualifiers, unsigned int includeClassOrigin, void* /*reserved*/,
                    const char* nameSpace, const char* userName, const char* password, Error** errorOut) {
    InstanceName* objectPath = objectName ? objectName->instanceName : nullptr;
    const char* className = classOf(objectPath);
    return localFrame(
        "References", userName, password, errorOut,
        [&](char* t, std::size_t n) { classCategory(t, n, "References classname: %s", className); },
        [&](Session& s) {
            return onPath(s, true, nameSpace, className, objectPath, [&](CIMCObjectPath* path) {
                CIMCFlags flags = (includeQualifiers == 1 ? CIMC_FLAG_IncludeQualifiers : 0) |
                                  (includeClassOrigin == 1 ? CIMC_FLAG_IncludeClassOrigin : 0);
                CIMCEnumeration* en = s.client->ft->references(s.client, path, resultClass ? resultClass->name : nullptr,
                                                               role, flags, nullptr, &s.status);
                return collect(en, result, nodePerItem<ObjectWithPath>([](CIMCData& item, ObjectWithPath* node) {
                    return mapReferences(item.value.inst, node);
                }, Free_ObjectWithPath));
            });
        });
}

int CIMC_ReferenceNames(ObjectPath** result, ObjectName* objectName, ClassName* resultClass, const char* role,
                        const char* nameSpace, const char* userName, const char* password, Error** errorOut) {
    InstanceName* objectPath = objectName ? objectName->instanceName : nullptr;
    const char* className = classOf(objectPath);
    return localFrame(
        "ReferenceNames", userName, password, errorOut,
        [&](char* t, std::size_t n) { classCategory(t, n, "ReferenceNames classname: %s", className); },
        [&](Session& s) {
            return onPath(s, true, nameSpace, className, objectPath, [&](CIMCObjectPath* path) {
                CIMCEnumeration* en = s.client->ft->referenceNames(
                    s.client, path, resultClass ? resultClass->name : nullptr, role, &s.status);
                return collect(en, result, nodePerItem<ObjectPath>([](CIMCData& item, ObjectPath* node) {
                    return mapReferenceNames(item.value.ref, node);
                }, Free_ObjectPath));
            });
        });
}

int CIMC_CreateInstance(InstanceName** result, Instance* newInstance, const char* nameSpace,
                        const char* userName, const char* password, Error** errorOut) {
    const char* className = newInstance && newInstance->className ? newInstance->className->name : nullptr;
    return localFrame(
        nullptr, userName, password, errorOut, [](char*, std::size_t) {},
        [&](Session& s) {
            return onPath(s, true, nameSpace, className, nullptr, [&](CIMCObjectPath* path) {
                for (Property* p = newInstance->properties; p; p = p->next) {
                    if (!p->name || !isCreationKey(p->name) || !p->value || !p->value->value) continue;
                    path->ft->addKey(path, p->name, charsArg(p->value->value), CIMC_chars);
                }
                CIMCInstance* instance = brokerInstance(s, path, newInstance);
                if (!instance) return Outcome::Failure;
                CIMCObjectPath* created = s.client->ft->createInstance(s.client, path, instance, &s.status);
                release(instance);
                return single(created, result, [](InstanceName* record, CIMCObjectPath* object) {
                    return mapCreateinstance(object, record);
                }, Free_InstanceName);
            });
        });
}

int CIMC_ModifyInstance(NamedInstance* modifiedInstance, int flags, const char* nameSpace, const char* userName,
                        const char* password, Error** errorOut) {
    InstanceName* instanceName = modifiedInstance ? modifiedInstance->instanceName : nullptr;
    Instance* record = modifiedInstance ? modifiedInstance->instance : nullptr;
    const char* className = classOf(instanceName);
    if (!className && record && record->className) className = record->className->name;
    return localFrame(
        "ModifyInstance", userName, password, errorOut,
        [&](char* t, std::size_t n) { classCategory(t, n, "ModifyInstance: classname: %s", className); },
        [&](Session& s) {
            return onPath(s, instanceName && record, nameSpace, className, instanceName, [&](CIMCObjectPath* path) {
                CIMCInstance* instance = brokerInstance(s, path, record);
                if (!instance) return Outcome::Failure;
                s.status = s.client->ft->setInstance(s.client, path, instance, static_cast<CIMCFlags>(flags), nullptr);
                release(instance);
                return s.status.rc == 0 ? Outcome::Success : Outcome::BrokerFailed;
            });
        });
}

int CIMC_DeleteInstance(InstanceName* instanceName, const char* nameSpace, const char* userName,
                        const char* password, Error** errorOut) {
    const char* className = classOf(instanceName);
    return localFrame(
        nullptr, userName, password, errorOut, [](char*, std::size_t) {},
        [&](Session& s) {
            return onPath(s, true, nameSpace, className, instanceName, [&](CIMCObjectPath* path) {
                s.status = s.client->ft->deleteInstance(s.client, path);
                if (s.status.rc == 0) return Outcome::Success;
                // Unlike the other operations, a failure without a message is still -1.
                return statusMessage(s.status) ? Outcome::BrokerFailed : Outcome::Failure;
            });
        });
}

int CIMC_InvokeMethod(InstanceName* objectPath, const char* methodName, const char* nameSpace,
                      ParamValue* inParams, ParamValue** outParams, const char* userName, const char* password,
                      Error** errorOut) {
    if (outParams) *outParams = nullptr;
    const char* className = classOf(objectPath);
    return localFrame(
        "InvokeMethod", userName, password, errorOut,
        [&](char* t, std::size_t n) { classCategory(t, n, "InvokeMethod classname: %s", className); },
        [&](Session& s) {
            return onPath(s, methodName != nullptr, nameSpace, className, objectPath, [&](CIMCObjectPath* path) {
                CIMCArgs* in = s.env->ft->newArgs(s.env, nullptr);
                CIMCArgs* out = s.env->ft->newArgs(s.env, nullptr);
                if (!in || !out) {
                    release(in);
                    release(out);
                    return Outcome::Failure;
                }
                buildArguments(inParams, nameSpace, in, s.env);
                CIMCData returned = s.client->ft->invokeMethod(s.client, path, methodName, in, out, &s.status);
                Outcome outcome = Outcome::BrokerFailed;
                if (s.status.rc == 0) {
                    ParamValue* list = nullptr;
                    if (!mapInvokeResults(&returned, out, &list)) {
                        outcome = Outcome::Failure;
                    } else {
                        if (outParams) *outParams = list;
                        else Free_ParamValue(list);
                        outcome = Outcome::Success;
                    }
                }
                release(in);
                release(out);
                return outcome;
            });
        });
}

}  // extern "C"
