// The facts of a converted recording (see recording_description.h).
#include "recording_description.h"

#include <algorithm>
#include <vector>

#include "mseed_codes.h"
#include "mseed_records.h"
#include "mseed_segments.h"
#include "open_recording.h"
#include "process_exit.h"

sds::recording_facts describe_recording(const VxFil::Vxfil_Base &rec, const std::filesystem::path &path,
                                        const std::string &run, const std::string &network,
                                        const std::string &station, double rate) {
    sds::recording_facts facts;
    facts.path = path.string();
    facts.run = run;
    const std::vector<double> &times = rec.m_time;
    if (times.empty()) return facts;
    // The continuous stretches: where the time axis jumps by more than half
    // an interval, as the segments of the miniSEED layout.
    const std::vector<long> breaks = segment_breaks(times, rec.get_frequency());
    const std::vector<sample_range> segments =
        window_segments(breaks, 1, static_cast<long>(times.size()), 0, static_cast<long>(times.size()));
    for (const VxFil::vx_channel &ch : rec.m_channels) {
        if (ch.m_channel >= rec.m_data.size()) continue;
        const std::size_t n = std::min(rec.m_data[ch.m_channel].size(), times.size());
        if (n == 0) continue;
        sds::recording_channel c;
        c.codes = {network, station_code(station, ch.m_channel), "", channel_code(rate)};
        if (c.codes.station.size() > MAX_STATION_CODE)
            exit_with_line(long_station_code_line(c.codes.station, rec.m_header.num_channels(), quoted(path)));
        c.rate = rec.get_frequency();
        c.volts_per_count = ch.m_v_max;
        c.gain = ch.m_ext_gain;
        // The earliest and the latest sample: a time axis may step back.
        const auto [lo, hi] = std::minmax_element(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(n));
        c.first = microseconds_of(*lo);
        c.last = microseconds_of(*hi);
        c.samples = n;
        c.filed = n; // a merge into an SDS archive counts again what it adds
        for (const sample_range &seg : segments) {
            const auto first = static_cast<std::size_t>(seg.begin);
            const std::size_t end = std::min(static_cast<std::size_t>(seg.end), n);
            if (first < end)
                c.spans.push_back({microseconds_of(times[first]), microseconds_of(times[end - 1]), end - first});
        }
        facts.channels.push_back(std::move(c));
    }
    return facts;
}
