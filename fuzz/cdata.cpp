// ParseCDataContent: the embedded-instance text a VALUE's CDATA carries.
#include <cstdint>
#include <string>

#include "cimxml/lifecycle.h"
#include "cimxml/parser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    Instance* instance = nullptr;
    ParseCDataContent(text.c_str(), &instance);
    Free_Instance(instance);
    return 0;
}
