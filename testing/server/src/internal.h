// Internal interfaces of the mock CIM object manager.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <pugixml.hpp>

#include "cimmock/repository.h"
#include "cimmock/server.h"

namespace cimmock {
namespace detail {

// Lenient XML pre-pass (see lenient.cpp).
std::string normaliseXml(const std::string& text);
// Length of the entity reference starting at s[i] ('&'): "&amp;", "&#60;",
// "&#x3C;" and the other predefined ones; 0 when there is none.
size_t entityLength(const std::string& s, size_t i);

// Requests are decoded by recursive descent: deeper documents are refused
// before that, as request-not-valid.
constexpr int kMaxXmlDepth = 200;
// Whether elements below n nest deeper than kMaxXmlDepth (found without
// recursion).
bool tooDeep(const pugi::xml_node& n);

struct XmlConfig {
  ServerOptions::Layout layout = ServerOptions::Layout::Compact;
  bool referenceNamesAsInstanceNames = false;
  std::string host = "localhost";
  // An embedded instance is one only when EmbeddedObject says so (no
  // guessing from the text), and one the class declares must say so.
  bool strict = false;
};

// Handles one CIM-XML request body.  Returns the reply body.  *httpStatus
// is 200, or 400 with *cimErrorHeader set to the CIMError header value
// ("request-not-well-formed", "request-not-valid", ...).
std::string processCimXml(Repository& repo, const std::string& body, const XmlConfig& cfg, int* httpStatus,
                          std::string* cimErrorHeader);

// Parses an INSTANCE element text (as found in an embedded-instance value).
bool parseEmbeddedInstance(const std::string& text, Instance* out);

// One HTTP request as read from the connection.
struct HttpRequest {
  std::string raw;          // header block and body as received
  std::string requestLine;  // without its line end
  std::string method, target, version;
  std::vector<std::pair<std::string, std::string>> headers;  // lower-case names
  std::string body;
  std::string header(const char* name) const {
    for (const auto& h : headers)
      if (h.first == name) return h.second;
    return "";
  }
  bool hasHeader(const char* name) const {
    for (const auto& h : headers)
      if (h.first == name) return true;
    return false;
  }
};

// Why a strict server turns a request away: the HTTP status and reason,
// the CIMError header value ("" for none) and a line for the body.
struct Refusal {
  int status = 0;
  std::string reason, cimError, why;
};

// The checks of --strict (strict.cpp): true when the request may be served.
bool strictAccepts(const HttpRequest& request, Refusal* refusal);

}  // namespace detail
}  // namespace cimmock
