// The conditioning chain over the run's series, in its fixed order: offset
// removal, max finding and scaling, resampling, low-pass filtering.
//
// Progress words go to standard output (silenced by quiet); stdout is flushed
// after every step so that they keep their place among diagnostics written
// to standard error.
//
// Resampling and the sample count. Interpolation between consecutive samples
// leaves each series (n - 1) * up values long, while samples becomes
// samples * up: the last input sample starts no pair and is not carried over.
// With up = 1 this drops the last sample while samples stays as it was. The
// windows are cut by samples, so at the very end of the chain (after
// filtering) every non-empty channel series and the time axis are filled up
// to exactly samples entries: the values with the last input sample as it
// stood just before resampling (offset removed and scaled, never filtered),
// the times continuing from the last interpolated time by the interpolated
// step of the last pair, (t[n-1] - t[n-2]) / up; a single input time is
// repeated. Empty series stay empty. With up = 1 this simply restores the
// dropped last sample.
#include "conditioning.h"

#include <cstddef>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

#include "conditioning_steps.h"
#include "filter_together.h"
#include "on_cores.h"
#include "series.h"
#include "settings.h"

namespace {

void say(const char* words) {
    if (!quiet) {
        std::fputs(words, stdout);
    }
}

void end_step(const char* words) {
    say(words);
    std::fflush(stdout);
}

// The words of each step around its work: the same words whether the work
// is done on the whole series, on the frames of a file read in place, or
// left to the rows.
template <class Work> void removing_offset(Work&& work) {
    say("Removing offset...");
    work();
    end_step("done\n");
}

template <class Work> double finding_max(Work&& work) {
    say("Finding max...");
    const double max = work();
    end_step("done\n");
    return max;
}

template <class Work> void scaling(Work&& work) {
    if (!quiet) {
        std::printf("Scaling %ld ... ", global_scale);
    }
    work();
    end_step("done\n");
}

template <class Work> void resampling(Work&& work) {
    if (!quiet) {
        std::printf("Resampling %ld ... ", upsample);
    }
    work();
    end_step("done\n");
}

template <class Work> void filtering(Work&& work) {
    say("Filtering...");
    work();
    end_step("done.\n");
}

void offset_step() {
    removing_offset([] {
        for (series_t& values : data) {
            remove_series_offset(values);
        }
    });
}

double max_step() {
    return finding_max([] { return max_over_series(data); });
}

void scaling_step() {
    scaling([] {
        for (series_t& values : data) {
            scale_series(values, global_scale);
        }
    });
}

// What the fill-up after the chain needs from the series before resampling.
struct resample_tail {
    std::vector<double> last_values; // per channel; unused for empty channels
    double first_time = 0.0;
    double time_step = 0.0;
};

resample_tail resampling_step() {
    resample_tail tail;
    resampling([&] {
        tail.last_values.reserve(data.size());
        for (const series_t& values : data) {
            tail.last_values.push_back(values.empty() ? 0.0 : values.back());
        }
        const std::size_t n = time_array.size();
        if (n > 0) {
            tail.first_time = time_array[0];
        }
        if (n > 1) {
            tail.time_step = (time_array[n - 1] - time_array[n - 2]) / static_cast<double>(upsample);
        }
        // Every channel and the time axis at once, each on a core of its own:
        // the resampled series are large and fresh, and the kernel zeroes
        // their pages as they are first written, which costs more than the
        // arithmetic.
        const std::size_t series = data.size() + 1;
        run_on_threads(series, threads_for(series), [&](std::size_t k) {
            series_t& values = k < data.size() ? data[k] : time_array;
            values = resample_series(values, upsample);
        });
        samples *= upsample;
    });
    return tail;
}

void filtering_step() {
    filtering([] { filter_all_series(data); });
}

// Largest factor whose resampling is left to the rows: the times after the
// last pair are kept, one per step of the factor, and are summed one after
// another, so that they cannot be computed apart. A larger factor resamples
// whole series as before.
constexpr long DEFERRED_FACTOR_MAX = 65536;

// Whether the rows resample by the run's factor (0: no resampling).
bool rows_resample_the_factor() { return upsample >= 0 && upsample <= DEFERRED_FACTOR_MAX; }

// Whether resampling and filtering can be left to the rows: every channel
// as long as the time axis, with a pair of samples to interpolate between.
bool deferrable() {
    const std::size_t n = time_array.size();
    if (n < 2 || data.empty() || static_cast<long>(n) != samples || !rows_resample_the_factor()) return false;
    for (const series_t& values : data)
        if (values.size() != n) return false;
    return true;
}

// The times after the last interpolated pair of `base`, as the fill-up adds
// them.
std::shared_ptr<const series_t> resampled_time_tail(const TimeAxis& base) {
    const std::size_t n = base.size();
    const double factor = static_cast<double>(upsample);
    const double first = base[n - 2], last = base[n - 1];
    double t = interpolated(first, last, static_cast<double>(upsample - 1) / factor);
    const double step = (last - first) / factor;
    auto tail = std::make_shared<series_t>();
    for (long j = 0; j < upsample; ++j) {
        t = t + step;
        tail->push_back(t);
    }
    return tail;
}

// Says the words of resampling and filtering and sets what they set, while
// `channels` computes the values as the rows are written; `base` is the time
// axis before resampling.
deferred_conditioning deferred_steps(std::shared_ptr<const ConditionedChannels> channels, const TimeAxis& base) {
    deferred_conditioning deferred{std::move(channels), base};
    if (upsample != 0) {
        resampling([&] {
            deferred.times = TimeAxis(base, static_cast<std::size_t>(upsample), resampled_time_tail(base));
            samples *= upsample;
        });
    }
    if (need_filter) filtering([&] { deferred.channels->leave_filter_state(); });
    return deferred;
}

// What one pass over the frames of a file read in place gives: each
// channel's sum, added in order from 0.0 as the offset removal adds its
// series, and its largest count.
struct frame_totals {
    std::vector<double> sum;
    std::vector<double> largest;
};

frame_totals add_up_frames(const VxFil::vx24_frames& frames) {
    const std::size_t channels = frames.channels();
    frame_totals totals{std::vector<double>(channels, 0.0), std::vector<double>(channels, 0.0)};
    constexpr std::uint64_t STRETCH = 65536;
    std::vector<std::int32_t> counts;
    for (std::uint64_t first = 0; first < frames.frames(); first += STRETCH) {
        const std::uint64_t n = std::min(STRETCH, frames.frames() - first);
        counts.resize(static_cast<std::size_t>(n) * channels);
        frames.read(first, static_cast<std::size_t>(n), counts.data());
        for (std::size_t k = 0; k < counts.size(); ++k) {
            const std::size_t c = k % channels;
            const double v = counts[k];
            totals.sum[c] += v;
            if ((first == 0 && k < channels) || v > totals.largest[c]) totals.largest[c] = v;
        }
    }
    return totals;
}

// The whole chain on the frames of a vx24 file read in place (at least two
// whole frames and nothing after them), with its words in their order: the
// offsets and the max from one pass over the frames, the scale, and the
// rest left to the rows. Subtracting a channel's mean keeps its counts in
// their order, so its largest value after the offset removal is its largest
// count minus the mean, the very number the pass over the series finds.
deferred_conditioning conditioned_in_place(const frames_in_place& in_place) {
    const VxFil::vx24_frames& frames = *in_place.frames;
    if (upsample != 0) check_upsample_factor(samples, upsample); // before any work or output
    const frame_totals totals = add_up_frames(frames);
    const double n = static_cast<double>(frames.frames());
    count_steps steps;
    if (remove_offset) {
        removing_offset([&] {
            for (double sum : totals.sum)
                steps.means.push_back(sum / n);
        });
    }
    const double max = finding_max([&] {
        double largest_of_all = 0.0;
        for (std::size_t c = 0; c < totals.largest.size(); ++c) {
            const double largest = remove_offset ? totals.largest[c] - steps.means[c] : totals.largest[c];
            if (largest > largest_of_all) largest_of_all = largest;
        }
        return largest_of_all;
    });
    if (global_scale == 0) global_scale = choose_scale(max);
    if (global_scale != 1) scaling([&] { steps.factor = static_cast<double>(global_scale); });
    return deferred_steps(
        std::make_shared<const ConditionedChannels>(in_place.frames, std::move(steps), upsample, need_filter),
        in_place.times);
}

// Fills the resampled series up to samples entries (see the top of the file).
void fill_up_after_resampling(const resample_tail& tail, bool time_was_empty,
                              const std::vector<bool>& channel_was_empty) {
    for (std::size_t ch = 0; ch < data.size(); ++ch) {
        if (!channel_was_empty[ch]) {
            extend_series(data[ch], tail.last_values[ch], samples);
        }
    }
    if (!time_was_empty) {
        extend_time_axis(time_array, tail.first_time, tail.time_step, samples);
    }
}

} // namespace

bool conditioning_asked() { return remove_offset || global_scale != 1 || upsample != 0 || need_filter; }

bool conditioning_in_place_possible(std::uint64_t frames, std::uint64_t left_over) {
    return !conditioning_asked() ||
           (frames >= 2 && left_over == 0 && rows_resample_the_factor());
}

std::optional<deferred_conditioning> condition_series(bool may_defer, const frames_in_place* in_place) {
    if (in_place != nullptr && conditioning_asked()) return conditioned_in_place(*in_place);
    const bool resampling = upsample != 0;
    std::vector<bool> channel_was_empty;
    if (resampling) {
        // Refuse a bad factor before any work or output.
        check_upsample_factor(samples, upsample);
        check_upsample_factor(static_cast<long>(time_array.size()), upsample);
        for (const series_t& values : data) {
            check_upsample_factor(static_cast<long>(values.size()), upsample);
            channel_was_empty.push_back(values.empty());
        }
    }
    const bool time_was_empty = time_array.empty();

    if (remove_offset) {
        offset_step();
    }
    const double max = max_step();
    if (global_scale == 0) {
        global_scale = choose_scale(max);
    }
    if (global_scale != 1) {
        scaling_step();
    }
    if ((resampling || need_filter) && may_defer && deferrable())
        return deferred_steps(std::make_shared<const ConditionedChannels>(data, upsample, need_filter),
                              TimeAxis(time_array));
    resample_tail tail;
    if (resampling) {
        tail = resampling_step();
    }
    if (need_filter) {
        filtering_step();
    }
    if (resampling) {
        fill_up_after_resampling(tail, time_was_empty, channel_was_empty);
    }
    return std::nullopt;
}

double upsampled_rate(double freq) { return upsample > 0 ? freq * static_cast<double>(upsample) : freq; }
