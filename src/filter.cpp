// The low-pass FIR filter of the conditioning chain.
//
// One circular history of 129 samples is shared by every channel. Initialize
// refills it but keeps the write index where the previous channel left it;
// since the refilled history is uniform, the index does not change any output.
//
// Tap alignment: the sum starts at the slot just after the newest sample, so
// H[0] meets the oldest sample, H[1] the newest and H[k] (k >= 1) the sample
// k - 1 steps old. This one-slot rotation is part of the established output
// and is kept; with the symmetric table the output lags the input by 63
// samples. The sum runs in a fixed order, so results do not depend on the
// compiler (contraction into fused multiply-add is off for the whole build).
//
// Only filter.h is included here: the name index must not meet the C
// library's index() from <strings.h>, which <cstring> brings in.
#include "filter.h"

const double H[129] = {
#include "filter.dat"
};

namespace {

constexpr int TAPS = 129;

double prev_x[TAPS];
int index = 0;

} // namespace

void Initialize(double value) {
    for (double &slot : prev_x) {
        slot = value;
    }
}

double Filter(double x) {
    prev_x[index] = x;
    ++index;
    if (index > TAPS - 1) {
        index = 0;
    }
    double sum = 0.0;
    int j = index;
    for (int k = 0; k < TAPS; ++k) {
        sum += H[k] * prev_x[j];
        --j;
        if (j < 0) {
            j += TAPS;
        }
    }
    return sum;
}

int filter_index_for_tests() {
    return index;
}

void reset_filter_state_for_tests() {
    index = 0;
    Initialize(0.0);
}

// Block form of Filter. The history and the inputs are laid out in one linear
// buffer, oldest first, so that no tap needs the circular wrap:
//   line[HISTORY - t] = the input t steps before the block (t = 1 .. 129),
//   line[HISTORY + m] = the block's input m.
// Output m is then, term by term in the same order as Filter,
//   0.0 + H[0] * line[m + 1] + H[1] * line[m + 129] + ... + H[128] * line[m + 2],
// i.e. H[k] meets line[m + 130 - k] for k >= 1. Eight outputs are summed side
// by side: each keeps its own sum in that order, so nothing is reassociated and
// the results equal Filter's exactly; the eight independent sums merely let the
// processor overlap them instead of waiting on one long chain of additions.
namespace {

constexpr int HISTORY = TAPS;
constexpr long CHUNK = 2048;
constexpr int LANES = 8;

// Outputs m = first .. first + 7 of the current chunk. The sums must live in
// registers for the speed-up to show; an array of eight sums is kept in memory
// by the compiler. With GCC or Clang the eight sums are four two-lane vectors
// (plain SSE2 on x86-64): each lane is still its own sum, the products and
// additions are the same IEEE operations, and contraction is off, so the lanes
// give Filter's results exactly. The project builds with GCC and Clang only.
typedef double pair_t __attribute__((vector_size(2 * sizeof(double))));

inline pair_t load_pair(const double *p) {
    pair_t v;
    __builtin_memcpy(&v, p, sizeof v);
    return v;
}

inline void lanes_of_outputs(const double *line, long first, double *out) {
    const double *oldest = line + first + 1;
    const pair_t zero = {0.0, 0.0};
    const pair_t h0 = {H[0], H[0]};
    pair_t a0 = zero + h0 * load_pair(oldest);
    pair_t a1 = zero + h0 * load_pair(oldest + 2);
    pair_t a2 = zero + h0 * load_pair(oldest + 4);
    pair_t a3 = zero + h0 * load_pair(oldest + 6);
    for (int k = 1; k < TAPS; ++k) {
        const pair_t h = {H[k], H[k]};
        const double *src = line + first + (TAPS + 1 - k);
        a0 += h * load_pair(src);
        a1 += h * load_pair(src + 2);
        a2 += h * load_pair(src + 4);
        a3 += h * load_pair(src + 6);
    }
    __builtin_memcpy(out, &a0, sizeof a0);
    __builtin_memcpy(out + 2, &a1, sizeof a1);
    __builtin_memcpy(out + 4, &a2, sizeof a2);
    __builtin_memcpy(out + 6, &a3, sizeof a3);
}

#if defined(__x86_64__)
// The same sums sixteen outputs at a time in four-lane AVX2 vectors, on
// processors that have them (chosen at run time). Only the width differs:
// each lane still forms its own output's sum, term by term in the same order,
// with separate multiplications and additions (no fused multiply-add: that
// is a different instruction set, and contraction is off), so the digits do
// not depend on which path ran.
typedef double quad_t __attribute__((vector_size(4 * sizeof(double))));

__attribute__((target("avx2"))) inline quad_t load_quad(const double *p) {
    quad_t v;
    __builtin_memcpy(&v, p, sizeof v);
    return v;
}

__attribute__((target("avx2"))) void sixteen_outputs_avx2(const double *line, long first, double *out) {
    const double *oldest = line + first + 1;
    const quad_t zero = {0.0, 0.0, 0.0, 0.0};
    const quad_t h0 = {H[0], H[0], H[0], H[0]};
    quad_t a0 = zero + h0 * load_quad(oldest);
    quad_t a1 = zero + h0 * load_quad(oldest + 4);
    quad_t a2 = zero + h0 * load_quad(oldest + 8);
    quad_t a3 = zero + h0 * load_quad(oldest + 12);
    for (int k = 1; k < TAPS; ++k) {
        const quad_t h = {H[k], H[k], H[k], H[k]};
        const double *src = line + first + (TAPS + 1 - k);
        a0 += h * load_quad(src);
        a1 += h * load_quad(src + 4);
        a2 += h * load_quad(src + 8);
        a3 += h * load_quad(src + 12);
    }
    __builtin_memcpy(out, &a0, sizeof a0);
    __builtin_memcpy(out + 4, &a1, sizeof a1);
    __builtin_memcpy(out + 8, &a2, sizeof a2);
    __builtin_memcpy(out + 12, &a3, sizeof a3);
}

bool avx2_available() {
    return __builtin_cpu_supports("avx2");
}
#else
void sixteen_outputs_avx2(const double *, long, double *) {}
bool avx2_available() {
    return false;
}
#endif

void eight_outputs(const double *line, long first, double *out) {
    lanes_of_outputs(line, first, out);
}

// A group of outputs computed together: how many, and by what.
struct lane_path {
    long width;
    void (*outputs)(const double *line, long first, double *out);
};

constexpr lane_path PORTABLE_PATH = {LANES, eight_outputs};
constexpr lane_path AVX2_PATH = {16, sixteen_outputs_avx2};

lane_path chosen_path() {
    static const lane_path path = avx2_available() ? AVX2_PATH : PORTABLE_PATH;
    return path;
}

FilterLanes forced_lanes = FilterLanes::AUTOMATIC;

lane_path current_path() {
    switch (forced_lanes) {
    case FilterLanes::PORTABLE:
        return PORTABLE_PATH;
    case FilterLanes::AVX2:
        return avx2_available() ? AVX2_PATH : PORTABLE_PATH;
    default:
        return chosen_path();
    }
}

inline double one_output(const double *line, long m) {
    double sum = 0.0;
    sum += H[0] * line[m + 1];
    for (int k = 1; k < TAPS; ++k) {
        sum += H[k] * line[m + TAPS + 1 - k];
    }
    return sum;
}

} // namespace

namespace {

// Filters count values in place, line[0 .. HISTORY) holding the 129 inputs
// before them, oldest first; afterwards it holds the 129 newest inputs.
void filter_after_history(double *line, double *values, long count) {
    const lane_path path = current_path();
    long done = 0;
    while (done < count) {
        const long m_count = count - done < CHUNK ? count - done : CHUNK;
        double *block = values + done;
        for (long m = 0; m < m_count; ++m) {
            line[HISTORY + m] = block[m];
        }
        long m = 0;
        for (; m + path.width <= m_count; m += path.width) {
            path.outputs(line, m, block + m);
        }
        for (; m < m_count; ++m) {
            block[m] = one_output(line, m);
        }
        // The newest HISTORY inputs become the history of the next chunk.
        for (int t = 0; t < HISTORY; ++t) {
            line[t] = line[m_count + t];
        }
        done += m_count;
    }
}

} // namespace

void filter_block(double *values, long count) {
    if (count <= 0) {
        return;
    }
    static double line[HISTORY + CHUNK];
    for (int t = 1; t <= HISTORY; ++t) {
        int slot = index - t;
        if (slot < 0) {
            slot += TAPS;
        }
        line[HISTORY - t] = prev_x[slot];
    }
    filter_after_history(line, values, count);
    // Leave the shared state as count calls of Filter would: the write index
    // advanced by count, and the 129 newest inputs in their circular slots.
    index = static_cast<int>((index + count % TAPS) % TAPS);
    for (int t = 1; t <= HISTORY; ++t) {
        int slot = index - t;
        if (slot < 0) {
            slot += TAPS;
        }
        prev_x[slot] = line[HISTORY - t];
    }
}

void filter_with_history(const double *before, double *values, long count) {
    double line[HISTORY + CHUNK];
    for (int t = 0; t < HISTORY; ++t) {
        line[t] = before[t];
    }
    filter_after_history(line, values, count);
}

void filter_skip(const double *newest, long count) {
    if (count <= 0) {
        return;
    }
    const long kept = count < TAPS ? count : TAPS;
    index = static_cast<int>((index + (count - kept) % TAPS) % TAPS);
    for (long i = 0; i < kept; ++i) {
        prev_x[index] = newest[i];
        ++index;
        if (index > TAPS - 1) {
            index = 0;
        }
    }
}

bool filter_has_avx2_for_tests() {
    return avx2_available();
}

void force_filter_lanes_for_tests(FilterLanes lanes) {
    forced_lanes = lanes;
}
