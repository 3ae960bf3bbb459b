// The reply handling of CIMSendRequest and of the operations on top of it.
// connect() is replaced in this program: the socket the exchange made is
// swapped for one end of a socket pair whose other end already holds the
// fuzzer's bytes and is then shut for writing, so every reply ends with the
// peer closing. (A peer that stays silent without closing would block the
// exchange for good: it sets no receive time-out. Such inputs cannot occur.)
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "cimxml/client.h"
#include "cimxml/lifecycle.h"
#include "cimxml/parser.h"
#include "input.h"

namespace {

int g_prepared = -1;  // the client end for the next connect, or -1 to refuse

}  // namespace

extern "C" int connect(int fd, const struct sockaddr*, socklen_t) {
    if (g_prepared < 0) {
        errno = ECONNREFUSED;
        return -1;
    }
    int rc = dup2(g_prepared, fd);
    close(g_prepared);
    g_prepared = -1;
    return rc < 0 ? -1 : 0;
}

namespace {

// Writes what fits without blocking; the exchange only reads after sending,
// so a reply larger than the pair's buffer is simply cut there.
void feed(int peer, const std::string& reply) {
    fcntl(peer, F_SETFL, O_NONBLOCK);
    std::size_t off = 0;
    while (off < reply.size()) {
        ssize_t n = write(peer, reply.data() + off, reply.size() - off);
        if (n <= 0) break;
        off += static_cast<std::size_t>(n);
    }
    shutdown(peer, SHUT_WR);
}

void run(unsigned op, ClientHandle* h) {
    Error* error = nullptr;
    ClassName cn{const_cast<char*>("CIM_Fuzz"), nullptr};
    KeyBinding kb{nullptr, nullptr, const_cast<char*>("Id"), nullptr};
    InstanceName in{&kb, nullptr, nullptr, &cn, nullptr};
    ObjectName on{nullptr, &in};
    switch (op) {
        case 0: {
            char* body = nullptr;
            if (CIMSendRequest("<?xml version=\"1.0\"?><CIM/>", &body, h->host, h->port, h->userName, h->password,
                               h->timeout) == 0) {
                returnAddress = nullptr;
                Free_CIM(parseXML(body ? body : ""));
            }
            std::free(body);
            break;
        }
        case 1: Free_NamedInstance(CIMC_XML_EnumerateInstances(h, &cn, 0, 1, 0, 0, &error)); break;
        case 2: Free_Class(CIMC_XML_GetClass(h, &cn, 0, 1, 1, nullptr, &error)); break;
        case 3: Free_Instance(CIMC_XML_GetInstance(h, &in, 0, 0, 0, nullptr, &error)); break;
        case 4: Free_InstanceName(CIMC_XML_EnumerateInstanceNames(h, &cn, &error)); break;
        case 5: Free_ObjectPath(CIMC_XML_ReferenceNames(h, &on, nullptr, nullptr, &error)); break;
        case 6: Free_ObjectWithPath(CIMC_XML_Associators(h, &on, nullptr, nullptr, nullptr, nullptr, 0, 0, nullptr, &error)); break;
        case 7: Free_ObjectPath(CIMC_XML_AssociatorNames(h, &on, nullptr, nullptr, nullptr, nullptr, &error)); break;
        case 8: Free_ClassName(CIMC_XML_EnumerateClassNames(h, &cn, 1, &error)); break;
        case 9: Free_Class(CIMC_XML_EnumerateClasses(h, &cn, 1, 0, 0, 0, &error)); break;
        case 10: Free_ObjectWithPath(CIMC_XML_ExecQuery(h, "WQL", "select * from CIM_Fuzz", &error)); break;
        case 11: Free_InstanceName(CIMC_XML_DeleteInstance(h, &in, &error)); break;
        default: {
            ParamValue* out = nullptr;
            CIMC_XML_invokeMethod(h, &in, "Fuzz", nullptr, &out, &error);
            Free_ParamValue(out);
            break;
        }
    }
    Free_Error(error);
}

// One operation against `reply`; a null reply refuses the connection.
void exchange(unsigned op, ClientHandle* handle, const std::string* reply) {
    int pair[2] = {-1, -1};
    if (reply) {
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0) return;
        feed(pair[1], *reply);
        g_prepared = pair[0];
    }
    run(op, handle);
    if (g_prepared >= 0) close(g_prepared);
    g_prepared = -1;
    if (pair[1] >= 0) close(pair[1]);
}

const std::string kGoodReply =
    "HTTP/1.1 200 OK\r\nContent-Length: 239\r\n\r\n<?xml version=\"1.0\"?><CIM CIMVERSION=\"2.0\" "
    "DTDVERSION=\"2.0\"><MESSAGE ID=\"1\" PROTOCOLVERSION=\"1.0\"><SIMPLERSP><IMETHODRESPONSE NAME=\"x\">"
    "<IRETURNVALUE><INSTANCENAME CLASSNAME=\"A\"/></IRETURNVALUE></IMETHODRESPONSE></SIMPLERSP></MESSAGE></CIM>";

}  // namespace

// The first byte: the operation (low bits), a refused connection (0x80), and
// whether an operation with a good reply comes first (0x40), as in a
// program that has run operations before.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    cimfuzz::Input input(data, size);
    const std::uint8_t mode = input.byte();
    const std::string reply = input.rest();

    static ClientHandle* handle = client_Configuration("127.0.0.1", 5988, "root/cimv2", 0, "user", "pw");
    if (!handle) return 0;
    handle->interfaceType = 0;
    if (mode & 0x40) exchange((mode >> 1) % 13, handle, &kGoodReply);
    exchange(mode % 13, handle, mode & 0x80 ? nullptr : &reply);
    return 0;
}
