// The 129-tap half-band low-pass FIR filter.
#pragma once

// Fills the shared history with value; leaves the write index where it is.
void Initialize(double value);

// Pushes one sample and returns one filtered sample.
double Filter(double x);

// The coefficient table (129 taps, from filter.dat).
extern const double H[129];
