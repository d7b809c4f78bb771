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
#include "recording_description.h"
#include "process_exit.h"

namespace sds {

namespace {

// What miniSEED cannot carry is refused as the miniSEED layout refuses it.
void refuse_unwritable(const VxFil::Vxfil_Base &rec, const fs::path &path) {
    const double rate = rec.get_frequency();
    if (!writable_rate(rate)) exit_with_line(unwritable_rate_line(rate, quoted(path)));
    for (double t : rec.m_time)
        if (!writable_time(t)) exit_with_line(unwritable_time_line(t, quoted(path)));
}

} // namespace

fs::path staging_dir(const fs::path &top, const std::string &run) {
    return book_of(top) / "staging" / run;
}

fs::path staged_samples_path(const fs::path &top, const std::string &run, const std::string &key) {
    return staging_dir(top, run) / (key + ".samples");
}

void stage_recording(const fs::path &top, const std::string &run, const fs::path &path,
                     const conversion_request &request) {
    std::unique_ptr<VxFil::Vxfil_Base> rec = open_recording(path);
    if (!rec) exit_with_line("Can't open " + path.string() + "\n");
    const std::vector<double> &times = rec->m_time;
    if (!times.empty()) check_rate(*rec, path);
    check_channels(*rec, path, rec->m_header.num_channels());

    std::vector<staged_source_channel> staged;
    if (!times.empty()) refuse_unwritable(*rec, path);
    recording_facts facts =
        times.empty() ? recording_facts{path.string(), run, {}, ""}
                      : describe_recording(*rec, path, run, request.network, rec->station_name(), rec->get_frequency());
    for (const recording_channel &c : facts.channels)
        for (const VxFil::vx_channel &ch : rec->m_channels)
            if (station_code(rec->station_name(), ch.m_channel) == c.codes.station)
                staged.push_back({c.codes.id(), rec->m_data.at(ch.m_channel).data(), static_cast<std::size_t>(c.samples)});
    const fs::path dir = staging_dir(top, run);
    const std::string key = recording_key(facts.path);
    // The samples first, the facts last: a staged recording without its facts
    // is incomplete and the merge passes it over.
    const std::string bytes = encode_staged(times, staged, request.scale);
    facts.check = hex64(content_hash(bytes.data(), bytes.size()));
    const fs::path samples_path = staged_samples_path(top, run, key);
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
