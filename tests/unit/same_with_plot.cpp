#include "same_with_plot.h"

#include <gtest/gtest.h>

#include <set>

#include "child_process.h"

namespace fs = std::filesystem;

namespace {

std::set<std::string> names_in(const fs::path &dir) {
    std::set<std::string> names;
    for (const auto &e : fs::directory_iterator(dir))
        names.insert(e.path().filename().string());
    return names;
}

} // namespace

void expect_same_as_with_plot(const fs::path &dir, const std::vector<std::vector<std::string>> &cases,
                              bool every_case_writes) {
    const std::set<std::string> inputs = names_in(dir);
    for (const std::vector<std::string> &args : cases) {
        std::string what;
        for (const std::string &arg : args)
            what += arg + " ";
        const child_result plain = run_child(dir, BRANTEL_BIN, args);
        std::vector<std::string> outputs;
        for (const std::string &name : names_in(dir))
            if (inputs.count(name) == 0 && name != "logfile") outputs.push_back(name);
        if (every_case_writes) {
            ASSERT_FALSE(outputs.empty()) << what << plain.err;
        }
        std::vector<std::string> kept;
        for (const std::string &o : outputs) {
            kept.push_back(file_bytes(dir / o));
            fs::remove(dir / o);
        }
        std::vector<std::string> whole_args = {"--plot"};
        whole_args.insert(whole_args.end(), args.begin(), args.end());
        const child_result whole = run_child(dir, BRANTEL_BIN, whole_args);
        EXPECT_EQ(plain.status, whole.status) << what;
        EXPECT_EQ(plain.out, whole.out) << what;
        EXPECT_EQ(plain.err, whole.err) << what;
        for (std::size_t i = 0; i < outputs.size(); ++i) {
            EXPECT_TRUE(file_bytes(dir / outputs[i]) == kept[i]) << what << outputs[i];
            fs::remove(dir / outputs[i]);
        }
        for (const auto &e : fs::directory_iterator(dir))
            if (e.path().extension() == ".png") fs::remove(e.path());
    }
}
