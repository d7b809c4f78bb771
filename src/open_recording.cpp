// Opening a recording for conversion and the checks every conversion makes
// of it before its samples are used.
#include "open_recording.h"

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "process_exit.h"
#include "settings.h"

std::string quoted(const std::filesystem::path& p) { return "\"" + p.string() + "\""; }

// The channel records must name distinct series that exist in the run and
// in the file; otherwise samples would land outside a series.
void check_channels(const VxFil::Vxfil_Base& rec, const std::filesystem::path& path, std::size_t series) {
    std::vector<bool> seen(series, false);
    for (const VxFil::vx_channel& ch : rec.m_channels) {
        unsigned number = ch.m_channel;
        if (number >= series || number >= rec.m_data.size())
            exit_with_line("Error: channel number " + std::to_string(number) + " in " + quoted(path) +
                   " is out of range (" + std::to_string(series) + " channel series)\n");
        if (seen[number])
            exit_with_line("Error: channel number " + std::to_string(number) + " repeats in " + quoted(path) + "\n");
        seen[number] = true;
    }
}

void check_rate(const VxFil::Vxfil_Base& rec, const std::filesystem::path& path) {
    double f = rec.get_frequency();
    if (!std::isfinite(f) || f <= 0.0) {
        char rate[64];
        std::snprintf(rate, sizeof rate, "%g", f);
        exit_with_line("Error: sample rate " + std::string(rate) + " of " + quoted(path) + " is not usable\n");
    }
}

VxFil::legacy_options legacy_reading_options() {
    VxFil::legacy_options options;
    options.m_enabled = legacy != 0;
    options.m_station = legacy_station;
    return options;
}

std::unique_ptr<VxFil::Vxfil_Base> open_recording_or_throw(const std::filesystem::path &path) {
    try {
        return std::unique_ptr<VxFil::Vxfil_Base>(VxFil::vxdetect(path.c_str(), 0.0, legacy_reading_options()));
    } catch (const VxFil::missing_station &) {
        throw no_station_error(VxFil::missing_station_line(path.string()));
    }
}

std::unique_ptr<VxFil::Vxfil_Base> open_recording(const std::filesystem::path &path) {
    // A pipe would lose the first bytes that tell its format and be read as
    // something else: it is refused with a line of its own.
    if (VxFil::names_a_pipe(path.c_str()))
        exit_with_line("Error: " + quoted(path) + " is a pipe, not a file: recordings are read from files\n");
    try {
        return open_recording_or_throw(path);
    } catch (const no_station_error &e) {
        exit_with_line(e.what());
    }
}
