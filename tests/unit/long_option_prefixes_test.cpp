// Users' scripts abbreviate long options (getopt_long takes any unique
// prefix: "--o" is --one-file, "--v" is --vxdat). long_option_prefixes.txt
// records, for every prefix of every long option, the option it selects
// (or "ambiguous"). A new option may add prefixes of its own but must leave
// every recorded one meaning what it meant; this test fails when it does not.
// A table entry stays valid when options are added, so the table only grows
// (with the prefixes of an option once it is released).
#include <getopt.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "entry.h"
#include "settings.h"

namespace {

const char *const TABLE = SOURCE_DIR "/tests/unit/long_option_prefixes.txt";

// What getopt_long makes of "--<prefix>" today: the name of the selected
// option, or "ambiguous". A following "1" feeds an option that takes an
// argument.
std::string meaning(const std::string &prefix) {
    std::string a0 = "brantel", a1 = "--" + prefix, a2 = "1";
    char *argv[] = {a0.data(), a1.data(), a2.data(), nullptr};
    optind = 0; // full re-initialisation of the parser
    opterr = 0;
    int index = -1;
    const struct option *opts = brantel_long_options();
    const int c = getopt_long(3, argv, brantel_short_options(), opts, &index);
    reset_settings(); // flag entries stored into the settings
    if (c == '?' || c == -1 || index < 0) return "ambiguous";
    return opts[index].name;
}

struct recorded {
    std::string prefix;
    std::string meaning;
};

std::vector<recorded> read_table() {
    std::vector<recorded> rows;
    std::ifstream in(TABLE);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream words(line);
        recorded r;
        words >> r.prefix >> r.meaning;
        rows.push_back(r);
    }
    return rows;
}

// The names of the options as they are now.
std::set<std::string> option_names() {
    std::set<std::string> names;
    for (const struct option *o = brantel_long_options(); o->name != nullptr; ++o)
        names.insert(o->name);
    return names;
}

} // namespace

TEST(LongOptionPrefixes, EveryRecordedPrefixKeepsItsMeaning) {
    // BRANTEL_PRINT_PREFIXES=1 prints the table of the current options, for
    // review when an option is added.
    if (std::getenv("BRANTEL_PRINT_PREFIXES")) {
        for (const std::string &name : option_names())
            for (size_t n = 1; n <= name.size(); ++n)
                std::cout << name.substr(0, n) << " " << meaning(name.substr(0, n)) << "\n";
    }
    const std::vector<recorded> rows = read_table();
    ASSERT_GE(rows.size(), 174u) << "cannot read " << TABLE;
    for (const recorded &r : rows)
        EXPECT_EQ(meaning(r.prefix), r.meaning) << "--" << r.prefix;
}

TEST(LongOptionPrefixes, KnownAbbreviations) {
    EXPECT_EQ(meaning("o"), "one-file");
    EXPECT_EQ(meaning("v"), "vxdat");
    EXPECT_EQ(meaning("s"), "ambiguous");
    EXPECT_EQ(meaning("nrsamples"), "nrsamples");
}
