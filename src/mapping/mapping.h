// Internal helpers of the result mapping, shared by its source files.
#pragma once

#include <cstddef>

#include "cimxml/lifecycle.h"
#include "cimxml/local.h"

namespace cimxml {
namespace mapping {

// Buffer sizes the mapping formats into: scalar values (and what the exported
// value2Chars assumes of its callers), array elements.
constexpr std::size_t kValueBuffer = 512;
constexpr std::size_t kElementBuffer = 1024;

// value2Chars with the buffer size passed along: a text longer than the
// buffer (string, reference or datetime) is cut to size - 1 bytes.
void valueText(CIMCType type, const CIMCValue* value, char* text, std::size_t size);

// getPropertyArrayData telling its two failures apart: 0, kReadFailed (a
// string element could not be read; the elements before it stay) or
// kAllocFailed.
constexpr int kReadFailed = -1;
constexpr int kAllocFailed = -2;
int arrayTexts(Value** valueList, CIMCType type, CIMCArray* array);

// The text of one scalar value, whole: characters of a string object are
// borrowed from it, other texts are held here. null() for a type value2Chars
// does not handle or a null string object.
class ScalarText {
public:
    ScalarText(CIMCType type, const CIMCValue* value);
    ~ScalarText();
    ScalarText(const ScalarText&) = delete;
    ScalarText& operator=(const ScalarText&) = delete;
    const char* get() const { return text_; }
    bool null() const { return text_ == nullptr; }

private:
    char small_[32];
    const char* text_ = nullptr;
    CIMCString* owned_ = nullptr;  // a string object made for this text
};

// Broker object helpers. Every one tolerates a NULL object.
const char* chars(const CIMCString* s);
void release(CIMCString* s);
void release(CIMCObjectPath* op);
void release(CIMCArray* a);

// Type name of any code, for parameter types: the element type for every
// array, and the names CIMC_getDataType leaves empty ("real32", "real64",
// "char16", "reference", "instance").
const char* fullTypeName(unsigned int code);

// A NamespacePath { host "localhost", "root" + the tail of nameSpace }, the
// shape every association result carries.
NamespacePath* newNamespacePath(const char* nameSpace);

// A new InstanceName (class name, key bindings) for a broker path; nullptr
// for a NULL path, or with *failed set when an allocation fails (it is left
// alone otherwise: the caller starts it false).
InstanceName* newInstanceName(const CIMCObjectPath* op, bool* failed);

// A ValueReference for a broker path: an instancePath (namespace path as
// above) when the path has a namespace, else a bare instanceName.
ValueReference* newValueReference(const CIMCObjectPath* op);

// The broker object path a reference record names, for requests: its class
// (instance name or class path), its namespace components joined with '/'
// (defaultNamespace when it carries none) and its keys. nullptr when it names
// no class or the broker refuses the path or a key. May throw bad_alloc.
CIMCObjectPath* brokerPath(const ValueReference* ref, const char* defaultNamespace, CIMCEnv* env);

// A zero-filled ClassName holding a copy of name; nullptr on failure.
ClassName* newClassName(const char* name);

}  // namespace mapping
}  // namespace cimxml
