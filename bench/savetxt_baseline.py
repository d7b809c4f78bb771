#!/usr/bin/python3
"""bench savetxt baseline: IN.vx24 OUT

The numpy reference point of the benchmark: reads a vx24 recording with
numpy.fromfile (header fields by their byte offsets, then the interleaved
32-bit samples), builds the time column as the start second plus one sample
period per row (numpy.cumsum), and writes time and channels with one numpy.savetxt call, the time with
four decimals and each sample as an integer ("%.4f %d %d %d"). The text equals
the tool's four-column rows for integer samples, without the comment line.
"""
import sys

import numpy as np


def main():
    src, dst = sys.argv[1], sys.argv[2]
    raw = np.fromfile(src, dtype=np.uint8)
    version = int(raw[4])
    channels = int(raw[20])
    seconds = int(raw[8:12].view("<u4")[0])
    rate = float(raw[22:30].view("<f8")[0])
    data_start = 32 + 4 * version + 8 + 32 * channels + 8
    values = raw[data_start:]
    values = values[: len(values) // (4 * channels) * 4 * channels].view("<i4").reshape(-1, channels)
    # The tool prints the start time plus one period per row, summed row by
    # row; cumsum adds in the same order.
    steps = np.full(values.shape[0], 1.0 / rate)
    steps[0] = seconds
    times = np.cumsum(steps)
    table = np.column_stack([times, values])
    np.savetxt(dst, table, fmt=["%.4f"] + ["%d"] * channels, delimiter=" ")


if __name__ == "__main__":
    main()
