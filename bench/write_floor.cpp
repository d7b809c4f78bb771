// bench-write-floor [--durable] SRC DEST: the fastest a converter could ever
// write its output. Reads SRC whole into memory first (not timed), then times
// only creating DEST and writing the bytes to it with write(2) in 1 MiB
// pieces, the tool's own buffer size, and closing it (no fsync). Prints the
// seconds. With --durable the bytes go into a temporary file beside DEST that
// is synced, closed and renamed to DEST, as the tool writes every output: the
// floor of a conversion whose output survives a crash.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

int fail(const char* what) {
    std::fprintf(stderr, "bench-write-floor: %s: %s\n", what, std::strerror(errno));
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    const bool durable = argc == 4 && std::strcmp(argv[1], "--durable") == 0;
    if (argc != 3 && !durable) {
        std::fprintf(stderr, "usage: bench-write-floor [--durable] SRC DEST\n");
        return 1;
    }
    const char *source = argv[argc - 2], *dest = argv[argc - 1];
    const std::string temporary = std::string(dest) + ".tmp";
    int in = ::open(source, O_RDONLY);
    if (in < 0) return fail("cannot open the source");
    struct stat sb {};
    if (::fstat(in, &sb) != 0) return fail("cannot stat the source");
    std::vector<char> bytes(static_cast<size_t>(sb.st_size));
    size_t got = 0;
    while (got < bytes.size()) {
        ssize_t r = ::read(in, bytes.data() + got, bytes.size() - got);
        if (r <= 0) return fail("cannot read the source");
        got += static_cast<size_t>(r);
    }
    ::close(in);

    constexpr size_t PIECE = size_t{1} << 20;
    const auto begin = std::chrono::steady_clock::now();
    int out = ::open(durable ? temporary.c_str() : dest, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (out < 0) return fail("cannot create the destination");
    for (size_t done = 0; done < bytes.size();) {
        size_t n = std::min(PIECE, bytes.size() - done);
        ssize_t w = ::write(out, bytes.data() + done, n);
        if (w <= 0) return fail("cannot write the destination");
        done += static_cast<size_t>(w);
    }
    if (durable && ::fsync(out) != 0) return fail("cannot sync the destination");
    if (::close(out) != 0) return fail("cannot close the destination");
    if (durable && std::rename(temporary.c_str(), dest) != 0) return fail("cannot rename the destination");
    const auto end = std::chrono::steady_clock::now();
    std::printf("%.6f\n", std::chrono::duration<double>(end - begin).count());
    return 0;
}
