#include "vxfil/vxfil_base.h"

namespace VxFil {

Vxfil_Base::Vxfil_Base(const char* /*filename*/) {}

Vxfil_Base::~Vxfil_Base() = default;

double Vxfil_Base::raw2volt(int32_t raw, const vx_channel& ch) const {
    long double v = static_cast<long double>(raw) * ch.m_v_max;
    v *= ch.m_ext_gain;
    return static_cast<double>(v);
}

const char* Vxfil_Base::station_name() const {
    return stationid2stationname.at(static_cast<STATIONS>(m_header.header.m_station));
}

} // namespace VxFil
