// Library records built from parsed command-line text, and owners that free
// them with the library's Free_ functions.
#pragma once

#include <memory>
#include <string>

#include "cimxml/lifecycle.h"
#include "cimxml/records.h"
#include "syntax.h"

namespace cimcli {

template <typename T, int (*Free)(T*)>
struct Freer {
    void operator()(T* p) const { Free(p); }
};
template <typename T, int (*Free)(T*)>
using Owned = std::unique_ptr<T, Freer<T, Free>>;

using ClassNamePtr = Owned<ClassName, Free_ClassName>;
using InstanceNamePtr = Owned<InstanceName, Free_InstanceName>;
using InstancePtr = Owned<Instance, Free_Instance>;
using ParamValuePtr = Owned<ParamValue, Free_ParamValue>;
using ErrorPtr = Owned<Error, Free_Error>;

// A heap copy the Free_ functions can release; throws std::bad_alloc.
char* dupText(const std::string& text);
ClassName* newClassName(const std::string& name);
// The path's class and keys; values as requestText makes them.
InstanceName* newInstanceName(const Path& path);
ValueReference* newValueReference(const Path& path);

// Appends a property of the given type and value to an instance.
void addProperty(Instance* instance, const std::string& name, const Type& type, const cimcli::Value& value);
// Appends a method parameter of the given type and value to a chain.
void addParam(ParamValue** head, const std::string& name, const Type& type, const cimcli::Value& value);

// The path of an InstanceName from a reply (unescaped by the parser).
Path pathOf(const InstanceName* name, const NamespacePath* where = nullptr);
Path pathOf(const ValueReference* ref);
Path pathOf(const ObjectPath* objectPath);

}  // namespace cimcli
