// parseXML on any text: the DOM layer, the walk, every builder it reaches.
#include <cstdint>
#include <string>

#include "cimxml/lifecycle.h"
#include "cimxml/parser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    // The root of the last parse may be handed back again; it was freed below.
    returnAddress = nullptr;
    Free_CIM(parseXML(text.c_str()));
    return 0;
}
