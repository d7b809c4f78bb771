// Quick-look pictures of an SDS tree (see quicklook_pictures.h).
#include "quicklook_pictures.h"

#include <system_error>

#include "html_text.h"
#include "report_time.h"

namespace report {

namespace fs = std::filesystem;

namespace {

// The day of a name "YYYY-MM-DD.png"; false for any other name.
bool day_of_picture(const std::string &name, int64_t &day) {
    if (name.size() != 14 || name.compare(10, 4, ".png") != 0 || name[4] != '-' || name[7] != '-') return false;
    for (std::size_t i : {0u, 1u, 2u, 3u, 5u, 6u, 8u, 9u})
        if (name[i] < '0' || name[i] > '9') return false;
    const civil_date date{std::stoi(name.substr(0, 4)), std::stoi(name.substr(5, 2)), std::stoi(name.substr(8, 2))};
    if (date.month < 1 || date.month > 12 || date.day < 1 || date.day > 31) return false;
    day = days_of(date);
    return day_text(day) == name.substr(0, 10);
}

} // namespace

void link_quicklooks(const fs::path &output, archive &a) {
    std::error_code ec;
    for (const auto &folder : fs::directory_iterator(output / QUICKLOOK_FOLDER, ec)) {
        if (!folder.is_directory(ec)) continue;
        const std::string recorder = folder.path().filename().string();
        for (const auto &file : fs::directory_iterator(folder.path(), ec)) {
            int64_t day = 0;
            const std::string name = file.path().filename().string();
            if (!file.is_regular_file(ec) || !day_of_picture(name, day)) continue;
            a.quicklooks[recorder][day] = std::string(QUICKLOOK_FOLDER) + "/" + recorder + "/" + name;
        }
    }
    for (auto &[id, channel] : a.channels) {
        const channel_codes &c = channel.codes;
        const auto pictures = a.quicklooks.find(c.network + "." + c.station + "." + c.location);
        if (pictures == a.quicklooks.end()) continue;
        for (const auto &[day, href] : pictures->second)
            channel.pictures.push_back({day * 86400000000LL, (day + 1) * 86400000000LL - 1, href,
                                        pictures->first + " " + day_text(day)});
    }
}

} // namespace report
