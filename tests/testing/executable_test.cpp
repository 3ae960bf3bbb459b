// The mock-cimom program: its flags take effect (port file, credentials),
// and it stops cleanly on SIGTERM.
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "raw_http.h"

TEST(ExecutableTest, ServesWithItsFlagsAndStopsOnSigterm) {
  std::string portFile = ::testing::TempDir() + "/mock-cimom-port-" + std::to_string(::getpid());
  ::unlink(portFile.c_str());
  pid_t pid = ::fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    ::execl(MOCK_CIMOM_EXE, MOCK_CIMOM_EXE, "--port", "0", "--port-file", portFile.c_str(), "--user", "u", "--password",
            "p", static_cast<char*>(nullptr));
    ::_exit(127);
  }
  int port = 0;
  for (int i = 0; i < 200 && port == 0; ++i) {  // up to 10 s
    std::ifstream in(portFile);
    if (!(in >> port)) port = 0;
    if (port == 0) std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  ASSERT_GT(port, 0);
  const std::string request = "POST  /cimom HTTP/1.1 \r\nContent-Length: 0\r\nAuthorization: Basic ";
  Reply r = httpExchange(port, request + "dTp4\r\n\n");  // u:x
  EXPECT_EQ(r.raw.rfind("HTTP/1.1 401 Unauthorized\r\n", 0), 0u) << r.raw;
  EXPECT_TRUE(r.has("WWW-Authenticate: Basic realm=\"cimom\""));
  EXPECT_EQ(httpExchange(port, request + "\r\n\n").status, 401);  // no credentials
  EXPECT_EQ(httpExchange(port, request + "dTpw\r\n\n").status, 400) << "u:p passes, the empty body does not";
  ::kill(pid, SIGTERM);
  int status = 0;
  ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  ::unlink(portFile.c_str());
}
