// bench-mseed-baseline IN.vx24 OUT: the reference point of the miniSEED
// conversion. The least a converter of a vx24 recording to miniSEED must do,
// written straightforwardly on one core: read the file into memory, take each
// channel's 32-bit counts out of the interleaved frames, hand them to
// libmseed's Steim-2 packer (4096-byte records with blockettes 100 and 1001,
// as the tool writes them), and write the records into a temporary file that
// is synced and renamed to OUT, as every output of the tool is. Prints the
// seconds of its phases (read, pack, write, sync and rename) on one line.
#include <fcntl.h>
#include <libmseed.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "vxfil/stations.h"
#include "vxfil/vxfil24.h"

namespace {

int fail(const char *what) {
    std::fprintf(stderr, "bench-mseed-baseline: %s\n", what);
    return 1;
}

using clock_type = std::chrono::steady_clock;

double since(clock_type::time_point t) {
    return std::chrono::duration<double>(clock_type::now() - t).count();
}

void to_file(char *record, int length, void *file) {
    std::fwrite(record, 1, static_cast<std::size_t>(length), static_cast<std::FILE *>(file));
}

// The station code of channel ch as the tool names the stations of the
// family: "R", the station's initial, "A", and the channel's number from 1.
std::string station_code(const char *station, std::size_t ch) {
    const char initial =
        station[0] >= 'a' && station[0] <= 'z' ? static_cast<char>(station[0] - 'a' + 'A') : 'X';
    return std::string("R") + initial + "A" + std::to_string(ch + 1);
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 3) return fail("usage: bench-mseed-baseline IN.vx24 OUT");
    auto t = clock_type::now();
    std::FILE *in = std::fopen(argv[1], "rb");
    if (!in) return fail("cannot open the input");
    if (std::fseek(in, 0, SEEK_END) != 0) return fail("cannot seek in the input");
    const long size = std::ftell(in);
    std::rewind(in);
    if (size <= 0) return fail("empty input");
    std::unique_ptr<unsigned char[]> owned(new unsigned char[static_cast<std::size_t>(size)]);
    const std::size_t got = std::fread(owned.get(), 1, static_cast<std::size_t>(size), in);
    std::fclose(in);
    const std::span<const unsigned char> bytes(owned.get(), got);
    const VxFil::vx24_layout layout = VxFil::parse_vx24_layout(bytes.data(), bytes.size());
    const std::size_t channels = layout.channels.size(), n = layout.per_channel;
    const double read_s = since(t);

    t = clock_type::now();
    const std::string tmp = std::string(argv[2]) + ".tmp";
    std::FILE *out = std::fopen(tmp.c_str(), "wb");
    if (!out) return fail("cannot create the output");
    double pack_s = 0;
    const double rate = layout.header.common.m_sample_freq_hz;
    const char *station =
        VxFil::stationid2stationname.at(static_cast<VxFil::STATIONS>(layout.header.header.m_station));
    int sequence = 1;
    std::vector<int32_t> counts(n);
    for (std::size_t ch = 0; ch < channels; ++ch) {
        const auto p = clock_type::now();
        const unsigned char *v = bytes.data() + layout.data_offset + 4 * ch;
        for (std::size_t i = 0; i < n; ++i, v += 4 * channels) {
            uint32_t u;
            std::memcpy(&u, v, 4);
            counts[i] = static_cast<int32_t>(u);
        }
        MSRecord *msr = msr_init(nullptr);
        std::strcpy(msr->network, "XX");
        std::strcpy(msr->station, station_code(station, ch).c_str());
        std::strcpy(msr->channel, "BDF");
        msr->dataquality = 'D';
        msr->samprate = rate;
        msr->reclen = 4096;
        msr->byteorder = 1;
        msr->encoding = DE_STEIM2;
        msr->sampletype = 'i';
        msr->sequence_number = sequence;
        blkt_100_s b100{};
        b100.samprate = static_cast<float>(rate);
        blkt_1001_s b1001{};
        msr_addblockette(msr, reinterpret_cast<char *>(&b100), sizeof b100, 100, 0);
        msr_addblockette(msr, reinterpret_cast<char *>(&b1001), sizeof b1001, 1001, 0);
        msr->starttime = std::llround(layout.header.time() * 1e6);
        msr->datasamples = counts.data();
        msr->numsamples = static_cast<int64_t>(n);
        int64_t packed = 0;
        if (msr_pack(msr, to_file, out, &packed, 1, 0) < 0) return fail("libmseed could not pack");
        sequence = msr->sequence_number;
        msr->datasamples = nullptr;
        msr_free(&msr);
        pack_s += since(p);
    }
    if (std::fflush(out) != 0) return fail("cannot write the output");
    const double write_s = since(t) - pack_s;
    t = clock_type::now();
    if (::fsync(fileno(out)) != 0 || std::fclose(out) != 0) return fail("cannot sync the output");
    if (std::rename(tmp.c_str(), argv[2]) != 0) return fail("cannot rename the output");
    std::printf("read %.6f pack %.6f write %.6f sync %.6f\n", read_s, pack_s, write_s, since(t));
    return 0;
}
