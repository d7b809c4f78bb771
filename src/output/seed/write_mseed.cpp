// The binary miniSEED layout: every channel of the window as miniSEED 2
// records in one file.
#include <algorithm>
#include <cstdint>
#include <exception>
#include <memory>
#include <string_view>

#include "mseed_records.h"
#include "out_file.h"
#include "process_exit.h"
#include "writers.h"

void write_mseed(const std::filesystem::path &s, const std::vector<series_t> &data, const series_t &time,
                 const mseed_file &file) {
    OutFile out(s);
    const record_sink to_file = [&out](const char *bytes, std::size_t length) {
        out.put(std::string_view(bytes, length));
    };
    int sequence = 1;
    // One buffer for the integers of every segment, sized for the longest.
    long longest = 0;
    for (const sample_range &seg : file.segments)
        longest = std::max(longest, seg.end - seg.begin);
    std::unique_ptr<int32_t[]> scratch(new int32_t[static_cast<std::size_t>(longest)]);
    for (std::size_t ch = 0; ch < data.size(); ++ch) {
        if (data[ch].empty()) continue;
        const mseed_stream stream{file.network, file.stations[ch], "",
                                  file.channel, file.rate,         file.record_length};
        for (const sample_range &seg : file.segments) {
            const auto first = static_cast<std::size_t>(seg.begin);
            try {
                pack_segment(stream, data[ch].data() + first, time.data() + first,
                             static_cast<std::size_t>(seg.end - seg.begin), scratch.get(), sequence, to_file);
            } catch (const std::exception &e) {
                exit_with_line("Error: can't write file \"" + s.string() + "\": " + e.what() + "\n");
            }
        }
    }
    out.close();
}
