// Operations in bulk against the in-process mock: successes, CIM errors,
// refused credentials and transport failures. The library keeps nothing per
// operation (every exit of the exchange closes its socket; records a parse
// leaves unlinked are released by the next parse), so heap in use and open
// descriptors must not grow beyond allocator noise.
#include <dirent.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <thread>

#include "cimmock/mof.h"
#include "cimmock/server.h"
#include "cimxml/client.h"
#include "cimxml/lifecycle.h"

#if defined(__SANITIZE_ADDRESS__)
// Declared here: gcc ships the function but not clang's header for it.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes(void);
// Sanitizer builds are several times slower; fewer rounds, same per-operation check.
constexpr int kOperations = 2000;
std::size_t heapInUse() { return __sanitizer_get_current_allocated_bytes(); }
#else
constexpr int kOperations = 10000;
std::size_t heapInUse() { return mallinfo2().uordblks + mallinfo2().hblkhd; }
#endif

namespace {

int openDescriptors() {
    int n = 0;
    if (DIR* d = opendir("/proc/self/fd")) {
        while (readdir(d)) ++n;
        closedir(d);
    }
    return n;
}

TEST(Resources, BulkOperationsKeepNeitherHeapNorDescriptors) {
    cimmock::ServerOptions options;
    options.mofFiles = cimmock::sampleMofFiles();
    options.user = "u";
    options.password = "p";
    cimmock::Server server(options);
    ASSERT_TRUE(server.start());
    ClientHandle* good = client_Configuration("127.0.0.1", server.port(), "root/cimv2", 1000, "u", "p");
    ClientHandle* refused = client_Configuration("127.0.0.1", server.port(), "root/cimv2", 1000, "u", "wrong");
    ClientHandle* closed = client_Configuration("127.0.0.1", 1, "root/cimv2", 1000, "u", "p");
    ASSERT_TRUE(good && refused && closed);
    good->interfaceType = refused->interfaceType = closed->interfaceType = 0;
    ClassName present{const_cast<char*>("CIM_ManagedElement"), nullptr};
    ClassName missing{const_cast<char*>("CIM_NoSuchClass"), nullptr};

    int outcomes[4] = {};
    auto round = [&](int i) {
        Error* error = nullptr;
        ClientHandle* h = i % 4 == 2 ? refused : i % 4 == 3 ? closed : good;
        ClassName* name = i % 4 == 1 ? &missing : &present;
        Class* cls = CIMC_XML_GetClass(h, name, 0, 1, 1, nullptr, &error);
        outcomes[cls ? 0 : !error ? 3 : error->code && error->code[0] == '4' ? 2 : 1]++;
        Free_Class(cls);
        Free_Error(error);
    };
    for (int i = 0; i < 200; ++i) round(i);  // caches, the mock's buffers, lazy initialisation
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const std::size_t heapBefore = heapInUse();
    const int fdsBefore = openDescriptors();
    for (int i = 0; i < kOperations; ++i) round(i);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // the mock finishes its last connection
    const std::size_t heapAfter = heapInUse();
    const int fdsAfter = openDescriptors();

    EXPECT_EQ(outcomes[0], outcomes[1]);  // one of each per four rounds
    EXPECT_EQ(outcomes[1], outcomes[2]);
    EXPECT_EQ(outcomes[2], outcomes[3]);
    EXPECT_EQ(fdsAfter, fdsBefore);
    const double perOperation = (static_cast<double>(heapAfter) - static_cast<double>(heapBefore)) / kOperations;
    std::printf("%d operations: heap %+.2f bytes and %+d descriptors per operation\n", kOperations, perOperation,
                fdsAfter - fdsBefore);
    EXPECT_LT(perOperation, 8.0);  // allocator noise only; one kept record would be ~100 bytes
    Free_client_Configuration(good);
    Free_client_Configuration(refused);
    Free_client_Configuration(closed);
}

}  // namespace
