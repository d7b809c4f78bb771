// The facts of a converted recording (see recording_facts in sds_index.h),
// made from the recording as read: per channel the codes its miniSEED
// records carry, its first and last sample time, rate, volts-per-count
// factor, external gain, samples and continuous stretches.
#pragma once

#include <filesystem>
#include <string>

#include "sds_index.h"
#include "vxfil/vxfil_base.h"

// The codes are `network`, the station code of channel series n of
// `station` and the channel code of `rate`: those of the records the
// recording's samples go into (for recordings combined with -c, the first
// one's station and rate). Channels without samples are left out. A station
// code longer than miniSEED allows ends the process with one line.
sds::recording_facts describe_recording(const VxFil::Vxfil_Base &rec, const std::filesystem::path &path,
                                        const std::string &run, const std::string &network,
                                        const std::string &station, double rate);
