// First-generation reading of comment-headed recordings: the recordings of
// the oldest recorders (first line "Tidserier RATE GAIN", no block stamps)
// and those with type 1 or type 2 comments, which name no station.
#pragma once

#include <stdexcept>
#include <string>

namespace VxFil {

struct legacy_options {
    bool m_enabled = false;
    // Station number for recordings whose comment names none; -1: take the
    // station letter of the file name.
    int m_station = -1;
};

// A first-generation recording whose station is known neither from its
// comment, nor from the options, nor from a station letter in its file name.
class missing_station : public std::runtime_error {
  public:
    explicit missing_station(const std::string &path)
        : std::runtime_error("no station for " + path), m_path(path) {}
    const std::string &path() const { return m_path; }

  private:
    std::string m_path;
};

// The line that names a missing station and the option that supplies one.
inline std::string missing_station_line(const std::string &path) {
    return "Error: \"" + path +
           "\" names no station, neither in its comment nor by a station letter in its file name; give one "
           "with --station NAME\n";
}

} // namespace VxFil
