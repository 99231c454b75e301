#include "crashpath.h"

#include <execinfo.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstring>

namespace {

constexpr int maxFrames = 64;
char g_path[4096] = {};

// write(2) until everything is out or it fails; errors are ignored (nothing can be done).
void put(int fd, const char *text, size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fd, text, size);
        if (written <= 0)
            return;
        text += written;
        size -= size_t(written);
    }
}

void putText(int fd, const char *text)
{
    put(fd, text, std::strlen(text));
}

void putFrames(int fd)
{
    void *frames[maxFrames];
    const int count = backtrace(frames, maxFrames);
    backtrace_symbols_fd(frames, count, fd);
}

int openCrashFile()
{
    if (g_path[0] == '\0')
        return -1;
    return ::open(g_path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
}

} // namespace

namespace CrashPath {

void set(const QString &path)
{
    const QByteArray native = path.toLocal8Bit();
    if (native.size() >= qsizetype(sizeof g_path)) {
        g_path[0] = '\0';
        return;
    }
    std::memcpy(g_path, native.constData(), size_t(native.size()) + 1);
    // backtrace() loads libgcc on first use, which allocates: do it now, not in a handler.
    void *frame[1];
    backtrace(frame, 1);
}

const char *get()
{
    return g_path;
}

void writeFromSignal(int signal)
{
    const int fd = openCrashFile();
    if (fd >= 0) {
        // "signal " + up to 8 digits + "\n", built on the stack.
        char line[24] = "signal ";
        char digits[12];
        int n = 0;
        unsigned value = signal < 0 ? 0u : unsigned(signal) % 100000000u;
        do {
            digits[n++] = char('0' + value % 10);
            value /= 10;
        } while (value != 0);
        size_t at = 7;
        while (n > 0)
            line[at++] = digits[--n];
        line[at++] = '\n';
        put(fd, line, at);
        putFrames(fd);
        ::close(fd);
    }
    struct sigaction standard = {};
    standard.sa_handler = SIG_DFL;
    sigemptyset(&standard.sa_mask);
    sigaction(signal, &standard, nullptr);
    raise(signal);
}

void writeException(const char *type, const char *what)
{
    const int fd = openCrashFile();
    if (fd < 0)
        return;
    putText(fd, "exception ");
    putText(fd, type);
    if (what != nullptr && what[0] != '\0') {
        putText(fd, ": ");
        putText(fd, what);
    }
    putText(fd, "\n");
    putFrames(fd);
    ::close(fd);
}

} // namespace CrashPath
