// The binary miniSEED layout: every channel of the window as miniSEED 2
// records in one file, from the series in memory or, for a single vx24 file,
// from its frames read where they lie.
//
// The channels are packed at the same time, one per core, each into records
// of its own in memory, and then written one after the other. A channel's
// records do not depend on any other channel's but for their sequence
// numbers, which run through the file: each channel is packed from number 1
// and its records are renumbered as they are written (record_numbering.h).
#include <algorithm>
#include <cstdint>
#include <exception>
#include <functional>
#include <vector>
#include <memory>
#include <string>
#include <string_view>

#include "mseed_records.h"
#include "on_cores.h"
#include "out_file.h"
#include "process_exit.h"
#include "record_numbering.h"
#include "vxfil/huge_pages.h"
#include "writers.h"

namespace {

// The records of one channel, or what libmseed said when it refused them.
struct channel_records {
    std::string bytes;
    std::string error;
};

// Room for every record of a channel: at most 8 bytes a sample (FLOAT64
// records; Steim-2 and INT32 take at most 4) plus each record's header, and
// one part-filled record more for every segment. Reserved, not touched, so
// that the records are never copied as they grow.
std::size_t records_bound(std::size_t samples, std::size_t segments, std::size_t record_length) {
    return samples * 9 + (segments + 1) * record_length;
}

// Packs a channel's segments into its records in memory: pack(seg, sequence,
// sink) packs one segment.
template <class PackSegment>
channel_records pack_channel(std::size_t samples, const mseed_stream &stream,
                             const std::vector<sample_range> &segments, const PackSegment &pack) {
    channel_records r;
    try {
        r.bytes.reserve(records_bound(samples, segments.size(), static_cast<std::size_t>(stream.record_length)));
        VxFil::advise_huge_pages(r.bytes.data(), r.bytes.capacity());
    } catch (const std::exception &) {
        // No room for the bound: the records grow as they come.
    }
    const record_sink to_memory = [&r](const char *bytes, std::size_t length) {
        r.bytes.append(bytes, length);
    };
    int sequence = 1;
    for (const sample_range &seg : segments) {
        try {
            pack(seg, sequence, to_memory);
        } catch (const std::exception &e) {
            r.error = e.what();
            break;
        }
    }
    return r;
}

// Frames read at a time when a channel's counts are taken from the file.
constexpr std::size_t FRAMES_AT_A_TIME = 16384;

// The counts of column `column` of frames [first, first + n) into out.
void column_counts(const VxFil::vx24_frames &frames, std::size_t column, std::uint64_t first, std::size_t n,
                   int32_t *out) {
    const std::size_t width = frames.channels();
    std::vector<int32_t> stretch(std::min(n, FRAMES_AT_A_TIME) * width);
    for (std::size_t done = 0; done < n;) {
        const std::size_t count = std::min(n - done, FRAMES_AT_A_TIME);
        frames.read(first + done, count, stretch.data());
        for (std::size_t j = 0; j < count; ++j)
            out[done + j] = stretch[j * width + column];
        done += count;
    }
}

// Below this many samples in all a second thread costs more than it saves.
constexpr std::size_t THREADED_FROM = std::size_t{1} << 16;

// Packs the channels at the same time, one per core (pack(channel, stream,
// scratch) with room for `longest` integers in scratch), and writes their
// records one channel after the other.
void write_channels(const std::filesystem::path &s, const mseed_file &file, const std::vector<std::size_t> &channels,
                    long longest,
                    const std::function<channel_records(std::size_t, const mseed_stream &, int32_t *)> &pack) {
    OutFile out(s);
    std::vector<channel_records> packed(channels.size());
    const std::size_t total = static_cast<std::size_t>(longest) * channels.size();
    run_on_threads(
        channels.size(), total < THREADED_FROM ? 1 : threads_for(channels.size()), [&](std::size_t i) {
            const std::size_t ch = channels[i];
            const mseed_stream stream{file.network, file.stations[ch], "",
                                      file.channel, file.rate,         file.record_length};
            // Freed at once, so that the next channel's buffer is the same memory.
            const std::unique_ptr<int32_t[]> scratch(new int32_t[static_cast<std::size_t>(longest)]);
            VxFil::advise_huge_pages(scratch.get(), static_cast<std::size_t>(longest) * sizeof(int32_t));
            packed[i] = pack(ch, stream, scratch.get());
        });

    // Handed to the file record by record, as they were packed, so that the
    // buffer fills and a failing write shows up at the same places.
    const auto length = static_cast<std::size_t>(file.record_length);
    int sequence = 1;
    for (channel_records &r : packed) {
        renumber_records(r.bytes, length, sequence);
        for (std::size_t at = 0; at + length <= r.bytes.size(); at += length)
            out.put(std::string_view(r.bytes).substr(at, length));
        std::string().swap(r.bytes);
        if (!r.error.empty())
            exit_with_line("Error: can't write file \"" + s.string() + "\": " + r.error + "\n");
    }
    out.close();
}

// The longest segment: one buffer for the integers of every segment of a
// channel is sized for it.
long longest_segment(const mseed_file &file) {
    long longest = 0;
    for (const sample_range &seg : file.segments)
        longest = std::max(longest, seg.end - seg.begin);
    return longest;
}

} // namespace

void write_mseed(const std::filesystem::path &s, const std::vector<series_t> &data, const series_t &time,
                 const mseed_file &file) {
    std::vector<std::size_t> channels;
    for (std::size_t ch = 0; ch < data.size(); ++ch)
        if (!data[ch].empty()) channels.push_back(ch);
    write_channels(s, file, channels, longest_segment(file),
                   [&](std::size_t ch, const mseed_stream &stream, int32_t *scratch) {
                       const series_t &values = data[ch];
                       return pack_channel(values.size(), stream, file.segments,
                                           [&](const sample_range &seg, int &sequence, const record_sink &sink) {
                                               const auto first = static_cast<std::size_t>(seg.begin);
                                               pack_segment(stream, values.data() + first, time.data() + first,
                                                            static_cast<std::size_t>(seg.end - seg.begin),
                                                            scratch, sequence, sink);
                                           });
                   });
}

void write_mseed_in_place(const std::filesystem::path &s, const VxFil::vx24_frames &frames, const TimeAxis &time,
                          std::size_t channels, const mseed_file &file) {
    // Every column of a file without values after its last frame has as
    // many counts as there are frames: none is empty unless all are.
    std::vector<std::size_t> columns;
    for (std::size_t ch = 0; ch < std::min(channels, frames.channels()) && frames.frames() > 0; ++ch)
        columns.push_back(ch);
    write_channels(s, file, columns, longest_segment(file),
                   [&](std::size_t ch, const mseed_stream &stream, int32_t *scratch) {
                       return pack_channel(
                           static_cast<std::size_t>(frames.frames()), stream, file.segments,
                           [&](const sample_range &seg, int &sequence, const record_sink &sink) {
                               const auto first = static_cast<std::size_t>(seg.begin);
                               const auto n = static_cast<std::size_t>(seg.end - seg.begin);
                               column_counts(frames, ch, first, n, scratch);
                               const std::function<int64_t(std::size_t)> start_us = [&](std::size_t i) {
                                   return microseconds_of(time[first + i]);
                               };
                               pack_segment_as(stream, integer_encoding(scratch, n), nullptr, scratch, start_us, n,
                                               sequence, sink);
                           });
                   });
}
