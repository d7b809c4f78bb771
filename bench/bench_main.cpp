// brantel-bench: times the converter on realistic amounts of data.
//
// It writes its inputs with brantel-fixture into a fresh temporary directory:
// a one-day and a seven-day three-channel 20 Hz vx24 recording, one day of 48
// half-hour binary !S512 files at 18 Hz in an archive tree, a one-day TM4
// file, and 1,000 consecutive half-hour 20 Hz vx24 files (--many N changes
// the count). It then runs brantel on them in every layout, each case several times
// with the outputs deleted in between, and prints the median wall time,
// throughput and peak resident memory (from wait4's resource usage of the
// child) of each case. The default four-column conversion of the one-day
// recording is set against a plain fprintf implementation (whose output must
// be byte-identical), against numpy's savetxt writing the same rows (where
// /usr/bin/python3 has numpy), against writing the same output bytes from
// memory with write(2), and against cp of the output file.
//
// One "sample" below is one instant of all channels (one output row of the
// four-column layout); MB are 10^6 bytes.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

struct tools {
    std::string brantel;
    std::string fixture;
    std::string baseline;
    std::string floor;
    std::string savetxt; // empty: numpy is not installed
    std::string mseed_baseline;
};

// numpy's savetxt baseline runs under the system Python, which has numpy
// when the Debian package is installed.
constexpr const char *SYSTEM_PYTHON = "/usr/bin/python3";

struct measurement {
    double wall = 0;   // seconds
    double cpu = 0;    // user and system seconds of the child
    long rss_kb = 0;   // peak resident set of the child
};

[[noreturn]] void die(const std::string &what) {
    std::fprintf(stderr, "brantel-bench: %s\n", what.c_str());
    std::exit(1);
}

// Writes out what earlier steps left dirty in the page cache. Without it the
// kernel's background writeback of the previous run's output (or of the
// generated inputs) competes with the next measured command and slows its
// writes by up to ten times, whichever command it happens to be.
void settle(const fs::path &dir) {
    int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY);
    if (fd < 0) return;
    ::syncfs(fd);
    ::close(fd);
}

// Runs argv in cwd with standard output and error going to files; returns the
// exit status and fills in the wall time and the peak resident memory. The
// file system is settled first, untimed.
int run(const std::vector<std::string> &argv, const fs::path &cwd, const fs::path &out, const fs::path &err,
        measurement &m) {
    std::vector<char *> args;
    for (const std::string &a : argv)
        args.push_back(const_cast<char *>(a.c_str()));
    args.push_back(nullptr);
    std::fflush(nullptr);
    settle(cwd);
    const auto begin = std::chrono::steady_clock::now();
    pid_t pid = ::fork();
    if (pid < 0) die("fork failed");
    if (pid == 0) {
        int o = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        int e = ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (o < 0 || e < 0 || ::chdir(cwd.c_str()) != 0) ::_exit(126);
        ::dup2(o, 1);
        ::dup2(e, 2);
        ::execvp(args[0], args.data());
        ::_exit(127);
    }
    int status = 0;
    struct rusage ru {};
    if (::wait4(pid, &status, 0, &ru) != pid) die("wait4 failed");
    const auto end = std::chrono::steady_clock::now();
    m.wall = std::chrono::duration<double>(end - begin).count();
    m.rss_kb = ru.ru_maxrss;
    m.cpu = static_cast<double>(ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) +
            static_cast<double>(ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1e6;
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    return 128 + (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
}

std::string read_text(const fs::path &p) {
    std::ifstream in(p);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Runs a helper command that must succeed; returns its measurement.
measurement run_checked(const std::vector<std::string> &argv, const fs::path &work) {
    measurement m;
    const fs::path out = work / "helper.out", err = work / "helper.err";
    if (int status = run(argv, work, out, err, m); status != 0) {
        std::string line;
        for (const std::string &a : argv)
            line += a + " ";
        die("command failed with status " + std::to_string(status) + ": " + line + "\n" + read_text(err));
    }
    return m;
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 == 1 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

std::set<fs::path> files_below(const fs::path &dir) {
    std::set<fs::path> files;
    for (const auto &e : fs::recursive_directory_iterator(dir))
        if (e.is_regular_file()) files.insert(e.path());
    return files;
}

struct bench_case {
    std::string label;
    std::vector<std::string> args; // after the program name
    long long samples;             // instants of the input
    bool reference = false;        // interleave the fprintf baseline, write(2) floor and cp
    bool floor = false;            // interleave the write(2) floor and cp only
};

struct case_result {
    double wall = 0;
    double cpu = 0;
    double rss_kb = 0;
    long long out_bytes = 0;
    double baseline = 0, floor = 0, cp = 0, savetxt = 0; // medians of the interleaved reference runs
    double best = 0, best_floor = 0;                     // fastest runs, less disturbed by other load
    bool identical = false;
};

class bench {
  public:
    bench(tools t, fs::path root) : m_tools(std::move(t)), m_root(std::move(root)) {
        m_in = m_root / "in";
        m_work = m_root / "work";
        m_cmp = m_root / "cmp";
        for (const fs::path &d : {m_in, m_work, m_cmp})
            fs::create_directories(d);
    }

    const fs::path &in() const { return m_in; }
    const fs::path &work() const { return m_work; }
    const fs::path &cmp() const { return m_cmp; }

    void fixture(std::vector<std::string> words) {
        words.insert(words.begin(), m_tools.fixture);
        run_checked(words, m_work);
    }

    void freeze_inputs() { m_inputs = files_below(m_in); }

    case_result measure(const bench_case &c, int runs) {
        std::vector<std::string> argv{m_tools.brantel};
        argv.insert(argv.end(), c.args.begin(), c.args.end());
        std::vector<double> walls, cpus, rss, baselines, floors, cps, savetxts;
        case_result r;
        r.identical = true;
        for (int i = 0; i < runs; ++i) {
            measurement m;
            const int status = run(argv, m_work, m_work / "stdout", m_work / "stderr", m);
            if (status != 0)
                die("brantel " + c.label + " ended with status " + std::to_string(status) + "\n" +
                    read_text(m_work / "stderr"));
            walls.push_back(m.wall);
            cpus.push_back(m.cpu);
            rss.push_back(static_cast<double>(m.rss_kb));
            std::vector<fs::path> outputs;
            long long bytes = 0;
            for (const fs::path &p : files_below(m_in))
                if (!m_inputs.count(p)) {
                    outputs.push_back(p);
                    bytes += static_cast<long long>(fs::file_size(p));
                }
            r.out_bytes = bytes;
            if ((c.reference || c.floor) && outputs.size() == 1) {
                const fs::path &produced = outputs.front();
                if (c.reference) {
                    const fs::path base = m_cmp / "baseline.out";
                    baselines.push_back(
                        run_checked({m_tools.baseline, c.args.back(), base.string()}, m_work).wall);
                    measurement same;
                    if (run({"cmp", "-s", base.string(), produced.string()}, m_work, m_work / "cmp.out",
                            m_work / "cmp.err", same) != 0)
                        r.identical = false;
                    fs::remove(base);
                    if (!m_tools.savetxt.empty()) {
                        savetxts.push_back(
                            run_checked({SYSTEM_PYTHON, m_tools.savetxt, c.args.back(), base.string()},
                                        m_work)
                                .wall);
                        fs::remove(base);
                    }
                }
                const fs::path dest = m_cmp / "floor.out";
                run_checked({m_tools.floor, produced.string(), dest.string()}, m_work);
                floors.push_back(std::strtod(read_text(m_work / "helper.out").c_str(), nullptr));
                fs::remove(dest);
                cps.push_back(run_checked({"cp", produced.string(), dest.string()}, m_work).wall);
                fs::remove(dest);
            }
            for (const fs::path &p : outputs)
                fs::remove(p);
            fs::remove(m_work / "logfile");
        }
        r.wall = median(walls);
        r.cpu = median(cpus);
        r.best = *std::min_element(walls.begin(), walls.end());
        if (!floors.empty()) r.best_floor = *std::min_element(floors.begin(), floors.end());
        r.rss_kb = median(rss);
        if (!baselines.empty()) r.baseline = median(baselines);
        if (!floors.empty()) r.floor = median(floors);
        if (!cps.empty()) r.cp = median(cps);
        if (!savetxts.empty()) r.savetxt = median(savetxts);
        return r;
    }

  private:
    tools m_tools;
    fs::path m_root, m_in, m_work, m_cmp;
    std::set<fs::path> m_inputs;
};

void usage() {
    std::fprintf(stderr,
                 "usage: brantel-bench --brantel PATH --fixture PATH --baseline PATH --floor PATH\n"
                 "                     [--savetxt SCRIPT] [--runs N] [--week-runs N] [--many N] [--keep]\n"
                 "                     --mseed-baseline PATH [--mseed-only] [--per-file-only]\n");
    std::exit(2);
}

const char *verdict(bool met) {
    return met ? "met" : "MISSED";
}

} // namespace

// The binary miniSEED layout against the four-column text of the same day:
// sizes against the text and the raw recording, and conversion times, the
// runs of the two layouts interleaved so that both see the same load.
void print_mseed_against_text(bench &b, const std::string &day, long long day_n, int runs) {
    const bench_case text{"vx24 day, four columns", {day}, day_n};
    const bench_case mseed{"vx24 day, --mseed", {"--mseed", day}, day_n};
    std::vector<double> text_walls, mseed_walls, text_cpus, mseed_cpus;
    long long text_bytes = 0, mseed_bytes = 0;
    for (int i = 0; i < runs; ++i) {
        const case_result t = b.measure(text, 1);
        const case_result m = b.measure(mseed, 1);
        text_walls.push_back(t.wall);
        mseed_walls.push_back(m.wall);
        text_cpus.push_back(t.cpu);
        mseed_cpus.push_back(m.cpu);
        text_bytes = t.out_bytes;
        mseed_bytes = m.out_bytes;
    }
    const double raw_bytes = static_cast<double>(fs::file_size(day));
    const double t = median(text_walls), m = median(mseed_walls);
    std::printf("\nbinary miniSEED against four-column text, one day, %d interleaved runs each:\n", runs);
    std::printf("  sizes: raw vx24 %.1f MB, four columns %.1f MB, miniSEED %.1f MB\n", raw_bytes / 1e6,
                static_cast<double>(text_bytes) / 1e6, static_cast<double>(mseed_bytes) / 1e6);
    std::printf("  miniSEED / four-column size                %6.3f  (target < 0.25)   %s\n",
                static_cast<double>(mseed_bytes) / static_cast<double>(text_bytes),
                verdict(4 * mseed_bytes < text_bytes));
    std::printf("  miniSEED / raw recording size              %6.3f\n",
                static_cast<double>(mseed_bytes) / raw_bytes);
    const double tc = median(text_cpus), mc = median(mseed_cpus);
    std::printf("  wall (median): four columns %.3f s, miniSEED %.3f s\n", t, m);
    std::printf("  CPU, user and system (median): four columns %.3f s, miniSEED %.3f s\n", tc, mc);
    std::printf("  miniSEED / four-column wall time           %6.3f  (target < 1)      %s\n", m / t,
                verdict(m < t));
    std::printf("  miniSEED / four-column CPU time            %6.3f  (target < 1)      %s\n", mc / tc,
                verdict(mc < tc));
}

// The goals of each file's conversion, every pair of commands run in turn
// (interleaved, so that both see the same load) and set against each other
// by the ratio of their medians:
//   --mseed of the day against the single-threaded libmseed converter
//     (bench-mseed-baseline: read, Steim-2 pack, write, sync and rename);
//   the four-column day against the durable write of its finished bytes from
//     memory (bench-write-floor --durable: temporary file, fsync, rename);
//   -u 4 -f against the plain conversion, seconds per output byte;
//   --identify of the day against reading it once (cat to /dev/null), both
//     from the page cache.
void print_per_file_goals(bench &b, const tools &t, const std::string &day, int runs, int identify_runs) {
    const bench_case plain{"vx24 day, four columns", {day}, 0};
    const bench_case mseed{"vx24 day, --mseed", {"--mseed", day}, 0};
    const bench_case u4f{"vx24 day, -u 4 -f", {"-u", "4", "-f", day}, 0};
    const fs::path work = b.work(), floor_out = b.cmp() / "floor.out", base_out = b.cmp() / "baseline.mseed";
    std::vector<double> mseed_walls, base_walls, plain_walls, floor_walls, u4f_per_byte, plain_per_byte;
    std::vector<double> phases[4];
    for (int i = 0; i < runs; ++i) {
        mseed_walls.push_back(b.measure(mseed, 1).wall);
        base_walls.push_back(run_checked({t.mseed_baseline, day, base_out.string()}, work).wall);
        double read_s = 0, pack_s = 0, write_s = 0, sync_s = 0;
        if (std::sscanf(read_text(work / "helper.out").c_str(), "read %lf pack %lf write %lf sync %lf", &read_s,
                        &pack_s, &write_s, &sync_s) == 4) {
            phases[0].push_back(read_s);
            phases[1].push_back(pack_s);
            phases[2].push_back(write_s);
            phases[3].push_back(sync_s);
        }
        fs::remove(base_out);
        const case_result p = b.measure(plain, 1);
        plain_walls.push_back(p.wall);
        plain_per_byte.push_back(p.wall / static_cast<double>(p.out_bytes));
        // The floor writes the bytes of the conversion just made; one is made
        // for it untimed.
        run_checked({t.brantel, "--quiet", day}, work);
        const fs::path made = fs::path(day).replace_extension("tm4");
        run_checked({t.floor, "--durable", made.string(), floor_out.string()}, work);
        floor_walls.push_back(std::strtod(read_text(work / "helper.out").c_str(), nullptr));
        fs::remove(floor_out);
        fs::remove(made);
        fs::remove(work / "logfile");
        const case_result u = b.measure(u4f, 1);
        u4f_per_byte.push_back(u.wall / static_cast<double>(u.out_bytes));
    }
    std::vector<double> identify_walls, cat_walls;
    for (int i = 0; i < identify_runs; ++i) {
        measurement m;
        run({t.brantel, "--identify", day}, work, "/dev/null", work / "identify.err", m);
        identify_walls.push_back(m.wall);
        run({"cat", day}, work, "/dev/null", work / "cat.err", m);
        cat_walls.push_back(m.wall);
    }
    const double mseed_ratio = median(mseed_walls) / median(base_walls);
    const double plain_ratio = median(plain_walls) / median(floor_walls);
    const double u4f_ratio = median(u4f_per_byte) / median(plain_per_byte);
    const double identify_ratio = median(identify_walls) / median(cat_walls);
    std::printf("\nper-file goals, one day (medians of %d interleaved runs; %d for --identify):\n", runs,
                identify_runs);
    std::printf("  libmseed converter %.3f s (read %.3f, pack %.3f, write %.3f, sync and rename %.3f); "
                "brantel --mseed %.3f s\n",
                median(base_walls), median(phases[0]), median(phases[1]), median(phases[2]), median(phases[3]),
                median(mseed_walls));
    std::printf("  durable write floor of the four columns %.3f s; brantel %.3f s\n", median(floor_walls),
                median(plain_walls));
    std::printf("  cat to /dev/null %.4f s; brantel --identify %.4f s\n", median(cat_walls),
                median(identify_walls));
    std::printf("  --mseed / libmseed converter                   %6.2f  (target <= 0.8)   %s\n", mseed_ratio,
                verdict(mseed_ratio <= 0.8));
    std::printf("  four columns / durable write floor             %6.2f  (target <= 1.3)   %s\n", plain_ratio,
                verdict(plain_ratio <= 1.3));
    std::printf("  -u 4 -f / plain, time per output byte          %6.2f  (target <= 1.2)   %s\n", u4f_ratio,
                verdict(u4f_ratio <= 1.2));
    std::printf("  --identify / cat                               %6.2f  (target <= 2)     %s\n",
                identify_ratio, verdict(identify_ratio <= 2));
}

int main(int argc, char **argv) {
    tools t;
    int runs = 5, week_runs = 3, many = 1000;
    bool keep = false;
    bool mseed_only = false;    // only the miniSEED against four-column comparison
    bool per_file_only = false; // only the per-file goals
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc) usage();
            return argv[++i];
        };
        if (a == "--brantel")
            t.brantel = fs::absolute(value());
        else if (a == "--fixture")
            t.fixture = fs::absolute(value());
        else if (a == "--baseline")
            t.baseline = fs::absolute(value());
        else if (a == "--floor")
            t.floor = fs::absolute(value());
        else if (a == "--savetxt")
            t.savetxt = fs::absolute(value());
        else if (a == "--many")
            many = std::atoi(value().c_str());
        else if (a == "--runs")
            runs = std::atoi(value().c_str());
        else if (a == "--week-runs")
            week_runs = std::atoi(value().c_str());
        else if (a == "--keep")
            keep = true;
        else if (a == "--mseed-baseline")
            t.mseed_baseline = fs::absolute(value());
        else if (a == "--mseed-only")
            mseed_only = true;
        else if (a == "--per-file-only")
            per_file_only = true;
        else
            usage();
    }
    if (t.brantel.empty() || t.fixture.empty() || t.baseline.empty() || t.floor.empty() ||
        t.mseed_baseline.empty() || runs < 1 ||
        week_runs < 1 || many < 1)
        usage();
    if (!t.savetxt.empty() && std::system("/usr/bin/python3 -c 'import numpy' >/dev/null 2>&1") != 0)
        t.savetxt.clear();

    const char *tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/brantel-bench.XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) die("cannot make a temporary directory");
    const fs::path root = pattern;

    bench b(t, root);
    const fs::path in = b.in();
    const auto gen_begin = std::chrono::steady_clock::now();
    const std::string day = (in / "day.vx24").string();
    const std::string week = (in / "week.vx24").string();
    const std::string tm4 = (in / "daytm4.tm4").string();
    b.fixture({"vx24", "out=" + day, "duration=86400", "wave=sine", "amp=3000", "noise=20"});
    if (mseed_only || per_file_only) {
        b.freeze_inputs();
        if (mseed_only) print_mseed_against_text(b, day, 86400LL * 20, runs);
        if (per_file_only) print_per_file_goals(b, t, day, runs, 21);
        if (!keep) fs::remove_all(root);
        return 0;
    }
    b.fixture({"vx24", "out=" + week, "duration=604800", "wave=sine", "amp=3000", "noise=20"});
    b.fixture({"tm4", "out=" + tm4, "duration=86400", "wave=sine", "amp=3000", "noise=20"});
    // One day of half-hour files in the archive tree year/month/day, named
    // station letter, last digit of the year, month, day, half-hour index.
    // 63 blocks of 512 samples at 18 Hz: 1792 s of every half hour.
    std::vector<std::string> halves;
    for (int h = 0; h < 48; ++h) {
        char name[64], clock[16];
        std::snprintf(name, sizeof name, "2016/05/20160504/e60504%02d.dat", h);
        std::snprintf(clock, sizeof clock, "%02d:%02d:00", h / 2, h % 2 * 30);
        halves.push_back((in / name).string());
        b.fixture({"vx16bin", "out=" + halves.back(), "kind=S512", "freq=18", "gain=2", "station=e",
                   "date=2016-05-04", std::string("time=") + clock, "blocks=63",
                   "start=" + std::to_string(h * 1800), "pattern=sine", "amp=3000"});
    }
    // Consecutive half-hour vx24 files, 20 Hz, three channels.
    std::vector<std::string> many_files;
    for (int k = 0; k < many; ++k) {
        char name[64];
        std::snprintf(name, sizeof name, "many/h%04d.vx24", k);
        fs::create_directories(in / "many");
        many_files.push_back((in / name).string());
        b.fixture({"vx24", "out=" + many_files.back(), "seconds=" + std::to_string(1500000000LL + 1800LL * k),
                   "duration=1800", "wave=sine", "amp=3000", "noise=20"});
    }
    b.freeze_inputs();
    const double gen_seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - gen_begin).count();

    const long long day_n = 86400LL * 20, week_n = 7 * day_n, halves_n = 48LL * 63 * 512;
    std::vector<bench_case> cases = {
        {"vx24 day, four columns", {day}, day_n, true},
        {"vx24 day, -1", {"-1", day}, day_n},
        {"vx24 day, -2", {"-2", day}, day_n},
        {"vx24 day, --average", {"--average", day}, day_n},
        {"vx24 day, --amplitude", {"--amplitude", day}, day_n},
        {"vx24 day, --vxdat", {"--vxdat", day}, day_n},
        {"vx24 day, --slist", {"--slist", day}, day_n},
        {"vx24 day, --tspair", {"--tspair", day}, day_n},
        {"vx24 day, --mseed", {"--mseed", day}, day_n},
        {"vx24 day, -o -u 4 -f", {"-o", "-u", "4", "-f", day}, day_n},
        {"vx24 day, -u 4", {"-u", "4", day}, day_n},
        {"vx24 day, -u 4 -f", {"-u", "4", "-f", day}, day_n},
        {"48 half-hour vx16, -c", {}, halves_n},
        {"TM4 day, -2", {"-2", tm4}, day_n},
        {"many half-hour vx24, -c", {"-c"}, 36000LL * many},
        {"vx24 week, four columns", {week}, week_n, false, true},
    };
    // Cases named by their labels, so that adding a case does not shift them.
    auto case_index = [&](const std::string &label) {
        for (size_t i = 0; i < cases.size(); ++i)
            if (cases[i].label == label) return i;
        die("no bench case " + label);
    };
    const size_t HALVES_CASE = case_index("48 half-hour vx16, -c"), U4_CASE = case_index("vx24 day, -u 4"),
                 U4F_CASE = case_index("vx24 day, -u 4 -f"), MANY_CASE = case_index("many half-hour vx24, -c");
    cases[HALVES_CASE].args.push_back("-c");
    cases[HALVES_CASE].args.insert(cases[HALVES_CASE].args.end(), halves.begin(), halves.end());
    cases[MANY_CASE].args.insert(cases[MANY_CASE].args.end(), many_files.begin(), many_files.end());
    cases[MANY_CASE].label = std::to_string(many) + " half-hour vx24, -c";

    std::printf("brantel benchmark in %s (inputs generated in %.1f s)\n", root.c_str(), gen_seconds);
    std::printf(
        "median of %d runs (%d for the week); a sample is one instant of all channels; MB = 10^6 bytes\n\n",
        runs, week_runs);
    std::printf("%-26s %9s %8s %9s %8s %8s %8s %9s\n", "case", "samples", "wall s", "Msamp/s", "out MB",
                "MB/s", "peak MB", "B/sample");
    std::vector<case_result> results;
    for (size_t i = 0; i < cases.size(); ++i) {
        const bench_case &c = cases[i];
        case_result r = b.measure(c, i + 1 == cases.size() || i == MANY_CASE ? week_runs : runs);
        results.push_back(r);
        std::printf("%-26s %9lld %8.3f %9.2f %8.1f %8.1f %8.1f %9.1f\n", c.label.c_str(), c.samples, r.wall,
                    static_cast<double>(c.samples) / r.wall / 1e6, static_cast<double>(r.out_bytes) / 1e6,
                    static_cast<double>(r.out_bytes) / 1e6 / r.wall, r.rss_kb * 1024 / 1e6,
                    r.rss_kb * 1024 / static_cast<double>(c.samples));
        std::fflush(stdout);
    }

    const case_result &d = results.front();
    const case_result &w = results.back();
    const case_result &u4 = results[U4_CASE];
    const case_result &u4f = results[U4F_CASE];
    const case_result &m = results[MANY_CASE];
    const double speedup = d.baseline / d.wall;
    const double over_floor = d.wall / d.floor;
    const double over_cp = d.wall / d.cp;
    const double per_sample_ratio =
        (w.wall / static_cast<double>(week_n)) / (d.wall / static_cast<double>(day_n));
    const double week_bytes = w.rss_kb * 1024 / static_cast<double>(week_n);
    const double day_bytes = d.rss_kb * 1024 / static_cast<double>(day_n);
    const double many_n = static_cast<double>(cases[MANY_CASE].samples);
    const double many_bytes = m.rss_kb * 1024 / many_n;
    const double many_ratio = (m.wall / many_n) / (d.wall / static_cast<double>(day_n));
    auto per_byte = [](const case_result &r) { return r.wall / static_cast<double>(r.out_bytes); };
    const double u4_ratio = per_byte(u4) / per_byte(d);
    const double u4f_ratio = per_byte(u4f) / per_byte(d);
    std::printf(
        "\nreference points, interleaved with the runs of the four-column conversions (whole processes,\n"
        "from the recording on disk to the output on disk, like brantel's own times):\n");
    std::printf(
        "  fprintf baseline: reads the vx24 file, turns the samples into doubles, then one fprintf\n"
        "    (\"%%-.*f\") per time and one snprintf (\"%%lf\") + trim + fputs per sample; same bytes.\n");
    std::printf("  numpy savetxt: %s\n",
                t.savetxt.empty() ? "skipped (no numpy for /usr/bin/python3)"
                                  : "Python reads the vx24 file with numpy.fromfile and writes the same rows "
                                    "(no comment line) with one numpy.savetxt call, \"%.4f %d %d %d\".");
    std::printf("  write(2) floor: the finished output file, already in memory, written with write(2) "
                "(time of the writing only).\n");
    std::printf("  cp: cp of the finished output file (a whole process).\n");
    std::printf(
        "  day:  fprintf baseline %.3f s (output identical to brantel's, by cmp: %s), savetxt %.3f s, "
        "write(2) floor %.3f s, cp %.3f s\n",
        d.baseline, d.identical ? "yes" : "NO", d.savetxt, d.floor, d.cp);
    std::printf("  week: write(2) floor %.3f s, cp %.3f s\n", w.floor, w.cp);
    std::printf("  fastest runs (less disturbed by other load on the machine): day brantel %.3f s, "
                "floor %.3f s (x%.1f); week brantel %.3f s, floor %.3f s (x%.1f)\n",
                d.best, d.best_floor, d.best / d.best_floor, w.best, w.best_floor, w.best / w.best_floor);
    std::printf("\nratios (medians):\n");
    std::printf("  fprintf baseline / brantel, day                %6.2f  (target >= 15)    %s\n", speedup,
                verdict(speedup >= 15));
    if (t.savetxt.empty())
        std::printf("  numpy savetxt / brantel, day                   skipped (numpy not installed)\n");
    else
        std::printf("  numpy savetxt / brantel, day                   %6.2f  (target >= 20)    %s\n",
                    d.savetxt / d.wall, verdict(d.savetxt / d.wall >= 20));
    std::printf("  brantel / cp of the output, day                %6.2f  (target <= 3)     %s\n", over_cp,
                verdict(over_cp <= 3));
    std::printf("  brantel / write(2) floor, day                  %6.2f\n", over_floor);
    std::printf("  brantel / write(2) floor, week                 %6.2f\n", w.wall / w.floor);
    std::printf("  -u 4 / plain, time per output byte            %6.2f  (target <= 1.2)   %s\n", u4_ratio,
                verdict(u4_ratio <= 1.2));
    std::printf("  -u 4 -f / plain, time per output byte         %6.2f  (target <= 1.2)   %s\n", u4f_ratio,
                verdict(u4f_ratio <= 1.2));
    std::printf("  time per sample, %d files -c / one day      %6.2f  (target <= 1.15)  %s\n", many,
                many_ratio, verdict(many_ratio <= 1.15));
    std::printf("  time per sample, week / day                    %6.2f  (target <= 1.15)  %s\n",
                per_sample_ratio, verdict(per_sample_ratio <= 1.15));
    std::printf(
        "  peak bytes per sample: day %.1f, week %.1f, %d files -c %.1f  (targets: -c <= day; week <= 60)  "
        "%s %s\n",
        day_bytes, week_bytes, many, many_bytes, verdict(many_bytes <= day_bytes * 1.001),
        verdict(week_bytes <= 60));

    print_mseed_against_text(b, day, day_n, runs);
    print_per_file_goals(b, t, day, runs, 21);

    if (keep)
        std::printf("\ninputs kept in %s\n", root.c_str());
    else
        fs::remove_all(root);
    return d.identical ? 0 : 1;
}
