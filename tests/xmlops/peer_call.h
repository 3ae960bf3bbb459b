// One call through a handle in the default (or standard) wire mode on a raw
// peer that plays `reply`: the call must leave no error, so `run` takes any it
// expects. Returns the bytes it sent, the peer's port written as PORT.
#pragma once

#include <functional>
#include <string>
#include <utility>

#include "../transport/raw_server.h"
#include "records.h"

inline std::string callAgainst(cimtest::Reply reply, const std::function<void(ClientHandle*, Error**)>& run,
                               bool standard = false) {
    cimtest::RawServer server(std::move(reply));
    if (!server.start()) {
        ADD_FAILURE() << "the raw peer did not start";
        return "";
    }
    ClientHandle* handle = client_Configuration("127.0.0.1", server.port(), "root/cimv2", 5000, "user", "secret");
    handle->interfaceType = 0;
    EXPECT_EQ(standard ? CIMC_SetWireMode(handle, CIMXML_WIRE_STANDARD, nullptr) : 0, 0);
    Error* error = nullptr;
    run(handle, &error);
    EXPECT_EQ(opt::takeError(&error), "");
    Free_client_Configuration(handle);
    std::string sent = server.request(0);
    const std::string host = "127.0.0.1:" + std::to_string(server.port());
    if (std::size_t at = sent.find(host); at != std::string::npos) sent.replace(at, host.size(), "127.0.0.1:PORT");
    return sent;
}
