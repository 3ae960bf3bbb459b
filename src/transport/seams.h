// Socket calls of the exchange that unit tests (which link the static
// archive) may replace to watch their arguments. The shipped library always
// uses the system's own.
#pragma once

#include <sys/socket.h>

namespace cimxml {
namespace transport {

using SetSockOptFn = int (*)(int fd, int level, int name, const void* value, socklen_t length);
extern SetSockOptFn g_setSockOpt;

}  // namespace transport
}  // namespace cimxml
