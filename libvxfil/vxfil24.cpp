// Reader of the vx24 container.
//
// File layout (all numbers little-endian, no padding anywhere):
//   0   "vx24", version (0, 1, 2), station byte, stored header length (u16)
//   8   seconds (u32), nanoseconds (u32), channel bitmap (u32), channel count N (u8),
//       unused (u8), sample rate (double, unaligned), bits and bytes per sample (u8 each)
//   32  version part: nothing (v0), host timestamp (v1), host timestamp and device id (v2)
//   H   "chns", length (u32, not checked), then N channel records of 32 bytes:
//       "chan", channel number (u16), gain (u16), v_min, v_max, ext_gain (doubles)
//   D   "data", unused (u32), then signed 32-bit samples interleaved by channel
//       up to the end of the file.
// H is 32, 36 or 40 by version; D = H + 8 + 32 N.
#include "vxfil/vxfil24.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "le_bytes.h"
#include "vxfil/fatal.h"
#include "vxfil/huge_pages.h"

namespace VxFil {

namespace {

constexpr size_t common_end = 32;   // end of the version-independent header
constexpr size_t chunk_head = 8;    // magic and one 32-bit word
constexpr size_t channel_size = 32; // one channel record
constexpr size_t value_size = 4;    // every sample takes 4 bytes

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
file_bytes read_whole_file(const char *filename) {
    std::unique_ptr<std::FILE, file_closer> f(std::fopen(filename, "rb"));
    if (!f) throw std::runtime_error(std::string("Couldn't open ") + filename + "\n");
    file_bytes bytes;
    if (std::fseek(f.get(), 0, SEEK_END) == 0) {
        long end = std::ftell(f.get());
        if (end > 0 && std::fseek(f.get(), 0, SEEK_SET) == 0) {
            const auto n = static_cast<size_t>(end);
            bytes.data.reset(new unsigned char[n]);
            advise_huge_pages(bytes.data.get(), n);
            // A file that grew while being read is taken as it was measured.
            bytes.size = std::fread(bytes.data.get(), 1, n, f.get());
            return bytes;
        }
    }
    std::rewind(f.get());
    std::vector<unsigned char> all;
    unsigned char piece[65536];
    size_t got;
    while ((got = std::fread(piece, 1, sizeof piece, f.get())) > 0)
        all.insert(all.end(), piece, piece + got);
    bytes.data.reset(new unsigned char[all.size()]);
    if (!all.empty()) std::memcpy(bytes.data.get(), all.data(), all.size());
    bytes.size = all.size();
    return bytes;
}

[[noreturn]] void not_valid() {
    throw std::runtime_error("This is not a valid vx24 file\n");
}

vx_channel decode_channel(const unsigned char *p) {
    vx_channel ch;
    ch.m_magic = le_magic(p);
    ch.m_channel = le16(p + 4);
    ch.m_gain = le16(p + 6);
    ch.m_v_min = le_double(p + 8);
    ch.m_v_max = le_double(p + 16);
    ch.m_ext_gain = le_double(p + 24);
    return ch;
}

} // namespace

vx24_layout parse_vx24_layout(const unsigned char *bytes, size_t size) {
    vx24_layout layout;
    // The header is decoded from a zero-padded copy so that a short file
    // still reaches the version dispatch with defined contents.
    unsigned char head[40] = {};
    if (size > 0) std::memcpy(head, bytes, std::min(size, sizeof head));

    vx_header_header &hh = layout.header.header;
    hh.m_magic = le_magic(head);
    hh.m_version = head[4];
    hh.m_station = head[5];
    hh.m_header_length = le16(head + 6);

    vx_header_common &c = layout.header.common;
    c.m_seconds = le32(head + 8);
    c.m_nanoseconds = le32(head + 12);
    c.m_channel_bitmap = le32(head + 16);
    c.m_num_channels = head[20];
    c.m_unused = head[21];
    c.m_sample_freq_hz = le_double(head + 22);
    c.m_bits_per_sample = head[30];
    c.m_bytes_per_sample = head[31];

    // The version is dispatched before the magic is looked at, so any file
    // whose fifth byte is 3 or more ends the process without a word. The
    // version-1 header length is stored 4 short; it is corrected in memory.
    size_t header_size = 0;
    switch (hh.m_version) {
    case 0:
        header_size = common_end;
        break;
    case 1:
        hh.m_header_length = static_cast<uint16_t>(hh.m_header_length + 4);
        layout.header.v.v1.m_host_timestamp = le32(head + 32);
        header_size = common_end + 4;
        break;
    case 2:
        layout.header.v.v2.m_host_timestamp = le32(head + 32);
        layout.header.v.v2.m_device_id = le32(head + 36);
        header_size = common_end + 8;
        break;
    default:
        fatal_exit(1);
    }
    if (size < header_size) not_valid();

    if (hh.m_magic != magic_vx24) not_valid();
    if (hh.m_version > 2)
        throw std::runtime_error("Unknown version (" + std::to_string(hh.m_version) + ") of an vx24 file\n");

    size_t pos = header_size;
    // A chunk head or record that does not fit in the file stays zeroed and
    // so fails its magic test.
    auto chunk_magic = [&](size_t n) {
        magic m{};
        if (size - pos >= n) m = le_magic(bytes + pos);
        return m;
    };

    if (chunk_magic(chunk_head) != magic_chns) throw std::runtime_error("Unknown magic chns\n");
    pos += chunk_head;

    const size_t n_channels = c.m_num_channels;
    layout.channels.assign(n_channels, vx_channel{});
    for (size_t k = 0; k < n_channels; ++k) {
        if (size - pos >= channel_size) layout.channels[k] = decode_channel(bytes + pos);
        if (layout.channels[k].m_magic != magic_chan) throw std::runtime_error("Unknown magic chan\n");
        pos += channel_size;
    }

    if (chunk_magic(chunk_head) != magic_data) throw std::runtime_error("Unknown magic data\n");
    pos += chunk_head;

    // Without channels there is nothing to divide the samples among.
    if (n_channels == 0) not_valid();

    // Up to three trailing bytes belong to no value and are ignored. Values
    // that do not fill a last frame still go to the first channels, which
    // then hold one sample more than the time sequence.
    const uint64_t n_values = (size - pos) / value_size;
    layout.data_offset = pos;
    layout.per_channel = n_values / n_channels;
    layout.left_over = n_values % n_channels;
    return layout;
}

VXFIL24::VXFIL24(const char *filename) : Vxfil_Base(filename) {
    file_bytes bytes = read_whole_file(filename);
    parse(bytes.data.get(), bytes.size);
}

VXFIL24::VXFIL24(const unsigned char *bytes, size_t size, const char *name) : Vxfil_Base(name) {
    parse(bytes, size);
}

void VXFIL24::parse(const unsigned char *bytes, size_t size) {
    vx24_layout layout = parse_vx24_layout(bytes, size);
    m_header = layout.header;
    m_channels = std::move(layout.channels);
    const size_t n_channels = m_channels.size();
    m_data.assign(n_channels, data_channel_type{});
    const uint64_t per_channel = layout.per_channel;

    // Every sequence is reserved once and then appended to: its values are
    // written once, with no zero-filling pass over the memory first.
    reserve_huge(m_time, per_channel);
    const double t0 = m_header.time();
    const double f = m_header.common.m_sample_freq_hz;
    for (uint64_t i = 0; i < per_channel; ++i)
        m_time.push_back(static_cast<double>(i) / f + t0);

    const unsigned char *values = bytes + layout.data_offset;
    const uint64_t stride = n_channels * value_size;
    for (size_t k = 0; k < n_channels; ++k) {
        data_channel_type &d = m_data[k];
        const uint64_t count = per_channel + (k < layout.left_over ? 1 : 0);
        reserve_huge(d, count);
        const unsigned char *first = values + k * value_size;
        for (uint64_t i = 0; i < count; ++i)
            d.push_back(static_cast<int32_t>(le32(first + i * stride)));
    }
}

} // namespace VxFil
