// The fourteen intrinsic operations: one table row each (method name and
// IPARAMVALUEs in wire order) and a thin exported function that picks its
// result out of the reply's IRETURNVALUE.
#include <cstdlib>
#include <iterator>

#include "cimxml/client.h"
#include "cimxml/lifecycle.h"
#include "model/alloc.h"
#include "xmlops/frame.h"

namespace cimxml::xmlops {
namespace {

using K = ParamKind;

constexpr ParamSpec kGetClass[] = {
    {"ClassName", K::ClassName, 0}, {"LocalOnly", K::Flag, 1},
    {"IncludeQualifiers", K::Flag, 2}, {"IncludeClassOrigin", K::Flag, 3}};
constexpr ParamSpec kEnumerateClasses[] = {
    {"ClassName", K::ClassName, 0}, {"DeepInheritance", K::Flag, 1}, {"LocalOnly", K::Flag, 2},
    {"IncludeQualifiers", K::Flag, 3}, {"IncludeClassOrigin", K::Flag, 4}};
constexpr ParamSpec kEnumerateInstances[] = {
    {"ClassName", K::ClassName, 0}, {"LocalOnly", K::Flag, 1}, {"DeepInheritance", K::Flag, 2},
    {"IncludeQualifiers", K::Flag, 3}, {"IncludeClassOrigin", K::Flag, 4}};
constexpr ParamSpec kEnumerateClassNames[] = {{"ClassName", K::ClassName, 0}, {"DeepInheritance", K::Flag, 1}};
constexpr ParamSpec kGetInstance[] = {
    {"InstanceName", K::InstanceName, 0}, {"LocalOnly", K::Flag, 1},
    {"IncludeQualifiers", K::Flag, 2}, {"IncludeClassOrigin", K::Flag, 3}};
constexpr ParamSpec kEnumerateInstanceNames[] = {{"ClassName", K::ClassName, 0}};
constexpr ParamSpec kAssociators[] = {
    {"ClassName", K::ObjectClass, 0}, {"ObjectName", K::ObjectInstance, 0}, {"AssocClass", K::ClassName, 1},
    {"ResultClass", K::ClassName, 2}, {"Role", K::Text, 3}, {"ResultRole", K::Text, 4},
    {"IncludeQualifiers", K::Flag, 5}, {"IncludeClassOrigin", K::Flag, 6}};
constexpr ParamSpec kAssociatorNames[] = {
    {"ClassName", K::ObjectClass, 0}, {"ObjectName", K::ObjectInstance, 0}, {"AssocClass", K::ClassName, 1},
    {"ResultClass", K::ClassName, 2}, {"Role", K::Text, 3}, {"ResultRole", K::Text, 4}};
// "Role" after the flags: deliberate, servers have always seen this order.
constexpr ParamSpec kReferences[] = {
    {"ClassName", K::ObjectClass, 0}, {"ObjectName", K::ObjectInstance, 0}, {"ResultClass", K::ClassName, 1},
    {"IncludeQualifiers", K::Flag, 3}, {"IncludeClassOrigin", K::Flag, 4}, {"Role", K::Text, 2}};
constexpr ParamSpec kReferenceNames[] = {
    {"ClassName", K::ObjectClass, 0}, {"ObjectName", K::ObjectInstance, 0}, {"ResultClass", K::ClassName, 1},
    {"Role", K::Text, 2}};
// DSP0200 names the association target ObjectName alone (an instance
// name, or a class name for a class-level query).
constexpr ParamSpec kStdAssociators[] = {
    {"ObjectName", K::ObjectTarget, 0}, {"AssocClass", K::ClassName, 1}, {"ResultClass", K::ClassName, 2},
    {"Role", K::Text, 3}, {"ResultRole", K::Text, 4}, {"IncludeQualifiers", K::Flag, 5},
    {"IncludeClassOrigin", K::Flag, 6}};
constexpr ParamSpec kStdAssociatorNames[] = {
    {"ObjectName", K::ObjectTarget, 0}, {"AssocClass", K::ClassName, 1}, {"ResultClass", K::ClassName, 2},
    {"Role", K::Text, 3}, {"ResultRole", K::Text, 4}};
constexpr ParamSpec kStdReferences[] = {
    {"ObjectName", K::ObjectTarget, 0}, {"ResultClass", K::ClassName, 1}, {"Role", K::Text, 2},
    {"IncludeQualifiers", K::Flag, 3}, {"IncludeClassOrigin", K::Flag, 4}};
constexpr ParamSpec kStdReferenceNames[] = {
    {"ObjectName", K::ObjectTarget, 0}, {"ResultClass", K::ClassName, 1}, {"Role", K::Text, 2}};
constexpr ParamSpec kCreateInstance[] = {{"NewInstance", K::Instance, 0}};
// The flag before the instance: deliberate, as with "Role" above.
constexpr ParamSpec kModifyInstance[] = {{"IncludeQualifiers", K::Flag, 1}, {"ModifiedInstance", K::NamedInstance, 0}};
constexpr ParamSpec kDeleteInstance[] = {{"InstanceName", K::InstanceName, 0}};
constexpr ParamSpec kExecQuery[] = {{"QueryLanguage", K::Text, 0}, {"Query", K::Text, 1}};

#define OPERATION(name, use) \
    constexpr Operation k##name##Op{#name, k##name, std::size(k##name), ReplyUse::use}
#define STANDARD_OPERATION(name) \
    constexpr Operation k##name##Op{#name, k##name, std::size(k##name), ReplyUse::ReturnValue, kStd##name, \
                                    std::size(kStd##name)}
OPERATION(GetClass, ReturnValue);
OPERATION(EnumerateClasses, ReturnValue);
OPERATION(EnumerateInstances, ReturnValue);
OPERATION(EnumerateClassNames, ReturnValue);
OPERATION(GetInstance, ReturnValue);
OPERATION(EnumerateInstanceNames, ReturnValue);
STANDARD_OPERATION(Associators);
STANDARD_OPERATION(AssociatorNames);
STANDARD_OPERATION(References);
STANDARD_OPERATION(ReferenceNames);
OPERATION(CreateInstance, ReturnValue);
OPERATION(ModifyInstance, ErrorOnly);
OPERATION(DeleteInstance, ErrorOnly);
OPERATION(ExecQuery, ReturnValue);
#undef OPERATION
#undef STANDARD_OPERATION

// Runs an operation and keeps one child of its return value. Nothing thrown
// below may reach the C caller.
template <typename T>
T* run(ClientHandle* handle, const Operation& op, const Arg* args, T* IReturnValue::*child,
       Error** errorOut) noexcept {
    try {
        return take(call(handle, op, args, errorOut), child);
    } catch (...) {
        return nullptr;
    }
}

// Operations that report only through errorOut.
void runForError(ClientHandle* handle, const Operation& op, const Arg* args, Error** errorOut) noexcept {
    try {
        Free_IReturnValue(call(handle, op, args, errorOut));  // always NULL for these
    } catch (...) {
    }
}

// The instance names of a ReferenceNames reply, wrapped in a new ObjectPath
// whose InstancePath has no namespace path.
ObjectPath* wrapInstanceNames(InstanceName* names) {
    if (!names) return nullptr;
    auto* path = newRecord<ObjectPath>();
    auto* instancePath = path ? newRecord<InstancePath>() : nullptr;
    if (!instancePath) {
        std::free(path);
        Free_InstanceName(names);
        return nullptr;
    }
    instancePath->instanceName = names;
    path->instancePath = instancePath;
    return path;
}

// Standard mode: every path of the reply, OBJECTPATHs as they stand and bare
// INSTANCENAMEs each in an ObjectPath of its own.
ObjectPath* takePaths(IReturnValue* rv) {
    if (!rv) return nullptr;
    ObjectPath* paths = rv->objectPath;
    InstanceName* names = rv->instanceName;
    rv->objectPath = nullptr;
    rv->instanceName = nullptr;
    Free_IReturnValue(rv);
    ObjectPath** tail = &paths;
    while (*tail) tail = &(*tail)->next;
    while (names) {
        InstanceName* next = names->next;
        names->next = nullptr;
        auto* path = newRecord<ObjectPath>();
        auto* instancePath = path ? newRecord<InstancePath>() : nullptr;
        if (!instancePath) {
            std::free(path);
            Free_InstanceName(names);
            Free_InstanceName(next);
            break;
        }
        instancePath->instanceName = names;
        path->instancePath = instancePath;
        *tail = path;
        tail = &path->next;
        names = next;
    }
    return paths;
}

ObjectPath* runPaths(ClientHandle* handle, const Operation& op, const Arg* args, Error** errorOut) noexcept {
    try {
        return takePaths(call(handle, op, args, errorOut));
    } catch (...) {
        return nullptr;
    }
}

}  // namespace
}  // namespace cimxml::xmlops

using namespace cimxml::xmlops;

extern "C" {

Class* CIMC_XML_GetClass(ClientHandle* handle, ClassName* className, unsigned int localOnly,
                         unsigned int includeQualifiers, unsigned int includeClassOrigin, void* /*reserved*/,
                         Error** errorOut) {
    const Arg args[] = {className, localOnly, includeQualifiers, includeClassOrigin};
    return run(handle, kGetClassOp, args, &IReturnValue::cimClass, errorOut);
}

Class* CIMC_XML_EnumerateClasses(ClientHandle* handle, ClassName* className, unsigned int deepInheritance,
                                 unsigned int localOnly, unsigned int includeQualifiers,
                                 unsigned int includeClassOrigin, Error** errorOut) {
    const Arg args[] = {className, deepInheritance, localOnly, includeQualifiers, includeClassOrigin};
    return run(handle, kEnumerateClassesOp, args, &IReturnValue::cimClass, errorOut);
}

NamedInstance* CIMC_XML_EnumerateInstances(ClientHandle* handle, ClassName* className, unsigned int localOnly,
                                           unsigned int deepInheritance, unsigned int includeQualifiers,
                                           unsigned int includeClassOrigin, Error** errorOut) {
    const Arg args[] = {className, localOnly, deepInheritance, includeQualifiers, includeClassOrigin};
    return run(handle, kEnumerateInstancesOp, args, &IReturnValue::namedInstance, errorOut);
}

ClassName* CIMC_XML_EnumerateClassNames(ClientHandle* handle, ClassName* className, unsigned int deepInheritance,
                                        Error** errorOut) {
    const Arg args[] = {className, deepInheritance};
    return run(handle, kEnumerateClassNamesOp, args, &IReturnValue::className, errorOut);
}

Instance* CIMC_XML_GetInstance(ClientHandle* handle, InstanceName* instanceName, unsigned int localOnly,
                               unsigned int includeQualifiers, unsigned int includeClassOrigin, void* /*reserved*/,
                               Error** errorOut) {
    const Arg args[] = {instanceName, localOnly, includeQualifiers, includeClassOrigin};
    return run(handle, kGetInstanceOp, args, &IReturnValue::instance, errorOut);
}

InstanceName* CIMC_XML_EnumerateInstanceNames(ClientHandle* handle, ClassName* className, Error** errorOut) {
    const Arg args[] = {className};
    return run(handle, kEnumerateInstanceNamesOp, args, &IReturnValue::instanceName, errorOut);
}

ObjectWithPath* CIMC_XML_Associators(ClientHandle* handle, ObjectName* objectName, ClassName* assocClass,
                                     ClassName* resultClass, const char* role, const char* resultRole,
                                     unsigned int includeQualifiers, unsigned int includeClassOrigin,
                                     void* /*reserved*/, Error** errorOut) {
    const Arg args[] = {objectName, assocClass, resultClass, role, resultRole, includeQualifiers,
                        includeClassOrigin};
    return run(handle, kAssociatorsOp, args, &IReturnValue::objectWithPath, errorOut);
}

ObjectPath* CIMC_XML_AssociatorNames(ClientHandle* handle, ObjectName* objectName, ClassName* assocClass,
                                     ClassName* resultClass, const char* role, const char* resultRole,
                                     Error** errorOut) {
    const Arg args[] = {objectName, assocClass, resultClass, role, resultRole};
    if (standardWire(handle)) return runPaths(handle, kAssociatorNamesOp, args, errorOut);
    return run(handle, kAssociatorNamesOp, args, &IReturnValue::objectPath, errorOut);
}

ObjectWithPath* CIMC_XML_References(ClientHandle* handle, ObjectName* objectName, ClassName* resultClass,
                                    const char* role, unsigned int includeQualifiers,
                                    unsigned int includeClassOrigin, void* /*reserved*/, Error** errorOut) {
    const Arg args[] = {objectName, resultClass, role, includeQualifiers, includeClassOrigin};
    return run(handle, kReferencesOp, args, &IReturnValue::objectWithPath, errorOut);
}

ObjectPath* CIMC_XML_ReferenceNames(ClientHandle* handle, ObjectName* objectName, ClassName* resultClass,
                                    const char* role, Error** errorOut) {
    const Arg args[] = {objectName, resultClass, role};
    if (standardWire(handle)) return runPaths(handle, kReferenceNamesOp, args, errorOut);
    // Deliberate: only bare INSTANCENAMEs count; a reply of OBJECTPATHs gives NULL.
    return wrapInstanceNames(run(handle, kReferenceNamesOp, args, &IReturnValue::instanceName, errorOut));
}

InstanceName* CIMC_XML_CreateInstance(ClientHandle* handle, Instance* newInstance, Error** errorOut) {
    const Arg args[] = {newInstance};
    return run(handle, kCreateInstanceOp, args, &IReturnValue::instanceName, errorOut);
}

NamedInstance* CIMC_XML_ModifyInstance(ClientHandle* handle, NamedInstance* modifiedInstance,
                                       unsigned int includeQualifiers, void* /*reserved*/, Error** errorOut) {
    const Arg args[] = {modifiedInstance, includeQualifiers};
    runForError(handle, kModifyInstanceOp, args, errorOut);
    return nullptr;
}

InstanceName* CIMC_XML_DeleteInstance(ClientHandle* handle, InstanceName* instanceName, Error** errorOut) {
    const Arg args[] = {instanceName};
    runForError(handle, kDeleteInstanceOp, args, errorOut);
    return nullptr;
}

ObjectWithPath* CIMC_XML_ExecQuery(ClientHandle* handle, const char* queryLanguage, const char* query,
                                   Error** errorOut) {
    const Arg args[] = {queryLanguage, query};
    return run(handle, kExecQueryOp, args, &IReturnValue::objectWithPath, errorOut);
}

}  // extern "C"
