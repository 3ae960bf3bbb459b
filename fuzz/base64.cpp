// Decode64 into buffers of every size, and Encode64 of what came out.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "cimxml/client.h"
#include "input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    cimfuzz::Input in(data, size);
    const int outputSize = 1 + in.u16() % 4096;
    std::string text = in.rest();
    std::vector<char> output(static_cast<std::size_t>(outputSize));
    if (Decode64(output.data(), text.c_str(), outputSize) == 0 && strnlen(output.data(), output.size()) == output.size())
        __builtin_trap();  // a success must leave a terminated text
    std::vector<char> encoded(static_cast<std::size_t>(outputSize));
    Encode64(encoded.data(), text.c_str(), outputSize);
    if (strnlen(encoded.data(), encoded.size()) == encoded.size()) __builtin_trap();
    return 0;
}
