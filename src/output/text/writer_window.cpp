#include "writer_window.h"

#include <stdexcept>
#include <string>

void check_window(const char* writer, const series_t& series, long start_i, long size) {
    check_window_length(writer, series.size(), start_i, size);
}

void check_window_length(const char* writer, std::size_t length, long start_i, long size) {
    bool bad = start_i < 0;
    if (!bad && size > 0) {
        unsigned long available =
            length >= static_cast<unsigned long>(start_i) ? length - static_cast<unsigned long>(start_i) : 0;
        bad = static_cast<unsigned long>(size) > available;
    }
    if (bad) {
        throw std::out_of_range(std::string(writer) + ": window of " + std::to_string(size) +
                                " samples from index " + std::to_string(start_i) +
                                " does not lie within a series of " + std::to_string(length) +
                                " samples");
    }
}

void check_window(const char* writer, const std::vector<series_t>& data, long start_i, long size) {
    for (const series_t& series : data) check_window(writer, series, start_i, size);
}

double first_time(double stm, const TimeAxis& time, long start_i) {
    if (stm < 0 && start_i >= 0 && static_cast<unsigned long>(start_i) < time.size())
        return time[static_cast<std::size_t>(start_i)];
    return stm;
}
