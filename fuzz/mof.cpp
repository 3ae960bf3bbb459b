// The mock repository's MOF loader on any text.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <string>

#include "cimmock/mof.h"
#include "cimmock/repository.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    // #pragma include reads the file system (/dev/zero never ends): kept out.
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    if (lower.find("include") != std::string::npos) return 0;
    cimmock::Repository repo;
    try {
        cimmock::loadMofText(repo, text);
    } catch (const cimmock::MofError&) {
    }
    return 0;
}
