// One call through a default-mode handle on a raw peer that plays `reply`:
// the call must leave no error, and the bytes it sent are returned.
#pragma once

#include <functional>
#include <string>
#include <utility>

#include "../transport/raw_server.h"
#include "records.h"

inline std::string callAgainst(cimtest::Reply reply, const std::function<void(ClientHandle*, Error**)>& run) {
    cimtest::RawServer server(std::move(reply));
    if (!server.start()) {
        ADD_FAILURE() << "the raw peer did not start";
        return "";
    }
    ClientHandle* handle = client_Configuration("127.0.0.1", server.port(), "root/cimv2", 5000, "user", "secret");
    handle->interfaceType = 0;
    Error* error = nullptr;
    run(handle, &error);
    EXPECT_EQ(opt::takeError(&error), "");
    Free_client_Configuration(handle);
    return server.request(0);
}
