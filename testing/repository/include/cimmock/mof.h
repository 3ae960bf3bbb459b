// cimmock/mof.h - a MOF (DSP0221) loader for cimmock::Repository.
//
// Supported: #pragma namespace("ns") and #pragma include("file");
// qualifier declarations (type, array, default, Scope, Flavor); class
// declarations with qualifier lists, superclass, properties (every type,
// arrays, defaults), REF properties, methods with parameters and parameter
// qualifiers; `instance of Class [as $alias] { ... };` with alias
// references; comments; string escapes; every literal kind (decimal, hex,
// octal and binary integers, reals, booleans, char16, strings with
// concatenation, datetimes, arrays, NULL, object path strings for REFs).
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "cimmock/repository.h"

namespace cimmock {

// A MOF error: "file:line:column: message".
struct MofError : std::runtime_error {
  MofError(const std::string& file, int line, int column, const std::string& message);
  std::string file;
  int line;
  int column;
  std::string message;  // without the position
};

struct MofOptions {
  // Namespace used until a #pragma namespace.
  std::string defaultNamespace = "root/cimv2";
};

// Loads MOF text into the repository.  `fileName` is used in messages and
// to resolve #pragma include.  Throws MofError.
void loadMofText(Repository& repo, const std::string& text, const std::string& fileName = "<string>",
                 const MofOptions& options = MofOptions());
// Loads a MOF file.  Throws MofError (also when the file cannot be read).
void loadMofFile(Repository& repo, const std::string& path, const MofOptions& options = MofOptions());

// Path of the sample repository directory: the environment variable
// CIMMOCK_SAMPLE_DIR when set; else testing/mof of the source tree (compiled
// in at build time) when it exists; else the installed copy, found from the
// running program as ../share/cimxmlclient/mof.
std::string sampleRepositoryDir();
// The sample MOF files of that directory, in load order.
std::vector<std::string> sampleMofFiles();

}  // namespace cimmock
