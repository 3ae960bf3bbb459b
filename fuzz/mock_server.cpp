// The mock object manager's request handling: any CIM-XML body against the
// sample repository, which is put back before each request.
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
    server->repository() = pristine;
    int status = 0;
    std::string reply = server->handleCimXml(std::string(reinterpret_cast<const char*>(data), size), &status);
    if (status != 200 && status != 400) __builtin_trap();
    return 0;
}
