// The output writers. Each opens, fills and closes its own file.
//
// Common contract: the window is the rows [start_i, start_i + size) of the
// series and of the time axis; the caller guarantees that every series passed
// holds at least start_i + size values (the vxdat writer documents its own
// reach). stm is the first time to print (negative: time[start_i]), freq the
// sample rate; the printed time advances by 1/freq per row. comment, when not
// null, is written as the first line. Each writer returns the time after the
// last row. A file that cannot be opened ends the process with
// "Can't open file " and the quoted path, status 1; a failed write ends it
// with one line naming the file, status 1.
//
// The time decimals come from the last two times of the window, time[end-1]
// and time[end-2], read where they exist even before the window; a window
// ending before index 2 gets the decimals of a zero step.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "mseed_segments.h"
#include "series.h"
#include "sample_time_axis.h"
#include "conditioned_channels.h"
#include "vxfil/vx24_frames.h"

// One-column, two-column, average, SLIST and TSPAIR layouts (by output_type).
double write_tm(const std::filesystem::path& s, const series_t& values, const series_t& time, long start_i,
                long size, double stm, double freq, const char* comment);

// The time column alone; writes no file in the two-column layout.
double write_time(const std::filesystem::path& s, const series_t& time, long start_i, long size, double stm,
                  double freq, const char* comment);

// Four-column layout: time and every channel.
double write_all(const std::filesystem::path& s, const series_t& time, const std::vector<series_t>& data,
                 long start_i, long size, double stm, double freq, const char* comment);

// The same with the channels' values read from the one vx24 input as the
// rows are written (see vx24_frames.h): the series then stay empty.
double write_all_in_place(const std::filesystem::path& s, const TimeAxis& time, const VxFil::vx24_frames& frames,
                          long start_i, long size, double stm, double freq, const char* comment);

// The same with the channels resampled and filtered stretch by stretch as
// the rows are written (see conditioned_channels.h).
double write_all_conditioned(const std::filesystem::path& s, const TimeAxis& time,
                             const ConditionedChannels& channels, long start_i, long size, double stm, double freq,
                             const char* comment);

// Amplitude layout: time and the plain sum of the channels.
double write_amplitude(const std::filesystem::path& s, const series_t& time, const std::vector<series_t>& data,
                       long start_i, long size, double stm, double freq, const char* comment);

// Legacy dat layout: blocks of 512 samples of the first three channels.
double write_vxdat(const std::filesystem::path& s, const series_t& time, const std::vector<series_t>& data,
                   long start_i, long size, double stm, double freq, const char* comment);

// Binary miniSEED layout: the codes, rate, record length and segments of one
// file (see mseed_codes.h, mseed_segments.h and mseed_records.h).
struct mseed_file {
    std::string network;
    std::vector<std::string> stations; // one per series
    std::string channel;
    double rate = 0.0;
    int record_length = 4096;
    std::vector<sample_range> segments; // within the window, in order
};

// Every non-empty series, one after the other, each segment packed into
// records of its own; the sequence numbers run through the file. A segment
// that libmseed refuses ends the process with one line, status 1.
void write_mseed(const std::filesystem::path &s, const std::vector<series_t> &data, const series_t &time,
                 const mseed_file &file);

// The same with the counts read from the one vx24 input, channel by channel,
// as the records are packed, and the times of its regular axis: the series
// then stay empty. The frames have no values after the last whole frame, so
// that every channel has frames.frames() samples; columns from `channels`
// on are not written.
void write_mseed_in_place(const std::filesystem::path &s, const VxFil::vx24_frames &frames, const TimeAxis &time,
                          std::size_t channels, const mseed_file &file);
