// The second namespace component of paths built locally: shared by the
// reference keys of AddToKeyBindingList and the local association results.
#pragma once

#include <cstring>

namespace cimxml {

// The tail of nameSpace from its first "interop", else its first "cimv2",
// else an empty name (the first component is always "root").
inline const char* namespaceTail(const char* nameSpace) {
    if (!nameSpace) return "";
    if (const char* at = std::strstr(nameSpace, "interop")) return at;
    if (const char* at = std::strstr(nameSpace, "cimv2")) return at;
    return "";
}

}  // namespace cimxml
