// Shared by the report's tests: how often a text holds another.
#pragma once

#include <cstddef>
#include <string>

inline std::size_t count_of(const std::string &text, const std::string &what) {
    std::size_t n = 0;
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}
