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
#include "sds_staged_file.h"
#include "mseed_records.h"
#include "mseed_segments.h"
#include "open_recording.h"
#include "process_exit.h"

namespace sds {

namespace {

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
    std::vector<staged_source_channel> staged;
    if (!times.empty()) {
        refuse_unwritable(*rec, path);
        const double rate = rec->get_frequency();
        const std::string station = rec->station_name();
        // The continuous stretches: where the time axis jumps by more than
        // half an interval, as the segments of the miniSEED layout.
        const std::vector<long> breaks = segment_breaks(times, rate);
        const std::vector<sample_range> segments =
            window_segments(breaks, 1, static_cast<long>(times.size()), 0, static_cast<long>(times.size()));
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
            for (const sample_range &seg : segments) {
                const auto first = static_cast<std::size_t>(seg.begin);
                const std::size_t end = std::min(static_cast<std::size_t>(seg.end), n);
                if (first < end)
                    c.spans.push_back({microseconds_of(times[first]), microseconds_of(times[end - 1]), end - first});
            }
            staged.push_back({c.codes.id(), raw.data(), n});
            facts.channels.push_back(std::move(c));
        }
    }
    const fs::path dir = staging_dir(top, run);
    const std::string key = recording_key(facts.path);
    // The samples first, the facts last: a staged recording without its facts
    // is incomplete and the merge passes it over.
    const std::string bytes = encode_staged(times, staged, request.scale);
    const fs::path samples_path = dir / (key + ".samples");
    AtomicFile file;
    if (!file.open(samples_path) || !file.write(bytes.data(), bytes.size()) || !file.commit())
        exit_with_line("Error: can't write file " + quoted(samples_path) + ": " + std::strerror(errno) + "\n");
    try {
        write_text(dir / (key + ".facts"), facts_text(facts));
    } catch (const std::exception &e) {
        exit_with_line(std::string("Error: ") + e.what() + "\n");
    }
}

} // namespace sds
