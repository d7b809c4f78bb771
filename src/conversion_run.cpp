// The conversion run: load, condition, convert the time unit, fix the
// window, write.
#include <filesystem>
#include <optional>
#include <vector>

#include "brantel.h"
#include "conditioning.h"
#include "kept_facts.h"
#include "miniseed.h"
#include "mseed_segments.h"
#include "run_state.h"
#include "series.h"
#include "settings.h"
#include "write_plot.h"

namespace {

// The picture's time axis stays in Unix seconds whatever unit the text
// columns get; resampling multiplies the rate of the series.
void keep_plot_times(run_state& st) {
    st.utc_rate = upsampled_rate(st.freq);
    if (time_in_minutes != TIME_SECONDS) st.utc_times = time_array;
}

} // namespace

int brantel(std::vector<std::filesystem::path>& names, int& /*optind_ref*/, int /*argc*/) {
    // Every run starts from empty series; a length or scale that one run
    // derives from its data does not carry over to the next file, also when
    // the run ends early (the next file of --keep-going).
    struct given_values {
        long length = snippet_length;
        long scale = global_scale;
        ~given_values() {
            samples = 0;
            snippet_length = length;
            global_scale = scale;
        }
    } given;
    data.clear();
    time_array.clear();
    samples = 0;

    run_state st;
    load_recordings(names, st);
    // Segments follow the recorded time axis, before resampling interpolates it.
    if (output_type == OT_MSEED) st.segment_breaks = segment_breaks(st.times, st.freq);
    if (plot && !names.empty()) check_plot_channels(names.front(), data.size());
    // Four columns read each row's values once, in order, so their
    // resampling and filtering can wait for the rows; a picture reads the
    // whole series. A file read in place is conditioned on its frames.
    const frames_in_place in_place{st.frames, st.times};
    if (std::optional<deferred_conditioning> deferred =
            condition_series(output_type == OT_FOURCOLUMNS && !plot, st.frames ? &in_place : nullptr)) {
        st.conditioned = deferred->channels;
        st.times = deferred->times;
    }
    if (plot) keep_plot_times(st);

    if (time_in_minutes != TIME_SECONDS) {
        if (st.times.in_series())
            for (double& t : time_array) t = time_convert(t);
        st.times.times_converted();
        st.freq = st.freq / time_convert(1.0);
    }

    long start_i = find_window_start(st);
    write_outputs(names, st, start_i);
    keep_facts(st.facts);
    return 0;
}
