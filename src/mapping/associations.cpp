// Association results: each instance or path a broker association call
// returns becomes an ObjectWithPath or ObjectPath whose instancePath carries
// the host "localhost" and the two-component namespace path.
#include "mapping/mapping.h"
#include "model/alloc.h"

using cimxml::newRecord;
using namespace cimxml::mapping;

namespace {

// instancePath for a broker path; nullptr for a NULL path (nothing to name).
int fillInstancePath(const CIMCObjectPath* op, InstancePath** out) {
    if (!op || !op->ft) return 0;
    InstancePath* path = newRecord<InstancePath>();
    if (!path) return -1;
    *out = path;
    CIMCString* ns = op->ft->getNameSpace ? op->ft->getNameSpace(op, nullptr) : nullptr;
    path->namespacePath = newNamespacePath(chars(ns));
    release(ns);
    if (!path->namespacePath) return -1;
    bool failed = false;
    path->instanceName = newInstanceName(op, &failed);
    return failed ? -1 : 0;
}

}  // namespace

extern "C" {

int util_GetInstanceValues(CIMCInstance* instance, Instance* instanceRecord) {
    return mapGetInstance(instanceRecord, instance);
}

int mapAssociators(CIMCInstance* instance, ObjectWithPath* objectWithPath) {
    if (!instance || !instance->ft || !objectWithPath) return -1;
    CIMCObjectPath* op = instance->ft->getObjectPath ? instance->ft->getObjectPath(instance, nullptr) : nullptr;
    int rc = fillInstancePath(op, &objectWithPath->instancePath);
    release(op);
    if (rc != 0) return -1;
    if (!(objectWithPath->instance = newRecord<Instance>())) return -1;
    return util_GetInstanceValues(instance, objectWithPath->instance);
}

int mapReferences(CIMCInstance* instance, ObjectWithPath* objectWithPath) {
    return mapAssociators(instance, objectWithPath);
}

int AddToAssociatorList(ObjectWithPath** head, CIMCInstance* instance) {
    if (!head || !instance) return -1;
    ObjectWithPath* node = newRecord<ObjectWithPath>();
    if (!node) return -1;
    ObjectWithPath** at = head;
    while (*at) at = &(*at)->next;
    *at = node;
    return mapAssociators(instance, node);
}

int mapAssociatorNames(CIMCObjectPath* objectPath, ObjectPath* path) {
    if (!path) return -1;
    return fillInstancePath(objectPath, &path->instancePath);
}

int mapReferenceNames(CIMCObjectPath* objectPath, ObjectPath* path) {
    return mapAssociatorNames(objectPath, path);
}

}  // extern "C"
