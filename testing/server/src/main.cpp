// mock-cimom: the mock CIM object manager as a program.
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "cimmock/server.h"

namespace {

const char* kUsage =
    "usage: mock-cimom [options]\n"
    "Serves a CIM repository (MOF) as a CIM-XML object manager on 127.0.0.1.\n"
    "\n"
    "  --port N               port to listen on (default 5988; 0 = a free port)\n"
    "  --port-file PATH       write the bound port number to PATH\n"
    "  --mof FILE             load a MOF file (repeatable)\n"
    "  --repo DIR             load every *.mof file of DIR (sorted by name)\n"
    "  --sample               load the sample repository (the default when\n"
    "                         neither --mof nor --repo is given)\n"
    "  --empty                start with an empty repository\n"
    "  --user U --password P  require Basic authentication with U:P\n"
    "  --layout L             reply layout: compact | lines | indented\n"
    "  --reference-names-as-instance-names\n"
    "                         answer ReferenceNames with INSTANCENAME elements\n"
    "  --strict               turn away what DSP0200/DSP0201 do not allow\n"
    "                         (400/411/501 with a CIMError header)\n"
    "  --tls CERT KEY         serve HTTPS with these PEM files\n"
    "  --verbose              log one line per request to stderr\n"
    "Fault injection (applies to every reply):\n"
    "  --split N              write each reply in N TCP segments\n"
    "  --split-delay MS       delay between segments\n"
    "  --content-length-delta D  announce Content-Length = real + D\n"
    "  --omit-content-length  leave out the Content-Length header\n"
    "  --close-after BYTES    close the connection after BYTES of the reply\n"
    "  --garbage-body         replace the body by non-XML bytes\n"
    "  --no-xml-declaration   leave out the <?xml ...?> declaration\n"
    "  --large-reply BYTES    pad each body with whitespace up to BYTES\n"
    "  --reply-delay MS       wait MS milliseconds before each reply\n"
    "  --force-401            answer everything with 401 Unauthorized\n"
    "  --canned-reply FILE    send the bytes of FILE verbatim as every reply\n"
    "  --faulty-replies N     only the first N replies misbehave\n"
    "Legal reply shapes:\n"
    "  --split-writes         headers and body (and each chunk) in separate\n"
    "                         writes, 30 ms apart\n"
    "  --chunked              the body in chunked transfer coding, 4 chunks\n"
    "  --help                 this text\n"
    "Stops cleanly on SIGINT or SIGTERM.\n";

long number(const char* opt, const char* v) {
  char* end = nullptr;
  long n = std::strtol(v, &end, 10);
  if (!*v || *end) {
    std::cerr << "mock-cimom: " << opt << " needs a number, got '" << v << "'\n";
    std::exit(2);
  }
  return n;
}

}  // namespace

int main(int argc, char** argv) {
  cimmock::ServerOptions opt;
  opt.port = 5988;
  std::string portFile;
  bool sample = false, empty = false;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    auto val = [&]() -> const char* {
      if (i + 1 >= argc) {
        std::cerr << "mock-cimom: " << a << " needs a value\n" << kUsage;
        std::exit(2);
      }
      return argv[++i];
    };
    if (a == "--help" || a == "-h") { std::cout << kUsage; return 0; }
    else if (a == "--port") opt.port = static_cast<int>(number("--port", val()));
    else if (a == "--port-file") portFile = val();
    else if (a == "--mof") opt.mofFiles.push_back(val());
    else if (a == "--repo") opt.repoDir = val();
    else if (a == "--sample") sample = true;
    else if (a == "--empty") empty = true;
    else if (a == "--user") opt.user = val();
    else if (a == "--password") opt.password = val();
    else if (a == "--layout") {
      std::string l = val();
      if (l == "compact") opt.layout = cimmock::ServerOptions::Layout::Compact;
      else if (l == "lines") opt.layout = cimmock::ServerOptions::Layout::Lines;
      else if (l == "indented") opt.layout = cimmock::ServerOptions::Layout::Indented;
      else { std::cerr << "mock-cimom: unknown layout '" << l << "'\n"; return 2; }
    } else if (a == "--reference-names-as-instance-names") opt.referenceNamesAsInstanceNames = true;
    else if (a == "--verbose") opt.verbose = true;
    else if (a == "--strict") opt.strict = true;
    else if (a == "--tls") {
      opt.tlsCertFile = val();
      opt.tlsKeyFile = val();
    } else if (a == "--split-writes") opt.faults.splitWritesMs = 30;
    else if (a == "--chunked") opt.faults.chunks = 4;
    else if (a == "--split") opt.faults.splitSegments = static_cast<int>(number("--split", val()));
    else if (a == "--split-delay") opt.faults.splitDelayMs = static_cast<int>(number("--split-delay", val()));
    else if (a == "--content-length-delta") opt.faults.contentLengthDelta = number("--content-length-delta", val());
    else if (a == "--omit-content-length") opt.faults.omitContentLength = true;
    else if (a == "--close-after") opt.faults.closeAfterBytes = number("--close-after", val());
    else if (a == "--garbage-body") opt.faults.garbageBody = true;
    else if (a == "--no-xml-declaration") opt.faults.noXmlDeclaration = true;
    else if (a == "--large-reply") opt.faults.largeReplyBytes = static_cast<size_t>(number("--large-reply", val()));
    else if (a == "--reply-delay") opt.faults.replyDelayMs = static_cast<int>(number("--reply-delay", val()));
    else if (a == "--force-401") opt.faults.force401 = true;
    else if (a == "--faulty-replies") opt.faults.faultyReplies = static_cast<int>(number("--faulty-replies", val()));
    else if (a == "--canned-reply") {
      std::ifstream in(val(), std::ios::binary);
      if (!in) { std::cerr << "mock-cimom: cannot read " << argv[i] << "\n"; return 2; }
      std::stringstream ss;
      ss << in.rdbuf();
      opt.faults.cannedReply = ss.str();
    } else {
      std::cerr << "mock-cimom: unknown option '" << a << "'\n" << kUsage;
      return 2;
    }
  }
  if (!empty && (sample || (opt.mofFiles.empty() && opt.repoDir.empty()))) {
    auto files = cimmock::sampleMofFiles();
    if (files.empty()) {
      std::cerr << "mock-cimom: no sample repository in " << cimmock::sampleRepositoryDir() << "\n";
      return 1;
    }
    opt.mofFiles.insert(opt.mofFiles.begin(), files.begin(), files.end());
  }

  // Block the stop signals in every thread; the main thread waits for them.
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  signal(SIGPIPE, SIG_IGN);

  cimmock::Server server(opt);
  std::string err;
  if (!server.start(&err)) {
    std::cerr << "mock-cimom: " << err << "\n";
    return 1;
  }
  if (!portFile.empty()) {
    std::string tmp = portFile + ".tmp";
    {
      std::ofstream out(tmp);
      out << server.port() << "\n";
    }
    if (std::rename(tmp.c_str(), portFile.c_str()) != 0) {
      std::cerr << "mock-cimom: cannot write " << portFile << "\n";
      return 1;
    }
  }
  std::cout << "mock-cimom listening on 127.0.0.1:" << server.port() << std::endl;
  int sig = 0;
  sigwait(&set, &sig);
  server.stop();
  std::cout << "mock-cimom stopped (" << (sig == SIGINT ? "SIGINT" : "SIGTERM") << ")" << std::endl;
  return 0;
}
