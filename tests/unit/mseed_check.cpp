#include "mseed_check.h"

#include <libmseed.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <iterator>

#include "seed_record_reader.h"

namespace {

std::string read_bytes(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool same_value(double a, double b) {
    return a == b || (std::isnan(a) && std::isnan(b));
}

} // namespace

std::vector<library_record> read_with_libmseed(const std::string &path) {
    std::vector<library_record> out;
    MSRecord *msr = nullptr;
    int rc;
    while ((rc = ms_readmsr(&msr, path.c_str(), 0, nullptr, nullptr, 1, 1, 0)) == MS_NOERROR) {
        library_record r{msr->sequence_number,
                         msr->network,
                         msr->station,
                         msr->location,
                         msr->channel,
                         msr->dataquality,
                         msr->starttime,
                         msr->samprate,
                         msr->encoding,
                         msr->reclen,
                         {}};
        for (int64_t i = 0; i < msr->numsamples; ++i) {
            if (msr->sampletype == 'i')
                r.samples.push_back(static_cast<int32_t *>(msr->datasamples)[i]);
            else if (msr->sampletype == 'd')
                r.samples.push_back(static_cast<double *>(msr->datasamples)[i]);
            else
                ADD_FAILURE() << "unexpected sample type " << msr->sampletype;
        }
        EXPECT_EQ(msr->numsamples, msr->samplecnt);
        out.push_back(std::move(r));
    }
    EXPECT_EQ(rc, MS_ENDOFFILE) << ms_errorstr(rc);
    ms_readmsr(&msr, nullptr, 0, nullptr, nullptr, 0, 0, 0);
    return out;
}

int libmseed_trace_count(const std::string &path) {
    MSTraceGroup *group = nullptr;
    int rc = ms_readtraces(&group, const_cast<char *>(path.c_str()), 0, -1.0, -1.0, 0, 1, 1, 0);
    EXPECT_EQ(rc, MS_NOERROR) << ms_errorstr(rc);
    int n = group ? group->numtraces : -1;
    mst_freegroup(&group);
    return n;
}

int check_mseed_file(const std::string &path, const std::vector<series_t> &series, const series_t &time,
                     const mseed_expectation &want) {
    const std::string bytes = read_bytes(path);
    std::vector<seed::record> ours;
    try {
        ours = seed::read_records(bytes);
    } catch (const std::exception &e) {
        ADD_FAILURE() << path << ": " << e.what();
        return 0;
    }
    const std::vector<library_record> theirs = read_with_libmseed(path);
    EXPECT_EQ(ours.size(), theirs.size());
    EXPECT_EQ(bytes.size(), ours.size() * static_cast<size_t>(want.record_length));

    // The two readers agree on everything.
    for (size_t k = 0; k < std::min(ours.size(), theirs.size()); ++k) {
        const seed::record &a = ours[k];
        const library_record &b = theirs[k];
        SCOPED_TRACE("record " + std::to_string(k));
        EXPECT_EQ(a.sequence, b.sequence);
        EXPECT_EQ(a.network, b.network);
        EXPECT_EQ(a.station, b.station);
        EXPECT_EQ(a.location, b.location);
        EXPECT_EQ(a.channel, b.channel);
        EXPECT_EQ(a.quality, b.quality);
        EXPECT_EQ(a.start_us, b.start_us);
        EXPECT_EQ(static_cast<double>(a.b100_rate), b.rate);
        EXPECT_EQ(a.encoding, b.encoding);
        EXPECT_EQ(a.record_length, b.record_length);
        EXPECT_EQ(a.samples.size(), b.samples.size());
        for (size_t i = 0; i < std::min(a.samples.size(), b.samples.size()); ++i)
            if (!same_value(a.samples[i], b.samples[i])) {
                ADD_FAILURE() << "readers differ at sample " << i << ": " << a.samples[i] << " "
                              << b.samples[i];
                break;
            }
    }

    // Every record as the layout promises, and sequence numbers running on.
    for (size_t k = 0; k < ours.size(); ++k) {
        const seed::record &r = ours[k];
        SCOPED_TRACE("record " + std::to_string(k));
        EXPECT_EQ(r.sequence, static_cast<int>(k + 1));
        EXPECT_EQ(r.quality, 'D');
        EXPECT_EQ(r.network, want.network);
        EXPECT_EQ(r.location, "");
        EXPECT_EQ(r.channel, want.channel);
        EXPECT_TRUE(r.has_b100 && r.has_b1000 && r.has_b1001);
        EXPECT_EQ(r.b100_rate, static_cast<float>(want.rate));
        EXPECT_NEAR(r.header_rate, want.rate, want.rate * 1e-4);
        EXPECT_EQ(r.record_length, want.record_length);
    }

    // Channel after channel, segment after segment, the records hold the
    // series: each record starts at its first sample's own time.
    size_t next = 0;
    for (size_t ch = 0; ch < series.size(); ++ch) {
        if (series[ch].empty()) continue;
        for (size_t s = 0; s < want.segments.size(); ++s) {
            const sample_range seg = want.segments[s];
            SCOPED_TRACE("channel " + std::to_string(ch) + " segment " + std::to_string(s));
            long i = seg.begin;
            while (i < seg.end) {
                if (next >= ours.size()) {
                    ADD_FAILURE() << "records end before sample " << i;
                    return static_cast<int>(ours.size());
                }
                const seed::record &r = ours[next++];
                EXPECT_EQ(r.station, want.stations.at(ch));
                EXPECT_EQ(r.encoding, want.encodings.at(s));
                EXPECT_EQ(r.start_us, std::llround(time[static_cast<size_t>(i)] * 1e6)) << "sample " << i;
                EXPECT_LE(i + static_cast<long>(r.samples.size()), seg.end)
                    << "record runs over the segment end";
                for (double v : r.samples) {
                    if (i >= seg.end) break;
                    if (!same_value(v, series[ch][static_cast<size_t>(i)])) {
                        ADD_FAILURE() << "sample " << i << " is " << v << ", the series holds "
                                      << series[ch][static_cast<size_t>(i)];
                        return static_cast<int>(ours.size());
                    }
                    ++i;
                }
            }
        }
    }
    EXPECT_EQ(next, ours.size()) << "records beyond the series";
    return static_cast<int>(ours.size());
}
