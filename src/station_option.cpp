#include "station_option.h"

#include "vxfil/stations.h"

namespace {

// Every named station but "unknown", which is what a recording without a
// station gets, not a station one can choose.
bool choosable(VxFil::STATIONS id) {
    return id != VxFil::unknown;
}

} // namespace

int station_number_of_name(const std::string &name) {
    for (const auto &[id, text] : VxFil::stationid2stationname)
        if (choosable(id) && name == text) return id;
    return -1;
}

std::string accepted_station_names() {
    std::string names;
    for (const auto &[id, text] : VxFil::stationid2stationname) {
        if (!choosable(id)) continue;
        if (!names.empty()) names += ", ";
        names += text;
    }
    return names;
}
