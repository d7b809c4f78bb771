#include "logfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

char* quote_string(const char* s) {
    if (!s) s = "";
    size_t n = std::strlen(s);
    char* out = static_cast<char*>(std::malloc(2 * n + 1));
    if (!out) return nullptr;
    char* p = out;
    for (; *s; ++s) {
        if (*s == '"' || *s == '\\') *p++ = '\\';
        *p++ = *s;
    }
    *p = '\0';
    return out;
}

namespace {

void append_quoted(std::string& line, const char* text) {
    char* q = quote_string(text);
    line += '"';
    line += q ? q : "(null)";
    line += '"';
    std::free(q);
}

// Arguments holding a blank, comma or asterisk are quoted; for --name=value
// only the value is.
void append_field(std::string& line, const char* arg) {
    if (std::strpbrk(arg, " ,*") == nullptr) {
        line += ' ';
        line += arg;
        return;
    }
    const char* eq = std::strchr(arg, '=');
    if (std::strncmp(arg, "--", 2) == 0 && eq) {
        line += ' ';
        line.append(arg, eq);
        line += '=';
        append_quoted(line, eq + 1);
    } else {
        line += ' ';
        append_quoted(line, arg);
    }
}

bool write_all_bytes(int fd, const std::string& s) {
    size_t done = 0;
    while (done < s.size()) {
        ssize_t n = ::write(fd, s.data() + done, s.size() - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

} // namespace

std::string log_fields(int argc, char** argv) {
    std::string line;
    for (int i = 0; i < argc; ++i) append_field(line, argv[i]);
    return line;
}

void flogfile(const char* path, int argc, char** argv) {
    const char* env_locale = std::setlocale(LC_TIME, "");
    std::string kept = env_locale ? env_locale : "C";

    int fd = -1;
    for (int attempt = 0; attempt < 11 && fd < 0; ++attempt)
        fd = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) {
        std::fputs("No logfile entry\n", stderr);
        std::setlocale(LC_TIME, kept.c_str());
        return;
    }

    char stamp[30];
    std::time_t now = std::time(nullptr);
    std::tm local{};
    if (!localtime_r(&now, &local) || std::strftime(stamp, sizeof stamp, "%x %X", &local) == 0) stamp[0] = '\0';

    // The whole line goes out in one write on a descriptor opened for
    // appending, so that runs started in parallel never interleave their lines.
    std::string line = stamp + log_fields(argc, argv) + "\n";
    write_all_bytes(fd, line);
    ::close(fd);
    std::setlocale(LC_TIME, kept.c_str());
}

void logfile(int argc, char** argv) { flogfile("logfile", argc, argv); }
