// Packing of miniSEED 2 records with libmseed (see mseed_records.h).
#include "mseed_records.h"

#include <libmseed.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace {


// libmseed reports through its log functions; the messages are collected so
// that a failure becomes one line of our own rather than library chatter.
// Channels are packed on several threads at once: each collects its own.
std::string &library_messages() {
    thread_local std::string messages;
    return messages;
}

void collect_message(char *text) {
    std::string &m = library_messages();
    if (!m.empty()) m += "; ";
    m += text;
    while (!m.empty() && (m.back() == '\n' || m.back() == '\r'))
        m.pop_back();
}

void route_library_messages() {
    static const bool routed = (ms_loginit(collect_message, nullptr, collect_message, nullptr), true);
    (void)routed;
    library_messages().clear();
}

struct msr_deleter {
    void operator()(MSRecord *msr) const {
        msr->datasamples = nullptr; // the samples are not libmseed's to free
        msr_free(&msr);
    }
};
using msr_ptr = std::unique_ptr<MSRecord, msr_deleter>;

void copy_code(char (&field)[11], const std::string &code) {
    std::memset(field, 0, sizeof field);
    std::memcpy(field, code.data(), std::min(code.size(), sizeof field - 1));
}

// What the record handler needs. The handler is called from C code, so it
// reports trouble through `failed` instead of throwing.
struct handler_state {
    const std::function<int64_t(std::size_t)> *start_us; // first sample's time of a record
    std::size_t first;      // index of the first sample of this msr_pack call
    std::size_t n;          // samples of the whole segment
    std::size_t packed = 0; // samples in the records handed on so far
    const record_sink *sink;
    MSRecord *header = nullptr; // the header of the record in hand, reused
    bool failed = false;
};

// libmseed derives each record's start time from the segment's start and the
// sample rate. The time axis is the truth: each record is restamped with its
// first sample's own time where the two differ.
void handle_record(char *record, int length, void *data) {
    auto &st = *static_cast<handler_state *>(data);
    if (st.failed) return;
    if (msr_unpack(record, length, &st.header, 0, 0) != MS_NOERROR || st.header->samplecnt < 0 ||
        st.first + st.packed >= st.n) {
        st.failed = true;
        return;
    }
    const int64_t start = (*st.start_us)(st.first + st.packed);
    if (st.header->starttime != start) {
        st.header->starttime = start;
        if (msr_pack_header(st.header, 1, 0) < 0) {
            st.failed = true;
            return;
        }
    }
    st.packed += static_cast<std::size_t>(st.header->samplecnt);
    (*st.sink)(record, static_cast<std::size_t>(length));
}

void add_blockettes(MSRecord *msr, double rate) {
    blkt_100_s b100{};
    b100.samprate = static_cast<float>(rate);
    blkt_1001_s b1001{}; // the microseconds are filled in for every record
    if (!msr_addblockette(msr, reinterpret_cast<char *>(&b100), sizeof b100, 100, 0) ||
        !msr_addblockette(msr, reinterpret_cast<char *>(&b1001), sizeof b1001, 1001, 0))
        throw std::runtime_error("cannot add blockettes");
}

[[noreturn]] void refuse(const mseed_stream &stream, const std::string &why) {
    std::string text = "libmseed cannot pack the records of " + stream.station + " " + stream.channel;
    std::string said = why.empty() ? library_messages() : why;
    if (!said.empty()) text += ": " + said;
    throw std::runtime_error(text);
}

} // namespace

mseed_encoding choose_encoding(const double *values, std::size_t n, int32_t *integers) {
    // Two passes without early exits, so that the compiler can take many
    // values at once: first every value to an integer, then the differences.
    bool integral = true;
    for (std::size_t i = 0; i < n; ++i)
        integral &= as_int32(values[i], integers[i]);
    if (!integral) return mseed_encoding::FLOAT64;
    return integer_encoding(integers, n);
}

mseed_encoding integer_encoding(const int32_t *integers, std::size_t n) {
    bool small_differences = true;
    for (std::size_t i = 1; i < n; ++i)
        small_differences &= steim2_difference(int64_t{integers[i]} - int64_t{integers[i - 1]});
    return small_differences ? mseed_encoding::STEIM2 : mseed_encoding::INT32;
}

namespace {

// A number for a message: "%.15g", so that a time keeps its fraction and an
// absurd value stays short.
std::string number_text(double v) {
    char text[32];
    std::snprintf(text, sizeof text, "%.15g", v);
    return text;
}

} // namespace

std::string unwritable_rate_line(double rate, const std::string &name) {
    return "Error: sample rate " + number_text(rate) + " of " + name + " cannot be written in miniSEED (1e-09 to 1e+09)\n";
}

std::string unwritable_time_line(double t, const std::string &name) {
    return "Error: time " + number_text(t) + " of " + name + " is outside the years 1900 to 2100 that miniSEED holds\n";
}

std::string long_station_code_line(const std::string &code, std::size_t channels, const std::string &name) {
    return "Error: " + name + " has " + std::to_string(channels) + " channels; station code \"" + code +
           "\" is longer than the 5 characters miniSEED allows\n";
}

int64_t microseconds_of(double t) {
    return std::llround(t * 1e6);
}

namespace {

// Whether a record of this length and encoding could hold more than
// MAX_RECORD_SAMPLES samples: a Steim-2 frame of 64 bytes carries at most
// 15 words of seven 4-bit differences. Fixed-width encodings never come near.
bool may_exceed_sample_limit(const mseed_stream &stream, mseed_encoding encoding) {
    if (encoding != mseed_encoding::STEIM2) return false;
    const std::size_t most = static_cast<std::size_t>(stream.record_length) / 64 * 15 * 7;
    return most > MAX_RECORD_SAMPLES;
}

msr_ptr segment_header(const mseed_stream &stream, int sequence) {
    msr_ptr msr(msr_init(nullptr));
    if (!msr) refuse(stream, "out of memory");
    copy_code(msr->network, stream.network);
    copy_code(msr->station, stream.station);
    copy_code(msr->location, stream.location);
    copy_code(msr->channel, stream.channel);
    msr->dataquality = 'D';
    msr->samprate = stream.rate;
    msr->reclen = stream.record_length;
    msr->byteorder = 1; // big-endian, as every reader expects
    msr->sequence_number = sequence;
    add_blockettes(msr.get(), stream.rate);
    return msr;
}

void release_header(handler_state &st) {
    if (st.header) {
        st.header->record = nullptr; // the record buffer belongs to libmseed
        msr_free(&st.header);
    }
}

// Packs samples[first .. first + count) with one call of msr_pack; returns
// how many samples went into records. `flush` packs them all, the last
// record partly filled; without it only full records are packed.
std::size_t pack_call(MSRecord *msr, handler_state &st, void *samples, std::size_t first, std::size_t count,
                      bool flush, const mseed_stream &stream) {
    msr->starttime = (*st.start_us)(first);
    msr->datasamples = samples;
    msr->numsamples = static_cast<int64_t>(count);
    st.first = first;
    st.packed = 0;
    int64_t packed = 0;
    const int records = msr_pack(msr, handle_record, &st, &packed, flush ? 1 : 0, 0);
    if (records < 0 || st.failed || packed < 0 || static_cast<std::size_t>(packed) != st.packed) {
        release_header(st);
        refuse(stream, "");
    }
    return st.packed;
}

} // namespace

void pack_segment_as(const mseed_stream &stream, mseed_encoding encoding, const double *values,
                     const int32_t *integers, const std::function<int64_t(std::size_t)> &start_us,
                     std::size_t n, int &sequence, const record_sink &sink) {
    if (n == 0) return;
    route_library_messages();
    msr_ptr msr = segment_header(stream, sequence);
    const bool floats = encoding == mseed_encoding::FLOAT64;
    msr->encoding = floats ? DE_FLOAT64 : encoding == mseed_encoding::STEIM2 ? DE_STEIM2 : DE_INT32;
    msr->sampletype = floats ? 'd' : 'i';
    const std::size_t width = floats ? sizeof(double) : sizeof(int32_t);
    const char *all = floats ? reinterpret_cast<const char *>(values) : reinterpret_cast<const char *>(integers);

    handler_state st{&start_us, 0, n, 0, &sink};
    if (!may_exceed_sample_limit(stream, encoding)) {
        // One call packs the whole segment; libmseed only reads the samples.
        if (pack_call(msr.get(), st, const_cast<char *>(all), 0, n, true, stream) != n) {
            release_header(st);
            refuse(stream, "");
        }
    } else {
        // Records of this length could hold more samples than a record may
        // carry: libmseed is handed at most that many at a time. Without
        // flushing it packs the records that fill up and shifts the rest
        // within its buffer, so it works on a copy; a piece too short to fill
        // a record is packed whole into one.
        std::unique_ptr<char[]> piece(new char[MAX_RECORD_SAMPLES * width]);
        std::size_t done = 0;
        while (done < n) {
            const std::size_t count = std::min(n - done, MAX_RECORD_SAMPLES);
            std::memcpy(piece.get(), all + done * width, count * width);
            std::size_t packed = pack_call(msr.get(), st, piece.get(), done, count, false, stream);
            if (packed == 0) {
                std::memcpy(piece.get(), all + done * width, count * width);
                packed = pack_call(msr.get(), st, piece.get(), done, count, true, stream);
            }
            if (packed == 0) {
                release_header(st);
                refuse(stream, "");
            }
            done += packed;
        }
    }
    msr->datasamples = nullptr;
    release_header(st);
    sequence = msr->sequence_number;
}

void pack_segment(const mseed_stream &stream, const double *values, const double *times, std::size_t n,
                  int32_t *scratch, int &sequence, const record_sink &sink) {
    if (n == 0) return;
    const mseed_encoding encoding = choose_encoding(values, n, scratch);
    const std::function<int64_t(std::size_t)> start_us = [times](std::size_t i) { return microseconds_of(times[i]); };
    pack_segment_as(stream, encoding, values, scratch, start_us, n, sequence, sink);
}
