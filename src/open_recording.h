// Opening a recording for conversion and the checks every conversion makes
// of it before its samples are used. Each check ends the process with one
// line naming the file (status 1) when the recording fails it.
#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include "vxfil/legacy_reading.h"
#include "vxfil/vxdetect.h"

// First-generation reading as --legacy and --station ask for it.
VxFil::legacy_options legacy_reading_options();

// The recording reader for a path, with first-generation reading as the
// options ask for it; null when the file cannot be opened.
std::unique_ptr<VxFil::Vxfil_Base> open_recording(const std::filesystem::path& path);

// A first-generation recording whose station is known from nowhere; what()
// is the line that open_recording ends the process with.
struct no_station_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The same without ending the process: throws no_station_error instead.
std::unique_ptr<VxFil::Vxfil_Base> open_recording_or_throw(const std::filesystem::path& path);

// The sample rate must be usable for time steps: finite and above zero.
void check_rate(const VxFil::Vxfil_Base& rec, const std::filesystem::path& path);

// The channel records must name distinct series below `series` and below the
// file's own channel count; otherwise samples would land outside a series.
void check_channels(const VxFil::Vxfil_Base& rec, const std::filesystem::path& path, std::size_t series);

// A path in double quotes, as the messages name files.
std::string quoted(const std::filesystem::path& p);
