// Gaps, overlaps and changes of one channel (see channel_gaps.h).
#include "channel_gaps.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace report {

namespace {

// Settings equal bit for bit, so that two unknown (NaN) values are the same.
bool same_value(double a, double b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

bool same_settings(const channel_setting &a, const channel_setting &b) {
    return same_value(a.rate, b.rate) && same_value(a.gain, b.gain) &&
           same_value(a.volts_per_count, b.volts_per_count);
}

double lower_rate(double a, double b) {
    if (!(a > 0.0)) return b;
    if (!(b > 0.0)) return a;
    return std::min(a, b);
}

} // namespace

int64_t interval_us(double rate) {
    if (!(rate > 0.0) || !std::isfinite(rate) || rate < 1e-6) return 1000000;
    return std::max<int64_t>(1, std::llround(1e6 / rate));
}

channel_findings examine_channel(const channel_data &channel) {
    channel_findings found;
    std::vector<stretch> all = channel.stretches;
    std::sort(all.begin(), all.end(), [](const stretch &a, const stretch &b) {
        return a.first != b.first ? a.first < b.first : a.last < b.last;
    });
    for (const stretch &s : all) {
        if (found.covered.empty()) {
            found.covered.push_back(s);
            continue;
        }
        stretch &cur = found.covered.back();
        const double rate = lower_rate(cur.rate, s.rate);
        const int64_t step = interval_us(rate);
        // Two samples nearer than half an interval stand for one instant.
        // (In doubles: no sum or difference of two times can overflow.)
        const double apart = static_cast<double>(s.first) - static_cast<double>(cur.last);
        if (2.0 * apart < static_cast<double>(step)) {
            found.overlaps.push_back({s.first, std::min(s.last, cur.last)});
            cur.last = std::max(cur.last, s.last);
            cur.rate = rate;
        } else if (2.0 * apart > 3.0 * static_cast<double>(step)) {
            found.gaps.push_back({cur.last, s.first});
            found.covered.push_back(s);
        } else {
            cur.last = std::max(cur.last, s.last);
            cur.rate = rate;
        }
    }
    // Overlaps one after another (a recording held twice) are one overlap.
    std::vector<overlap> joined;
    for (const overlap &o : found.overlaps) {
        if (!joined.empty() && o.first <= joined.back().last)
            joined.back().last = std::max(joined.back().last, o.last);
        else
            joined.push_back(o);
    }
    found.overlaps = std::move(joined);

    std::vector<channel_setting> settings = channel.settings;
    std::stable_sort(settings.begin(), settings.end(),
                     [](const channel_setting &a, const channel_setting &b) { return a.time < b.time; });
    for (std::size_t i = 1; i < settings.size(); ++i)
        if (!same_settings(settings[i - 1], settings[i])) found.changes.push_back({settings[i - 1], settings[i]});
    return found;
}

} // namespace report
