// bench-fprintf-baseline IN.vx24 OUT: the reference point of the benchmark.
//
// Converts a vx24 recording into the default four-column file the way a
// straightforward program would: the whole file read into memory, the samples
// turned into doubles, and then one stdio call per printed value ("%-.*f" for
// the time; "%lf" into a buffer, trailing zeros trimmed, fputs for each
// sample). Its output must equal the tool's byte for byte; the benchmark
// checks that before it compares the times.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <vector>

#include "vxfil/stations.h"

namespace {

uint32_t le32(const unsigned char* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[3]) << 24;
}

uint16_t le16(const unsigned char* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }

double le_double(const unsigned char* p) {
    uint64_t bits = le32(p) | static_cast<uint64_t>(le32(p + 4)) << 32;
    double d;
    std::memcpy(&d, &bits, sizeof d);
    return d;
}

int fail(const char* what) {
    std::fprintf(stderr, "bench-fprintf-baseline: %s\n", what);
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) return fail("usage: bench-fprintf-baseline IN.vx24 OUT");
    FILE* in = std::fopen(argv[1], "rb");
    if (in == nullptr) return fail("cannot open the input");
    std::fseek(in, 0, SEEK_END);
    long size = std::ftell(in);
    std::fseek(in, 0, SEEK_SET);
    if (size < 40) return fail("input too short");
    std::vector<unsigned char> bytes(static_cast<size_t>(size));
    if (std::fread(bytes.data(), 1, bytes.size(), in) != bytes.size()) return fail("cannot read the input");
    std::fclose(in);

    const unsigned char* b = bytes.data();
    if (std::memcmp(b, "vx24", 4) != 0) return fail("not a vx24 file");
    const int version = b[4];
    const size_t header = version == 0 ? 32 : version == 1 ? 36 : 40;
    const uint8_t station = b[5];
    const uint32_t seconds = le32(b + 8);
    const uint32_t nanoseconds = le32(b + 12);
    const size_t channels = b[20];
    const double freq = le_double(b + 22);
    const int gain = channels > 0 ? le16(b + header + 8 + 6) : 0;
    const size_t data_at = header + 8 + 32 * channels + 8;
    if (channels == 0 || data_at > bytes.size()) return fail("no data");
    const size_t frames = (bytes.size() - data_at) / 4 / channels;

    std::vector<std::vector<double>> data(channels);
    std::vector<double> time(frames);
    const double t0 = seconds + nanoseconds / 1e9;
    for (size_t i = 0; i < frames; ++i) time[i] = static_cast<double>(i) / freq + t0;
    for (size_t ch = 0; ch < channels; ++ch) {
        data[ch].resize(frames);
        for (size_t i = 0; i < frames; ++i)
            data[ch][i] = static_cast<int32_t>(le32(b + data_at + 4 * (i * channels + ch)));
    }
    if (frames < 2) return fail("fewer than two samples");

    char comment[256] = {};
    int n = std::snprintf(comment, sizeof comment, "!S512Tidserier sampfrek: %f gain: %d station: %s ", freq, gain,
                          VxFil::stationid2stationname.at(static_cast<VxFil::STATIONS>(station)));
    std::time_t start = seconds;
    std::strftime(comment + n, sizeof comment - n, "date: %F time: %T", std::gmtime(&start));

    // Time decimals from the sampling step: 0.05 s gives 4.
    const double step = time[frames - 1] - time[frames - 2];
    int dec = 0;
    if (step != 0) {
        int frac = static_cast<int>(std::ceil(std::log10(1 / std::fabs(step))));
        dec = frac != 0 ? frac + 2 : 0;
    }

    FILE* out = std::fopen(argv[2], "w");
    if (out == nullptr) return fail("cannot open the output");
    std::fputs(comment, out);
    std::fputc('\n', out);
    double stm = time[0];
    const double tdiff = 1 / freq;
    double prev = time[0];
    for (size_t i = 0; i < frames; ++i) {
        std::fprintf(out, "%-.*f", dec, stm);
        for (size_t ch = 0; ch < channels; ++ch) {
            char buf[64];
            std::snprintf(buf, sizeof buf, "%lf", data[ch][i]);
            size_t len = std::strlen(buf);
            while (len > 0 && buf[len - 1] == '0') buf[--len] = '\0';
            if (len > 0 && buf[len - 1] == '.') buf[--len] = '\0';
            std::fputc(' ', out);
            std::fputs(buf, out);
        }
        std::fputc('\n', out);
        if (time[i] - prev > 0.7 * freq) std::fprintf(stderr, "gap at row %zu\n", i + 1);
        prev = time[i];
        stm += tdiff;
    }
    if (std::fclose(out) != 0) return fail("cannot write the output");
    return 0;
}
