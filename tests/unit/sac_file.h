// The SAC files that mseed2sac writes (binary, little-endian), as far as
// the tests compare them.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

// The parts of a binary little-endian SAC file that the test compares: the
// header is 70 floats, 40 integers and 24 eight-byte texts (632 bytes), the
// samples follow as floats.
struct sac_file {
    float delta = 0, b = 0;
    int year = 0, jday = 0, hour = 0, minute = 0, second = 0, msec = 0, npts = 0;
    std::string station, channel, network;
    std::vector<float> samples;
};

inline sac_file read_sac(const std::string &bytes) {
    sac_file s;
    auto f = [&](int word) {
        float v;
        std::memcpy(&v, bytes.data() + 4 * word, 4);
        return v;
    };
    auto n = [&](int word) {
        int32_t v;
        std::memcpy(&v, bytes.data() + 4 * word, 4);
        return v;
    };
    auto text = [&](size_t offset) {
        std::string t = bytes.substr(offset, 8);
        while (!t.empty() && (t.back() == ' ' || t.back() == '\0'))
            t.pop_back();
        return t;
    };
    s.delta = f(0);
    s.b = f(5);
    s.year = n(70);
    s.jday = n(71);
    s.hour = n(72);
    s.minute = n(73);
    s.second = n(74);
    s.msec = n(75);
    s.npts = n(79);
    s.station = text(440);
    s.channel = text(600);
    s.network = text(608);
    for (int i = 0; i < s.npts && 632 + 4 * static_cast<size_t>(i) + 4 <= bytes.size(); ++i)
        s.samples.push_back(f(158 + i));
    return s;
}
