// The number conversions of number_format.h as put_ calls of a text sink.
// A sink supplies reserve(n), which makes room for n more bytes and returns
// where they go, and commit(end), which records how far they were written;
// the output file and the blocks formatted on other threads share these.
#pragma once

#include <cstddef>

#include "number_format.h"

template <class Sink> class NumberPuts {
  public:
    void put_fixed(double value, int precision) { // "%-.*f"
        sink().commit(format_fixed(sink().reserve(fixed_text_max(precision)), value, precision));
    }
    void put_fixed(FixedColumn& column, double value) { // "%-.*f" with the column's precision
        sink().commit(column.format(sink().reserve(fixed_text_max(column.precision())), value));
    }
    void put_f(double value) { sink().commit(format_f(sink().reserve(FIXED6_TEXT_MAX), value)); } // "%f"
    void put_f0(double value) { sink().commit(format_f0(sink().reserve(FIXED6_TEXT_MAX), value)); } // "%.0f"
    void put_f12_0(double value) { // "%12.0f"
        sink().commit(format_f12_0(sink().reserve(FIXED6_TEXT_MAX), value));
    }
    void put_g(double value) { sink().commit(format_g(sink().reserve(SHORT_TEXT_MAX), value)); } // "%g"
    void put_ld(long value) { sink().commit(format_ld(sink().reserve(SHORT_TEXT_MAX), value)); } // "%ld"
    void put_trimmed(double value) { // "%lf" without trailing zeros
        sink().commit(format_trimmed(sink().reserve(FIXED6_TEXT_MAX), value));
    }
    // A stretch of text written at once: fill(p) writes at most `most` bytes
    // from p and returns their end. Text written through one local pointer
    // lets the compiler keep the pointer in a register, where every put_
    // call stores it back (a char store may alias anything).
    template <class Fill> void put_formatted(std::size_t most, const Fill& fill) {
        sink().commit(fill(sink().reserve(most)));
    }

  private:
    Sink& sink() { return static_cast<Sink&>(*this); }
};
