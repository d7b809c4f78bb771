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

VXFIL24::VXFIL24(const unsigned char *bytes, size_t size, const char *name) : Vxfil_Base(name) {
    parse(bytes, size);
}

VXFIL24::VXFIL24(uint64_t size, const vx24_read_fn &read, const char *name, size_t piece_bytes)
    : Vxfil_Base(name) {
    read_pieces(size, read, piece_bytes);
}

VXFIL24::VXFIL24(const vx24_layout &layout, const char *name) : Vxfil_Base(name) {
    lay_out(vx24_layout(layout), false);
}

namespace {

// Spreads interleaved values over the channels in turn, as they come: the
// first value to the first channel, the next to the second, and so on,
// round and round. Bytes may come in pieces of any length; a value cut by
// the end of a piece is completed by the next one, and the 1 to 3 bytes
// left at the very end make no value.
class frame_splitter {
  public:
    explicit frame_splitter(data_type &data) : m_data(data) {}

    void add(const unsigned char *bytes, size_t n) {
        if (n == 0) return;
        if (m_part_size > 0) {
            const size_t take = std::min(n, value_size - m_part_size);
            std::memcpy(m_part + m_part_size, bytes, take);
            m_part_size += take;
            bytes += take;
            n -= take;
            if (m_part_size < value_size) return;
            put(m_part, 1);
            m_part_size = 0;
        }
        const size_t values = n / value_size;
        put(bytes, values);
        m_part_size = n - values * value_size;
        if (m_part_size > 0) std::memcpy(m_part, bytes + values * value_size, m_part_size);
    }

  private:
    // Each channel takes every N-th value, beginning with the first value
    // that falls to it.
    void put(const unsigned char *values, size_t count) {
        const size_t n_channels = m_data.size();
        for (size_t j = 0; j < n_channels && j < count; ++j) {
            data_channel_type &d = m_data[(m_next + j) % n_channels];
            for (size_t i = j; i < count; i += n_channels)
                d.push_back(static_cast<int32_t>(le32(values + i * value_size)));
        }
        m_next = (m_next + count) % n_channels;
    }

    data_type &m_data;
    size_t m_next = 0; // channel of the next value
    unsigned char m_part[value_size] = {};
    size_t m_part_size = 0;
};

} // namespace

// Takes the header and channels of the layout, and (unless the samples stay
// in the file) makes room for the values that the file's size promises and
// writes the time sequence out whole.
void VXFIL24::lay_out(vx24_layout &&layout, bool with_samples) {
    m_header = layout.header;
    m_channels = std::move(layout.channels);
    const size_t n_channels = m_channels.size();
    m_data.assign(n_channels, data_channel_type{});
    if (!with_samples) return;
    const uint64_t per_channel = layout.per_channel;

    // Every sequence is reserved once and then appended to: its values are
    // written once, with no zero-filling pass over the memory first.
    reserve_huge(m_time, per_channel);
    const double t0 = m_header.time();
    const double f = m_header.common.m_sample_freq_hz;
    for (uint64_t i = 0; i < per_channel; ++i)
        m_time.push_back(vx24_sample_time(t0, f, i));
    for (size_t k = 0; k < n_channels; ++k)
        reserve_huge(m_data[k], per_channel + (k < layout.left_over ? 1 : 0));
}

void VXFIL24::parse(const unsigned char *bytes, size_t size) {
    vx24_layout layout = parse_vx24_layout(bytes, size);
    const size_t data_offset = layout.data_offset;
    lay_out(std::move(layout));
    frame_splitter(m_data).add(bytes + data_offset, size - data_offset);
}

void VXFIL24::read_pieces(uint64_t size, const vx24_read_fn &read, size_t piece_bytes) {
    // Everything before the first sample (and, in a longer file, the first
    // samples) is read first: the layout is checked on it and the file's
    // size. A file that ends inside it is parsed as the bytes it had.
    unsigned char head[vx24_layout_bytes];
    const size_t head_size = static_cast<size_t>(std::min<uint64_t>(size, vx24_layout_bytes));
    const size_t got = read(head, head_size);
    if (got < head_size) {
        parse(head, got);
        return;
    }
    vx24_layout layout = parse_vx24_layout(head, size);
    const size_t data_offset = layout.data_offset;
    lay_out(std::move(layout));
    frame_splitter values(m_data);
    values.add(head + data_offset, head_size - data_offset);

    // The rest through one small buffer, never more than the measured size.
    piece_bytes = std::max<size_t>(piece_bytes, 1);
    std::unique_ptr<unsigned char[]> piece(new unsigned char[piece_bytes]);
    uint64_t done = head_size;
    while (done < size) {
        const size_t want = static_cast<size_t>(std::min<uint64_t>(piece_bytes, size - done));
        const size_t n = read(piece.get(), want);
        values.add(piece.get(), n);
        done += n;
        if (n < want) break;
    }
    // A file that shrank while being read gives what its bytes give: the
    // values read are spread over the channels as they would be, and the
    // time sequence is cut to the whole frames among them. The head is
    // whole here, so the layout checks pass as they did.
    if (done < size) m_time.resize(parse_vx24_layout(head, done).per_channel);
}

} // namespace VxFil
