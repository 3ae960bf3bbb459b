// Printing operation results: MOF-like text, JSON, or the CIM-XML that the
// library's own Gen_ writers make of the records.
#pragma once

#include <ostream>
#include <string>

#include "cimxml/records.h"

namespace cimcli {

enum class Format { Text, Json, Xml };

class Printer {
public:
    Printer(Format format, std::ostream& out) : format_(format), out_(out) {}

    void classes(Class* list);
    void classNames(ClassName* list);
    void namedInstances(NamedInstance* list);
    void instance(Instance* instance, InstanceName* path);
    void instanceNames(InstanceName* list);
    void objectsWithPath(ObjectWithPath* list);
    void objectPaths(ObjectPath* list);
    // Only the paths of objects: as objectPaths prints them.
    void paths(ObjectWithPath* list);
    // A method's results: the "ReturnValue" node first, then out-parameters.
    void methodResult(ParamValue* results);

private:
    Format format_;
    std::ostream& out_;
};

// "CIM_ERR_NOT_FOUND" for "6"; "CIM_ERR_<code>" for a code with no name.
std::string cimErrorName(const std::string& code);

}  // namespace cimcli
