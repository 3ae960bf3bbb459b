// The `cimxml` program: its command tree and what each command does.
#pragma once

#include <ostream>

namespace cimcli {

// Exit codes (documented in tools/README.md).
enum Exit : int {
    kExitOk = 0,
    kExitCimError = 1,   // the server answered with a CIM error
    kExitUsage = 2,      // bad options, paths or values
    kExitAuth = 3,       // credentials refused (HTTP 401)
    kExitTransport = 4,  // no connection, or no readable reply
};

int run(int argc, char** argv, std::ostream& out, std::ostream& err);

}  // namespace cimcli
