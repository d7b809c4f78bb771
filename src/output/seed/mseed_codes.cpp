// SEED codes of the binary miniSEED layout.
#include "mseed_codes.h"

#include "miniseed.h"

namespace {

// Band codes for sensors with a corner period of 10 s or more, by the lowest
// sample rate of each band, highest band first. Rates at or above 5000 Hz
// get J, the later addition to the classic table. The bands below 10 Hz do
// not depend on the corner period; L, V and U stand for "about 1, 0.1 and
// 0.01 Hz" and take everything above the next lower band.
struct band {
    double lowest_rate; // inclusive
    char code;
};

constexpr band BANDS[] = {
    {5000.0, 'J'}, {1000.0, 'F'}, {250.0, 'C'}, {80.0, 'H'},   {10.0, 'B'},    {1.0, 'M'},
    {0.1, 'L'},    {0.01, 'V'},   {0.001, 'U'}, {0.0001, 'R'}, {0.00001, 'P'}, {0.000001, 'T'},
};

// M is "above 1 and below 10 Hz": exactly 1 Hz is L, and likewise a rate of
// exactly 0.1 is V and 0.01 is U; the lower bands include their bound.
bool in_band(const band &b, double rate) {
    const bool bound_belongs_below = b.code == 'M' || b.code == 'L' || b.code == 'V';
    return bound_belongs_below ? rate > b.lowest_rate : rate >= b.lowest_rate;
}

} // namespace

char band_code(double rate) {
    for (const band &b : BANDS)
        if (in_band(b, rate)) return b.code;
    return 'Q'; // below 0.000001 Hz
}

std::string channel_code(double rate) {
    return std::string(1, band_code(rate)) + "DF";
}

std::string station_code(const std::string &station, std::size_t ch) {
    std::string net, sta, loc, chan;
    miniseed_name(station, &net, &sta, &loc, &chan);
    std::string code = sta + std::to_string(ch + 1);
    for (char &c : code)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return code;
}

bool valid_network_code(std::string_view code) {
    if (code.empty() || code.size() > 2) return false;
    for (char c : code)
        if (!((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))) return false;
    return true;
}

bool valid_record_length(long length) {
    return length >= 256 && length <= 65536 && (length & (length - 1)) == 0;
}
