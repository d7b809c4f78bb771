// Reading a vx24 recording from its file. A regular file is measured once
// and decoded in pieces as it is read, so that no buffer of the file's size
// is ever filled; anything else (a pipe, a device) is read whole first.
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "vxfil/huge_pages.h"
#include "vxfil/vxfil24.h"

namespace VxFil {

namespace {

struct file_closer {
    void operator()(std::FILE *f) const { std::fclose(f); }
};

// The bytes of a whole file. The buffer is allocated without being
// zero-filled first: every byte that counts is overwritten by the read.
struct file_bytes {
    std::unique_ptr<unsigned char[]> data;
    size_t size = 0;
};

// The whole file in one read; falls back to reading in pieces when the size
// cannot be taken in advance (a pipe, say).
file_bytes read_whole_file(std::FILE *f) {
    file_bytes bytes;
    if (std::fseek(f, 0, SEEK_END) == 0) {
        long end = std::ftell(f);
        if (end > 0 && std::fseek(f, 0, SEEK_SET) == 0) {
            const auto n = static_cast<size_t>(end);
            bytes.data.reset(new unsigned char[n]);
            advise_huge_pages(bytes.data.get(), n);
            // A file that grew while being read is taken as it was measured.
            bytes.size = std::fread(bytes.data.get(), 1, n, f);
            return bytes;
        }
    }
    std::rewind(f);
    std::vector<unsigned char> all;
    unsigned char piece[65536];
    size_t got;
    while ((got = std::fread(piece, 1, sizeof piece, f)) > 0)
        all.insert(all.end(), piece, piece + got);
    bytes.data.reset(new unsigned char[all.size()]);
    if (!all.empty()) std::memcpy(bytes.data.get(), all.data(), all.size());
    bytes.size = all.size();
    return bytes;
}

} // namespace

VXFIL24::VXFIL24(const char *filename) : Vxfil_Base(filename) {
    std::unique_ptr<std::FILE, file_closer> f(std::fopen(filename, "rb"));
    if (!f) throw std::runtime_error(std::string("Couldn't open ") + filename + "\n");
    struct stat sb {};
    if (::fstat(::fileno(f.get()), &sb) == 0 && S_ISREG(sb.st_mode) && sb.st_size > 0) {
        // A file that grows while being read is taken as it was measured; one
        // that shrinks, as the bytes it had (fread fills less only at the end
        // of the file or on an error).
        read_pieces(static_cast<uint64_t>(sb.st_size),
                    [&f](unsigned char *buffer, size_t n) { return std::fread(buffer, 1, n, f.get()); },
                    vx24_piece_bytes);
        return;
    }
    file_bytes bytes = read_whole_file(f.get());
    parse(bytes.data.get(), bytes.size);
}

} // namespace VxFil
