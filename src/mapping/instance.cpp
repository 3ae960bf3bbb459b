// Instance and class mapping: broker instances and classes become Instance,
// NamedInstance and Class records with their three property lists.
#include <cstdlib>
#include <cstring>

#include "mapping/mapping.h"
#include "model/alloc.h"

using cimxml::newRecord;
using namespace cimxml::mapping;

namespace {

// A PropertyArray append takes the value array over only when it got as far
// as linking a node; otherwise it stays ours to free.
void dropUnlinked(PropertyArray* head, ValueArray* valueArray) {
    PropertyArray* last = head;
    while (last && last->next) last = last->next;
    if (!last || last->valueArray != valueArray) Free_ValueArray(valueArray);
}

// One reference property: the referenced path's keys and namespace become a
// PropertyReference.
int addReference(PropertyReference** refs, const char* propertyName, const CIMCObjectPath* op, char* text) {
    CIMCString* cls = op->ft->getClassName ? op->ft->getClassName(op, nullptr) : nullptr;
    CIMCString* ns = op->ft->getNameSpace ? op->ft->getNameSpace(op, nullptr) : nullptr;
    const char* nsChars = chars(ns);
    int rc = -1;
    Namespace* nsChain = nullptr;
    KeyBinding* keys = nullptr;
    do {
        if (ns) {
            if (!(nsChain = newRecord<Namespace>())) break;
            if (nsChars && !(nsChain->name = cimxml::dupString(nsChars))) break;
        }
        CIMCCount count = op->ft->getKeyCount ? op->ft->getKeyCount(op, nullptr) : 0;
        bool failed = false;
        for (CIMCCount i = 0; i < count && !failed; ++i) {
            CIMCString* keyName = nullptr;
            CIMCData key = op->ft->getKeyAt(op, i, &keyName, nullptr);
            text[0] = '\0';
            value2Chars(key.type, &key.value, text);
            failed = AddToKeyBindingList(&keys, chars(keyName), text, CIMC_getDataType(key.type), nullptr, nsChars,
                                         nullptr) != 0;
            release(keyName);
        }
        if (failed) break;

        // A failed append leaves the bindings and the namespace ours.
        if (AddToPropertyReferenceList(refs, keys, nsChain, chars(cls), propertyName) != 0) break;
        // Without a namespace the bindings are not linked anywhere.
        if (nsChain) keys = nullptr;
        nsChain = nullptr;
        rc = 0;
    } while (false);
    Free_KeyBinding(keys);
    Free_Namespace(nsChain);
    release(ns);
    release(cls);
    return rc;
}

}  // namespace

extern "C" {

int GetInstanceProperties(CIMCInstance* instance, CIMCClass* cimClass, Property** propertiesOut,
                          PropertyArray** propertyArraysOut, PropertyReference** propertyReferencesOut) {
    if (!propertiesOut || !propertyArraysOut || !propertyReferencesOut) return -1;
    Property* properties = nullptr;
    PropertyArray* arrays = nullptr;
    PropertyReference* references = nullptr;
    // value2Chars leaves the buffer alone for a type it does not handle
    // (char16, an embedded instance), so each value starts from an empty text
    // rather than the previous property's.
    char text[kValueBuffer] = "";

    CIMCCount count = 0;
    if (cimClass && cimClass->ft) count = cimClass->ft->getPropertyCount(cimClass, nullptr);
    else if (!cimClass && instance && instance->ft) count = instance->ft->getPropertyCount(instance, nullptr);

    int rc = 0;
    for (CIMCCount i = 0; i < count && rc == 0; ++i) {
        CIMCString* nameObject = nullptr;
        CIMCData item = cimClass ? cimClass->ft->getPropertyAt(cimClass, i, &nameObject, nullptr)
                                 : instance->ft->getPropertyAt(instance, i, &nameObject, nullptr);
        const char* name = chars(nameObject);
        CIMCType type = item.type;
        if (type & CIMC_ARRAY) {
            // The state is not looked at: a null array gives an empty list.
            ValueArray* valueArray = newRecord<ValueArray>();
            if (!valueArray) {
                rc = -1;
            } else {
                if (item.value.array) {
                    // A failed element read keeps the elements before it.
                    if (arrayTexts(&valueArray->value, type, item.value.array) == kAllocFailed) rc = -1;
                    release(item.value.array);
                }
                if (AddToPropertyArrayList(&arrays, name, valueArray, CIMC_getDataType(type)) != 0) {
                    dropUnlinked(arrays, valueArray);
                    rc = -1;
                }
            }
        } else if (type == CIMC_ref) {
            // The path stays the item's; only the texts fetched from it go back.
            if (item.value.ref && addReference(&references, name, item.value.ref, text) != 0) rc = -1;
        } else if (item.state == 0) {
            // Deliberately no Property at all for a null scalar.
            text[0] = '\0';
            value2Chars(type, &item.value, text);
            if (AddToProeprtyList(&properties, name, text, CIMC_getDataType(type)) != 0) rc = -1;
        }
        release(nameObject);
    }
    *propertiesOut = properties;
    *propertyArraysOut = arrays;
    *propertyReferencesOut = references;
    return rc;
}

int mapGetInstance(Instance* instanceRecord, CIMCInstance* instance) {
    if (!instanceRecord || !instance || !instance->ft) return -1;
    CIMCObjectPath* op = instance->ft->getObjectPath ? instance->ft->getObjectPath(instance, nullptr) : nullptr;
    CIMCString* cls = op && op->ft->getClassName ? op->ft->getClassName(op, nullptr) : nullptr;
    int rc = 0;
    if (const char* name = chars(cls)) {
        if (!(instanceRecord->className = newClassName(name))) rc = -1;
    }
    if (rc == 0)
        rc = GetInstanceProperties(instance, nullptr, &instanceRecord->properties, &instanceRecord->propertyArrays,
                                   &instanceRecord->propertyReferences);
    release(cls);
    release(op);
    return rc;
}

int mapInstance(CIMCInstance* instance, NamedInstance* namedInstance) {
    if (!namedInstance || !instance || !instance->ft) return -1;
    CIMCObjectPath* op = instance->ft->getObjectPath ? instance->ft->getObjectPath(instance, nullptr) : nullptr;
    CIMCString* cls = op && op->ft->getClassName ? op->ft->getClassName(op, nullptr) : nullptr;
    const char* name = chars(cls);
    ClassName* className = nullptr;
    Property* properties = nullptr;
    PropertyArray* arrays = nullptr;
    PropertyReference* references = nullptr;
    KeyBinding* keys = nullptr;
    int rc = -1;
    do {
        if (cls) {
            if (!name || !(className = newClassName(name))) break;
        }
        if (GetInstanceProperties(instance, nullptr, &properties, &arrays, &references) != 0) break;
        Instance* fresh = nullptr;
        if (AddToInstanceList(&fresh, className, references, arrays, properties) != 0) break;
        className = nullptr;
        properties = nullptr;
        arrays = nullptr;
        references = nullptr;
        namedInstance->instance = fresh;

        if (GetKeyBindingValues(op, &keys) < 0) break;
        // The instance name gets its own copy of the class name.
        ClassName* second = nullptr;
        if (cls && !(second = newClassName(name))) break;
        InstanceName* instanceName = nullptr;
        if (AddToInstanceNameList(&instanceName, keys, second) != 0) {
            Free_ClassName(second);
            break;
        }
        namedInstance->instanceName = instanceName;
        if (instanceName->keyBindings == keys) keys = nullptr;
        rc = 0;
    } while (false);
    Free_ClassName(className);
    Free_Property(properties);
    Free_PropertyArray(arrays);
    Free_PropertyReference(references);
    Free_KeyBinding(keys);
    release(cls);
    release(op);
    return rc;
}

int mapGetClass(CIMCClass* cimClass, Class* classRecord) {
    if (!cimClass || !cimClass->ft || !classRecord) return -1;
    CIMCString* cls = cimClass->ft->getClassName ? cimClass->ft->getClassName(cimClass, nullptr) : nullptr;
    int rc = 0;
    if (const char* name = chars(cls)) {
        if (!(classRecord->name = cimxml::dupString(name))) rc = -1;
    }
    if (rc == 0)
        rc = GetInstanceProperties(nullptr, cimClass, &classRecord->properties, &classRecord->propertyArrays,
                                   &classRecord->propertyReferences);
    release(cls);
    return rc;
}

}  // extern "C"
