// Staging a recording for an SDS archive (see sds_stage.h).
#include "sds_stage.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "atomic_file.h"
#include "mseed_codes.h"
#include "mseed_records.h"
#include "mseed_segments.h"
#include "open_recording.h"
#include "process_exit.h"

namespace sds {

namespace {

// Staged records are read back only by the merge: the longest records keep
// their headers few.
constexpr int STAGING_RECORD_LENGTH = 65536;

std::string number_text(double v) {
    char text[32];
    std::snprintf(text, sizeof text, "%.15g", v);
    return text;
}

// What miniSEED cannot carry is refused as the miniSEED layout refuses it.
void refuse_unwritable(const VxFil::Vxfil_Base &rec, const fs::path &path) {
    const double rate = rec.get_frequency();
    if (!writable_rate(rate))
        exit_with_line("Error: sample rate " + number_text(rate) + " of " + quoted(path) +
                       " cannot be written in miniSEED (1e-09 to 1e+09)\n");
    for (double t : rec.m_time)
        if (!writable_time(t))
            exit_with_line("Error: time " + number_text(t) + " of " + quoted(path) +
                           " is outside the years 1900 to 2100 that miniSEED holds\n");
}

void write_or_die(AtomicFile &file, const fs::path &path, const void *bytes, std::size_t n) {
    if (!file.write(bytes, n))
        exit_with_line("Error: can't write file " + quoted(path) + ": " + std::strerror(errno) + "\n");
}

} // namespace

fs::path staging_dir(const fs::path &top, const std::string &run) {
    return book_of(top) / "staging" / run;
}

void stage_recording(const fs::path &top, const std::string &run, const fs::path &path,
                     const conversion_request &request) {
    std::unique_ptr<VxFil::Vxfil_Base> rec = open_recording(path);
    if (!rec) exit_with_line("Can't open " + path.string() + "\n");
    const std::vector<double> &times = rec->m_time;
    if (!times.empty()) check_rate(*rec, path);
    check_channels(*rec, path, rec->m_header.num_channels());

    recording_facts facts;
    facts.path = path.string();
    facts.run = run;
    const fs::path dir = staging_dir(top, run);
    const std::string key = recording_key(facts.path);
    const fs::path records_path = dir / (key + ".mseed");
    AtomicFile records;
    if (!records.open(records_path))
        exit_with_line("Error: can't write file " + quoted(records_path) + ": " + std::strerror(errno) + "\n");

    if (!times.empty()) {
        refuse_unwritable(*rec, path);
        const double rate = rec->get_frequency();
        const std::string station = rec->station_name();
        const std::vector<long> breaks = segment_breaks(times, rate);
        const std::vector<sample_range> segments =
            window_segments(breaks, 1, static_cast<long>(times.size()), 0, static_cast<long>(times.size()));
        std::vector<double> values;
        std::unique_ptr<int32_t[]> integers(new int32_t[times.size()]);
        const auto start_us = [&times](std::size_t i) { return microseconds_of(times[i]); };
        int sequence = 1;
        for (const VxFil::vx_channel &ch : rec->m_channels) {
            const VxFil::data_channel_type &raw = rec->m_data.at(ch.m_channel);
            const std::size_t n = std::min(raw.size(), times.size());
            if (n == 0) continue;
            recording_channel c;
            c.codes = {request.network, station_code(station, ch.m_channel), "", channel_code(rate)};
            if (c.codes.station.size() > MAX_STATION_CODE)
                exit_with_line("Error: " + quoted(path) + " has " + std::to_string(rec->m_header.num_channels()) +
                               " channels; station code \"" + c.codes.station +
                               "\" is longer than the 5 characters miniSEED allows\n");
            c.rate = rate;
            c.volts_per_count = ch.m_v_max;
            c.gain = ch.m_ext_gain;
            c.first = microseconds_of(times[0]);
            c.last = microseconds_of(times[n - 1]);
            c.samples = n;
            values.resize(n);
            for (std::size_t i = 0; i < n; ++i)
                values[i] = static_cast<double>(raw[i]) * static_cast<double>(request.scale);
            const mseed_stream stream{c.codes.network, c.codes.station, c.codes.location, c.codes.channel, rate,
                                      STAGING_RECORD_LENGTH};
            const record_sink sink = [&](const char *bytes, std::size_t length) {
                write_or_die(records, records_path, bytes, length);
            };
            for (const sample_range &seg : segments) {
                const auto first = static_cast<std::size_t>(seg.begin);
                const std::size_t end = std::min(static_cast<std::size_t>(seg.end), n);
                if (first >= end) continue;
                const std::size_t count = end - first;
                mseed_encoding encoding = choose_encoding(values.data() + first, count, integers.get());
                if (encoding == mseed_encoding::STEIM2) encoding = mseed_encoding::INT32;
                const auto seg_start = [&start_us, first](std::size_t i) { return start_us(first + i); };
                try {
                    pack_segment_as(stream, encoding, values.data() + first, integers.get(), seg_start, count,
                                    sequence, sink);
                } catch (const std::exception &e) {
                    exit_with_line("Error: can't write file " + quoted(records_path) + ": " + e.what() + "\n");
                }
                c.spans.push_back({microseconds_of(times[first]), microseconds_of(times[end - 1]), count});
            }
            facts.channels.push_back(std::move(c));
        }
    }
    if (!records.commit())
        exit_with_line("Error: can't write file " + quoted(records_path) + ": " + std::strerror(errno) + "\n");
    try {
        write_text(dir / (key + ".facts"), facts_text(facts));
    } catch (const std::exception &e) {
        exit_with_line(std::string("Error: ") + e.what() + "\n");
    }
}

} // namespace sds
