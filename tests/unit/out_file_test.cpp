// The output file with its writer thread: the bytes on disk, and the order of
// a write error against later messages, must not depend on whether full
// buffers are written in the background or in place.
#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "out_file.h"
#include "settings.h"
#include "temp_dir.h"
#include "writers.h"

namespace fs = std::filesystem;

namespace {

// Restores the default after each test.
class OutFileTest : public testing::TestWithParam<bool> {
  protected:
    void SetUp() override {
        m_saved = OutFile::background_writes();
        OutFile::set_background_writes(GetParam());
    }
    void TearDown() override { OutFile::set_background_writes(m_saved); }
    temp_dir m_dir;

  private:
    bool m_saved = false;
};

// Every kind of put, about forty times the buffer, with texts longer than the
// buffer in between; the expected text is built with the same formatting
// functions into a string.
TEST_P(OutFileTest, ManyBuffersGiveTheSameBytes) {
    const fs::path p = m_dir.file("big");
    std::string expected;
    std::mt19937_64 rng(16);
    std::uniform_real_distribution<double> value(-1e5, 1e5);
    {
        OutFile out(p);
        FixedColumn column(4);
        FixedColumn expected_column(4);
        char buf[FIXED6_TEXT_MAX + 64];
        double t = 1.5e9;
        for (int row = 0; row < 1200000; ++row) {
            const double v = value(rng);
            out.put_fixed(column, t);
            expected.append(buf, expected_column.format(buf, t));
            out.put(' ');
            out.put_trimmed(v);
            expected += ' ';
            expected.append(buf, format_trimmed(buf, v));
            out.put('\n');
            expected += '\n';
            if (row % 300000 == 7) {
                const std::string long_text(3 << 20, static_cast<char>('a' + row % 26));
                out.put(long_text);
                expected += long_text;
            }
            // Texts about the size from which they are written as they are
            // (a block of rows formatted on another thread), not copied.
            if (row % 40000 == 11) {
                const std::size_t sizes[] = {(1 << 17) - 1, 1 << 17, (1 << 17) + 1, 520000, (1 << 20) - 5};
                const std::string block(sizes[(row / 40000) % 5], static_cast<char>('A' + row % 26));
                out.put(block);
                expected += block;
            }
            t += 0.05;
        }
        out.close();
    }
    ASSERT_GT(expected.size(), std::size_t{40} << 20);
    const std::string written = m_dir.read("big");
    ASSERT_EQ(written.size(), expected.size());
    EXPECT_TRUE(written == expected);
}

// Two files open at once, each with its own writer, interleaved.
TEST_P(OutFileTest, TwoFilesAtOnceKeepTheirOwnBytes) {
    std::string a_text, b_text;
    {
        OutFile a(m_dir.file("a")), b(m_dir.file("b"));
        for (long i = 0; i < 2000000; ++i) {
            a.put_ld(i);
            a.put('\n');
            b.put_ld(-i);
            b.put(' ');
            a_text += std::to_string(i) + "\n";
            b_text += std::to_string(-i) + " ";
        }
        b.close();
        a.close();
    }
    EXPECT_TRUE(m_dir.read("a") == a_text);
    EXPECT_TRUE(m_dir.read("b") == b_text);
}

// A write that fails after the first buffer is reported before the gap of a
// later row would be, exactly as when every buffer is written in place: one
// line, status 1, nothing after it.
TEST_P(OutFileTest, WriteErrorComesBeforeLaterGapLines) {
    if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
    const fs::path p = m_dir.file("full");
    fs::create_symlink("/dev/full", p);
    const OUTPUT_TYPE saved = output_type;
    output_type = OT_FOURCOLUMNS;
    const long n = 200000;
    series_t time(static_cast<std::size_t>(n));
    for (long i = 0; i < n; ++i)
        time[static_cast<std::size_t>(i)] = 1.5e9 + i * 0.05 + (i >= 40000 ? 100.0 : 0.0);
    std::vector<series_t> data(3, series_t(static_cast<std::size_t>(n), 1234567.0));
    std::ostringstream quoted;
    quoted << p;
    const std::string expected = "Error: Can't write file " + quoted.str() + ": No space left on device\n";
    EXPECT_EXIT(write_all(p, time, data, 0, n, -1.0, 20.0, nullptr), testing::ExitedWithCode(1),
                testing::Eq(expected));
    output_type = saved;
}

INSTANTIATE_TEST_SUITE_P(WriterThread, OutFileTest, testing::Values(false, true),
                         [](const testing::TestParamInfo<bool> &info) {
                             return info.param ? std::string("Background") : std::string("InPlace");
                         });

} // namespace
