// Checks of an SDS archive written by `brantel --sds DIR`: the tree is walked,
// every path outside DIR/.brantel-archive must be a day file
// YEAR/NET/STA/CHAN.D/NET.STA.LOC.CHAN.D.YEAR.DOY whose records carry the
// path's codes and lie in the path's UTC day, sorted, uniform and of at most
// 32767 samples each; every day file is read with the tests' own SEED reader
// and with libmseed, which must agree. The samples then compare with the
// union of direct `--mseed` conversions, channel by channel.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace sds {

// One sample: its time (Unix microseconds), value, the rate of its record and
// its place in that record (0: the record's first sample, whose time the
// record states; the others' times follow from it and the rate).
struct sample {
    int64_t t_us = 0;
    double value = 0;
    double rate = 0;
    int32_t in_record = 0;
};

// Samples by channel NET.STA.LOC.CHAN, each channel sorted by time.
using channel_samples = std::map<std::string, std::vector<sample>>;

struct day_file {
    std::string channel; // NET.STA.LOC.CHAN of the path
    int year = 0, doy = 0;
    int record_length = 0;
    int encoding = -1;
    size_t records = 0;
    std::vector<double> rates;   // distinct rates of the records
    std::vector<sample> samples; // in record order
};

// Day files by path relative to the tree.
using day_files = std::map<std::string, day_file>;

// Walks the tree under `dir`, checks every path outside .brantel-archive
// (through EXPECT_* / ADD_FAILURE) and reads every day file.
day_files read_tree(const std::filesystem::path &dir);

// The samples of day files gathered by channel (sorted by time); two
// samples of a channel closer than half an interval are reported as a
// failure (each sample is kept once).
channel_samples channels_of(const day_files &files);

// Every sample of a miniSEED file (any record layout) by channel, read with
// the tests' own reader; libmseed must read the same.
channel_samples read_mseed(const std::filesystem::path &file);

// Adds `more` to `into`: a sample closer than half an interval to another of
// its channel with the bitwise-same value and rate is the same sample, kept
// once at the earlier time; any other such pair is returned as a conflict.
std::vector<std::string> add_samples(channel_samples &into, const channel_samples &more);

// UTC day (days since 1970) of a time in microseconds.
int64_t utc_day(int64_t t_us);

// Splits channels into the day files they make: path -> samples.
std::map<std::string, std::vector<sample>> split_into_days(const channel_samples &channels);

// The day file path of a channel NET.STA.LOC.CHAN on a UTC day.
std::string day_file_path(const std::string &channel, int64_t day);

// Compares two sample sets: the same channels, the same number of samples,
// bitwise the same values, and times within `tolerance_us` of `want`'s, which
// must be each sample's own time (a conversion with short records). A record
// states only its first sample's time, so a later sample of a record may
// also differ by as much as the record's rate puts it away from its own time:
// sample i of a record that starts at its first sample's own time T0 lies at
// T0 + i / rate, and that is where it is expected. Reports the first
// difference of each channel. Returns true when they are the same.
bool expect_same_samples(const channel_samples &got, const channel_samples &want, const std::string &what,
                         int64_t tolerance_us = 100);

// The same day files (paths) with the same samples in each.
bool expect_same_day_files(const day_files &got, const std::map<std::string, std::vector<sample>> &want,
                           const std::string &what, int64_t tolerance_us = 100);

// Paths (relative) of every temporary file (".brantel-tmp." names) under dir.
std::vector<std::string> temporaries(const std::filesystem::path &dir);

// Bytes and modification time of every regular file under dir; the files
// below .brantel-archive are included when `with_archive` is set.
struct file_state {
    std::string bytes;
    std::filesystem::file_time_type mtime;
    bool operator==(const file_state &) const = default;
};
std::map<std::string, file_state> snapshot(const std::filesystem::path &dir, bool with_archive);

// Reports every file added, removed or changed (bytes or modification time).
bool expect_unchanged(const std::map<std::string, file_state> &before,
                      const std::map<std::string, file_state> &after, const std::string &what);

// A time as 2016-05-04T23:00:00.025000Z.
std::string iso_time(int64_t t_us);

} // namespace sds
