// The mock object manager's request handling: any CIM-XML body against the
// sample repository, which is put back after each request that could have
// changed it (a copy costs a hundred requests).
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <string>

#include "cimmock/mof.h"
#include "cimmock/repository.h"
#include "cimmock/server.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static cimmock::Server* server = [] {
        cimmock::ServerOptions options;
        options.mofFiles = cimmock::sampleMofFiles();
        auto* s = new cimmock::Server(options);
        cimmock::Repository repo;
        for (const auto& f : options.mofFiles) cimmock::loadMofFile(repo, f);
        s->repository() = repo;
        return s;
    }();
    static const cimmock::Repository pristine = server->repository();
    std::string body(reinterpret_cast<const char*>(data), size);
    int status = 0;
    server->handleCimXml(body, &status);
    if (status != 200 && status != 400) __builtin_trap();
    std::transform(body.begin(), body.end(), body.begin(), [](unsigned char c) { return std::tolower(c); });
    for (const char* writes : {"create", "modify", "delete", "setproperty", "setqualifier", "methodcall"})
        if (body.find(writes) != std::string::npos) {
            server->repository() = pristine;
            break;
        }
    return 0;
}
