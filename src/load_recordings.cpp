// Loading: every named recording is read whole and appended to one series.
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "conditioning.h"
#include "run_state.h"
#include "series.h"
#include "settings.h"
#include "vxfil/huge_pages.h"
#include "vxfil/sample_count_hint.h"
#include "open_recording.h"
#include "recording_description.h"
#include "vxfil/vxdetect.h"
#include "vxfil/vx24_frames.h"
#include "vxfil/vxfil24.h"
#include "process_exit.h"
#include "on_cores.h"

namespace {

// The comment line of the writers: rate, gain and station of the first file,
// then its start as date and time, cut to the buffer.
void build_comment(const VxFil::Vxfil_Base& rec, run_state& st) {
    int gain = rec.m_channels.empty() ? 0 : rec.m_channels[0].m_gain;
    int n = std::snprintf(st.comment, sizeof st.comment, "!S512Tidserier sampfrek: %f gain: %d station: %s ",
                          st.freq, gain, st.station.c_str());
    if (n < 0 || n >= static_cast<int>(sizeof st.comment)) return;
    std::time_t start = rec.m_header.common.m_seconds;
    std::tm tm{};
    if (gmtime_r(&start, &tm))
        std::strftime(st.comment + n, sizeof st.comment - n, "date: %F time: %T", &tm);
}

// Grows a series so that n more values fit, geometrically so that many
// files appended one after another do not copy the series again and again.
void make_room(std::vector<double>& v, size_t n) {
    size_t need = v.size() + n;
    if (need > v.capacity()) VxFil::reserve_huge(v, std::max(need, v.capacity() + v.capacity() / 2));
}

// Room for the whole run, judged from the inputs' headers and sizes before
// any is read, so that appending file after file copies nothing. A guess
// beyond what the series may ever hold, or one the memory cannot back, is
// dropped: the series then grow as they go.
std::size_t planned_samples(const std::vector<std::filesystem::path>& names) {
    constexpr std::size_t PLAN_MAX = std::size_t{1} << 31;
    std::size_t total = 0;
    for (const std::filesystem::path& path : names) {
        total += std::min(VxFil::sample_count_hint(path.c_str()), PLAN_MAX);
        if (total > PLAN_MAX) return 0;
    }
    return total;
}

void reserve_planned(std::vector<double>& v, std::size_t n) {
    if (v.capacity() >= n) return;
    try {
        VxFil::reserve_huge(v, n);
    } catch (const std::exception&) {
        // Not enough memory for the guess: the series grow step by step.
    }
}

// Below this many samples in a channel a second thread costs more than it saves.
constexpr std::size_t COPIED_TOGETHER_FROM = std::size_t{1} << 16;

// Each channel's counts become doubles at the end of its series. The series
// are mostly memory that the kernel zeroes page by page as it is first
// touched, which costs as much as the copy: the channels of a long recording
// are appended on every core, so that this zeroing is shared out.
void append_channels(VxFil::Vxfil_Base& rec) {
    const std::vector<VxFil::vx_channel>& channels = rec.m_channels;
    std::size_t longest = 0;
    for (const VxFil::vx_channel& ch : channels)
        longest = std::max(longest, rec.m_data.at(ch.m_channel).size());
    run_on_threads(channels.size(), longest < COPIED_TOGETHER_FROM ? 1 : threads_for(channels.size()),
                   [&](std::size_t k) {
                       // check_channels made the numbers distinct: each job has
                       // a series of its own, and no later record reads this one.
                       VxFil::data_channel_type& raw = rec.m_data.at(channels[k].m_channel);
                       series_t& out = data[channels[k].m_channel];
                       make_room(out, raw.size());
                       out.insert(out.end(), raw.begin(), raw.end());
                       VxFil::data_channel_type().swap(raw);
                   });
}

// One vx24 file written to four columns needs no series of its samples:
// each stretch of rows reads its frames from the file as it is written, so
// that a day's file never fills some 60 MB of fresh memory before its first
// row (see vx24_frames). Offset removal, scaling, resampling and filtering
// are then done on the frames as the rows are written, when the file allows
// (see conditioning_in_place_possible). Whatever looks at whole series (a
// picture, the facts of a recording, the other layouts) reads the file into
// the series as before. Returns the frames, or null to read the file whole.
//
// The miniSEED layout reads a single vx24 file in place too, channel by
// channel as its records are packed, when nothing conditions its counts and
// no SDS archive takes them; a file with values after its last whole frame
// is read whole, since its channels then differ in length.
std::shared_ptr<const VxFil::vx24_frames> frames_read_in_place(const std::vector<std::filesystem::path>& names) {
    const bool records = output_type == OT_MSEED && sds_directory == nullptr && !conditioning_asked();
    if (names.size() != 1 || (output_type != OT_FOURCOLUMNS && !records) || plot || facts_directory != nullptr ||
        catalog_directory != nullptr || (conditioning_asked() && !conditioning_in_place_possible(2, 0)) ||
        !VxFil::regular_vx24_file(names.front().c_str())) // a regular file: never a pipe
        return nullptr;
    auto frames = std::make_shared<const VxFil::vx24_frames>(names.front().c_str());
    if (!conditioning_in_place_possible(frames->frames(), frames->layout().left_over)) return nullptr;
    if (records && frames->layout().left_over != 0) return nullptr;
    return frames;
}

// The recording without its samples, which st.frames then reads in place.
std::unique_ptr<VxFil::Vxfil_Base> open_in_place(const std::filesystem::path& path, run_state& st) {
    return std::make_unique<VxFil::VXFIL24>(st.frames->layout(), path.c_str());
}

void remember_input(const std::filesystem::path& path, run_state& st) {
    struct stat sb {};
    if (::stat(path.c_str(), &sb) == 0) st.inputs.emplace_back(sb.st_dev, sb.st_ino);
}

} // namespace

void load_recordings(const std::vector<std::filesystem::path>& names, run_state& st) {
    // One file: its time axis is taken over whole, not copied. Several:
    // every series reserves the room of all of them at once.
    const std::size_t planned = names.size() > 1 ? planned_samples(names) : 0;
    st.frames = frames_read_in_place(names);
    const bool in_place = st.frames != nullptr;
    if (!in_place) {
        VxFil::reserve_huge(time_array, MAXSIZE);
        reserve_planned(time_array, planned);
    }
    for (const std::filesystem::path& path : names) {
        std::unique_ptr<VxFil::Vxfil_Base> rec = in_place ? open_in_place(path, st) : open_recording(path);
        if (!rec) exit_with_line("Can't open " + path.string() + "\n");
        remember_input(path, st);
        const std::vector<double>& times = rec->m_time;
        // A recording read in place has no time sequence: its frames count
        // its samples.
        const std::size_t count = in_place ? st.frames->frames() : times.size();
        // A recording without samples contributes nothing, so its rate does
        // not matter; any other must have a rate that time steps can use.
        if (count > 0) check_rate(*rec, path);

        const size_t num_channels = rec->m_header.num_channels();
        if (time_array.empty()) {
            st.freq = rec->get_frequency();
            st.station = rec->station_name();
            build_comment(*rec, st);
            std::cerr << "INFO: Time diff: "
                      << static_cast<int64_t>(rec->m_header.v.v1.m_host_timestamp) -
                             static_cast<int64_t>(rec->m_header.common.m_seconds)
                      << " seconds\n";
            if (data.size() < num_channels) data.resize(num_channels);
            if (!in_place)
                for (series_t& s : data)
                    reserve_planned(s, std::max<std::size_t>(MAXSIZE, planned));
        } else {
            if (num_channels > data.size())
                exit_with_line("Error: " + quoted(path) + " has " + std::to_string(num_channels) +
                       " channels, more than the " + std::to_string(data.size()) + " of the first file\n");
            if (!times.empty()) std::cerr << times[0] - (time_array.back() + 1.0 / st.freq) << "\n";
        }
        std::cerr << count << " & " << time_array.size() << "\n";
        check_channels(*rec, path, data.size());
        if (facts_directory != nullptr || catalog_directory != nullptr)
            st.facts.push_back(describe_recording(*rec, path, "mirror", mseed_network, st.station, st.freq));

        // The recording's own vectors are given up as soon as they are copied,
        // so that at no time two full copies of the samples are alive. A first
        // file hands over its time axis whole unless room for later files was
        // planned.
        if (in_place) {
            st.times = TimeAxis(rec->m_header.time(), rec->m_header.common.m_sample_freq_hz, count);
        } else if (time_array.empty() && (planned == 0 || times.size() > time_array.capacity())) {
            time_array.swap(rec->m_time);
        } else {
            make_room(time_array, times.size());
            time_array.insert(time_array.end(), times.begin(), times.end());
        }
        std::vector<double>().swap(rec->m_time);
        append_channels(*rec);
    }
    samples = static_cast<long>(st.times.size());
}
