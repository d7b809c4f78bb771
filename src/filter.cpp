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
// Only filter.h is included here: a global named index must not meet the
// C library's index() from <strings.h>.
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
    for (double& slot : prev_x) {
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

int filter_index_for_tests() { return index; }

void reset_filter_state_for_tests() {
    index = 0;
    Initialize(0.0);
}
