#include "vxfil/sample_count_hint.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <memory>

namespace VxFil {

namespace {

struct file_closer {
    void operator()(std::FILE *f) const { std::fclose(f); }
};

// vx24: "vx24", the version at byte 4 and the channel count N at byte 20;
// the samples, four bytes each, interleaved by channel, start after the
// header (32, 36 or 40 bytes by version), the "chns" chunk head, N channel
// records of 32 bytes and the "data" chunk head.
constexpr std::size_t VX24_HEAD = 21;
constexpr std::size_t VX24_VALUE = 4;
constexpr std::size_t VX24_CHANNEL_RECORD = 32;
constexpr std::size_t VX24_CHUNK_HEAD = 8;

// The other formats: a binary word of two bytes per value, three channels.
constexpr std::size_t COMPACT_SAMPLE = 6;

std::size_t vx24_samples(const unsigned char *head, std::size_t size) {
    const std::size_t header = 32 + 4 * static_cast<std::size_t>(head[4]);
    const std::size_t channels = head[20];
    const std::size_t data = header + 2 * VX24_CHUNK_HEAD + VX24_CHANNEL_RECORD * channels;
    if (channels == 0 || size <= data) return 0;
    return (size - data) / (VX24_VALUE * channels) + 1;
}

} // namespace

std::size_t sample_count_hint(const char *path) {
    std::unique_ptr<std::FILE, file_closer> f(std::fopen(path, "rb"));
    if (!f) return 0;
    struct stat sb {};
    if (::fstat(::fileno(f.get()), &sb) != 0 || !S_ISREG(sb.st_mode) || sb.st_size <= 0) return 0;
    const auto size = static_cast<std::size_t>(sb.st_size);
    unsigned char head[VX24_HEAD] = {};
    if (std::fread(head, 1, sizeof head, f.get()) == sizeof head && std::memcmp(head, "vx24", 4) == 0 &&
        head[4] <= 2)
        return vx24_samples(head, size);
    return size / COMPACT_SAMPLE;
}

} // namespace VxFil
