#include "rtlog.h"

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>

namespace {

std::mutex g_configMutex;
std::atomic<int> g_threshold{0};
std::atomic<int> g_fd{-1};
int g_ownedFd = -1;  // the log file this library opened, else -1

void configure() {
    const char* level = std::getenv("RT_LOG_LEVEL");
    int threshold = level ? std::atoi(level) : 0;
    int fd = -1;
    int owned = -1;
    if (threshold > 0) {
        // An unset or unusable RT_LOG_FILE ("" included) leaves the log on stderr.
        if (const char* path = std::getenv("RT_LOG_FILE"))
            owned = ::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        fd = owned != -1 ? owned : STDERR_FILENO;
    }
    std::lock_guard<std::mutex> lock(g_configMutex);
    g_fd.store(fd);
    if (g_ownedFd != -1) ::close(g_ownedFd);  // a new file has a descriptor of its own
    g_ownedFd = owned;
    g_threshold.store(threshold);
}

}  // namespace

extern "C" {

void rt_log_init(void) { configure(); }

void _rt_log(const char* file, int line, const char* component, const char* category, int level,
             const char* format, ...) {
    if (level > g_threshold.load(std::memory_order_relaxed) || !format) return;
    int fd = g_fd.load();
    if (fd == -1) return;
    try {
        struct timeval tv;
        gettimeofday(&tv, nullptr);
        struct tm tmv;
        gmtime_r(&tv.tv_sec, &tmv);
        char stamp[96];
        std::snprintf(stamp, sizeof stamp, "%04d-%02d-%02dT%02d:%02d:%02d.%06ldZ", tmv.tm_year + 1900,
                      tmv.tm_mon + 1, tmv.tm_mday, tmv.tm_hour, tmv.tm_min, tmv.tm_sec,
                      static_cast<long>(tv.tv_usec));
        char head[512];
        const int headLen = std::snprintf(head, sizeof head, "%s [%ld] %s %s %s:%d: ", stamp,
                                          static_cast<long>(getpid()), component ? component : "-",
                                          category ? category : "-", file ? file : "-", line);
        std::string text(head, static_cast<std::size_t>(std::clamp(headLen, 0, static_cast<int>(sizeof head) - 1)));

        va_list ap;
        va_start(ap, format);
        va_list copy;
        va_copy(copy, ap);
        const std::size_t n = static_cast<std::size_t>(std::max(std::vsnprintf(nullptr, 0, format, copy), 0));
        va_end(copy);
        const std::size_t at = text.size();
        text.resize(at + n + 1);
        std::vsnprintf(&text[at], n + 1, format, ap);
        va_end(ap);
        text[at + n] = '\n';

        // One write per line, so that lines from several threads stay whole.
        const ssize_t written = ::write(fd, text.data(), text.size());
        (void)written;
    } catch (...) {
        // Logging must never take the caller down.
    }
}

}  // extern "C"
