#include "rows_together.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <thread>

#include "gap_warning.h"

namespace {

// About half a megabyte of four-column text: large enough that handing a
// block over costs nothing against formatting it, small enough that the
// first block is ready at once.
constexpr long DEFAULT_BLOCK = 16384;

long block_setting = std::thread::hardware_concurrency() > 1 ? DEFAULT_BLOCK : 0;

// The additions one by one. Apart from the plan's loop, whose vectors may
// call the allocator, the sum stays in one register; in the loop the
// compiler kept it in memory or moved it through another register on every
// addition, several times slower over a day's rows.
[[gnu::noinline]] double added_one_by_one(double stm, double tdiff, long rows) {
    for (long i = 0; i < rows; ++i)
        stm += tdiff;
    return stm;
}

// The same sum at once where every addition rounds alike. A positive normal
// stm in [2^E, 2^(E+1)) is M units of u = 2^(E-52), M in [2^52, 2^53), and
// tdiff is T = D + f units (D whole, 0 <= f < 1). While a sum stays below
// 2^(E+1), stm + tdiff rounds to M + D units when f < 1/2 and to M + D + 1
// units when f > 1/2, whatever M is; so `rows` additions give
// M + rows * (D or D + 1) units. A tie (f = 1/2) rounds to even, which
// depends on M, and a sum that reaches the next binade is rounded on a
// coarser grid: both, and every other sign or size, take the additions one
// by one. False when the sum is not had this way.
bool added_at_once(double stm, double tdiff, long rows, double& sum) {
    constexpr double TWO_53 = 9007199254740992.0;
    if (!(stm >= DBL_MIN && stm < DBL_MAX && tdiff > 0 && tdiff < DBL_MAX) || rows < 0) return false;
    int e = 0;
    std::frexp(stm, &e); // stm = m * 2^e, m in [0.5, 1)
    const int unit_exponent = e - 53;
    const double t = std::ldexp(tdiff, -unit_exponent); // exact: a power of two times a double in range
    if (!(t < TWO_53) || std::ldexp(t, unit_exponent) != tdiff) return false;
    const double whole = std::floor(t);
    const double f = t - whole; // exact
    if (f == 0.5) return false;
    const auto step = static_cast<std::uint64_t>(whole) + (f > 0.5 ? 1 : 0);
    const auto m = static_cast<std::uint64_t>(std::ldexp(stm, -unit_exponent)); // exact: M
    // Every sum below 2^53 units: M + rows * (D + 1) < 2^53, without overflow.
    const std::uint64_t room = (std::uint64_t{1} << 53) - m;
    if (rows > 0 && static_cast<std::uint64_t>(whole) + 1 > (room - 1) / static_cast<std::uint64_t>(rows))
        return false;
    sum = std::ldexp(static_cast<double>(m + static_cast<std::uint64_t>(rows) * step), unit_exponent);
    return true;
}

} // namespace

long rows_together_block() { return block_setting; }
void set_rows_together_block(long rows) { block_setting = rows > 0 ? rows : 0; }

std::size_t rows_per_stretch() {
    constexpr long AT_LEAST = 16384;
    return static_cast<std::size_t>(std::max(block_setting, AT_LEAST));
}

unsigned rows_together_threads() {
    const unsigned n = std::thread::hardware_concurrency();
    return n > 1 ? n : 1;
}

bool rows_together_worthwhile(long size) { return block_setting > 0 && size > block_setting; }

double added_rows(double stm, double tdiff, long rows) {
    double sum = 0;
    return added_at_once(stm, tdiff, rows, sum) ? sum : added_one_by_one(stm, tdiff, rows);
}

RowBlocks plan_row_blocks(long start_i, long end, double stm, double tdiff) {
    RowBlocks plan;
    const long rows = block_setting > 0 ? block_setting : std::max(end - start_i, 1L);
    plan.end = end;
    int ramp = block_setting > 0 ? 3 : 0; // blocks of rows / 8, / 4 and / 2 first
    for (long first = start_i; first < end; ramp = std::max(ramp - 1, 0)) {
        const long next = std::min(end, first + std::max(rows >> ramp, 1L));
        plan.first.push_back(first);
        plan.stm.push_back(stm);
        stm = added_rows(stm, tdiff, next - first);
        first = next;
    }
    plan.end_stm = stm;
    return plan;
}
