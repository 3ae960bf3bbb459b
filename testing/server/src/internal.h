// Internal interfaces of the mock CIM object manager.
#pragma once

#include <string>

#include "cimmock/repository.h"
#include "cimmock/server.h"

namespace cimmock {
namespace detail {

// Lenient XML pre-pass (see lenient.cpp).
std::string normaliseXml(const std::string& text);

struct XmlConfig {
  ServerOptions::Layout layout = ServerOptions::Layout::Compact;
  bool referenceNamesAsInstanceNames = false;
  std::string host = "localhost";
};

// Handles one CIM-XML request body.  Returns the reply body.  *httpStatus
// is 200, or 400 with *cimErrorHeader set to the CIMError header value
// ("request-not-well-formed", "request-not-valid", ...).
std::string processCimXml(Repository& repo, const std::string& body, const XmlConfig& cfg, int* httpStatus,
                          std::string* cimErrorHeader);

// Parses an INSTANCE element text (as found in an embedded-instance value).
bool parseEmbeddedInstance(const std::string& text, Instance* out);

}  // namespace detail
}  // namespace cimmock
