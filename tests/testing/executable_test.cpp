// The mock-cimom program: port file, a request, clean stop on SIGTERM.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

TEST(ExecutableTest, ServesAndStopsOnSigterm) {
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
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(static_cast<uint16_t>(port));
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
  std::string req = "POST  /cimom HTTP/1.1 \r\nContent-Length: 0\r\nAuthorization: Basic dTp4\r\n\n";  // u:x
  ::send(fd, req.data(), req.size(), MSG_NOSIGNAL);
  char buf[256] = {0};
  timeval tv{5, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
  ssize_t n = ::recv(fd, buf, sizeof buf - 1, 0);
  ::close(fd);
  EXPECT_GT(n, 0);
  EXPECT_EQ(std::string(buf).rfind("HTTP/1.1 401 Unauthorized", 0), 0u);
  ::kill(pid, SIGTERM);
  int status = 0;
  ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  ::unlink(portFile.c_str());
}
