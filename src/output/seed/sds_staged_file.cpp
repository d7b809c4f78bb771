// The file of a staged recording's samples (see sds_staged_file.h).
#include "sds_staged_file.h"

#include <cmath>
#include <algorithm>
#include <cstring>
#include <memory>

#include "vxfil/huge_pages.h"

namespace {

constexpr char MAGIC[8] = {'B', 'R', 'S', 'T', 'A', 'G', 'E', '2'};
constexpr uint64_t KIND_INT = 1;
constexpr uint64_t KIND_F64 = 2;

uint64_t zigzag(int64_t v) {
    return (static_cast<uint64_t>(v) << 1) ^ static_cast<uint64_t>(v >> 63);
}

int64_t unzigzag(uint64_t u) {
    return static_cast<int64_t>(u >> 1) ^ -static_cast<int64_t>(u & 1);
}

// Appends LEB128 varints to a buffer that grows as needed (never filled
// with zeros first: the bytes are written once).
class writer {
  public:
    explicit writer(std::size_t guess) : m_size(std::max<std::size_t>(guess, 64)), m_bytes(fresh(m_size)) {}
    void varint(uint64_t v) {
        room(10);
        while (v >= 0x80) {
            m_bytes[m_at++] = static_cast<char>(v | 0x80);
            v >>= 7;
        }
        m_bytes[m_at++] = static_cast<char>(v);
    }
    // n varints, the i-th being code(i), asked in order. Written through a
    // local pointer, a chunk at a time: stores through a char pointer could
    // be the members themselves, so per varint they would be reloaded.
    template <class Code> void varints(std::size_t n, Code code) {
        constexpr std::size_t CHUNK = 4096;
        for (std::size_t i = 0; i < n;) {
            const std::size_t end = std::min(n, i + CHUNK);
            room((end - i) * 10);
            char *p = m_bytes.get() + m_at;
            for (; i < end; ++i) {
                uint64_t v = code(i);
                while (v >= 0x80) {
                    *p++ = static_cast<char>(v | 0x80);
                    v >>= 7;
                }
                *p++ = static_cast<char>(v);
            }
            m_at = static_cast<std::size_t>(p - m_bytes.get());
        }
    }
    void raw(const void *p, std::size_t n) {
        room(n);
        std::memcpy(m_bytes.get() + m_at, p, n);
        m_at += n;
    }
    std::string done() const {
        std::string bytes;
        bytes.reserve(m_at);
        VxFil::advise_huge_pages(bytes.data(), bytes.capacity());
        bytes.assign(m_bytes.get(), m_at);
        return bytes;
    }

  private:
    // Room of `size` bytes, on huge pages where it is large (a day's
    // recording is megabytes of varints).
    static std::unique_ptr<char[]> fresh(std::size_t size) {
        std::unique_ptr<char[]> bytes(new char[size]);
        VxFil::advise_huge_pages(bytes.get(), size);
        return bytes;
    }
    void room(std::size_t n) {
        if (m_at + n <= m_size) return;
        const std::size_t size = std::max(m_size * 2, m_at + n);
        std::unique_ptr<char[]> bigger = fresh(size);
        std::memcpy(bigger.get(), m_bytes.get(), m_at);
        m_bytes = std::move(bigger);
        m_size = size;
    }
    std::size_t m_size;
    std::unique_ptr<char[]> m_bytes;
    std::size_t m_at = 0;
};

// The varints of a time axis: the change of the step from the one before,
// in wrapping arithmetic so that any 64-bit times round-trip.
class time_coder {
  public:
    uint64_t next(int64_t t) {
        const uint64_t now = static_cast<uint64_t>(t);
        const uint64_t step = now - m_previous;
        const uint64_t code = zigzag(static_cast<int64_t>(step - m_step));
        m_step = step;
        m_previous = now;
        return code;
    }

  private:
    uint64_t m_previous = 0, m_step = 0;
};

// Reads varints and bytes, refusing to pass the end.
class reader {
  public:
    explicit reader(const std::string &bytes)
        : m_p(reinterpret_cast<const unsigned char *>(bytes.data())), m_end(m_p + bytes.size()) {}
    bool varint(uint64_t &v) {
        v = 0;
        for (int shift = 0; shift < 64; shift += 7) {
            if (m_p == m_end) return false;
            const unsigned char b = *m_p++;
            v |= static_cast<uint64_t>(b & 0x7f) << shift;
            if (!(b & 0x80)) return true;
        }
        return false; // more than ten bytes: no varint of ours
    }
    bool raw(void *to, std::size_t n) {
        if (n > left()) return false;
        if (n == 0) return true; // `to` may be the null data of an empty list
        std::memcpy(to, m_p, n);
        m_p += n;
        return true;
    }
    std::size_t left() const { return static_cast<std::size_t>(m_end - m_p); }

  private:
    const unsigned char *m_p;
    const unsigned char *m_end;
};

bool all_int32(const big_list<double> &values) {
    for (double v : values) {
        if (!(v >= -2147483648.0 && v <= 2147483647.0)) return false;
        if (static_cast<double>(static_cast<int32_t>(v)) != v) return false;
        if (v == 0.0 && std::signbit(v)) return false; // -0.0 keeps its sign as a double
    }
    return true;
}

} // namespace

std::string encode_staged(const staged_content &samples) {
    writer out(64 + samples.times.size() * 2 * (1 + samples.channels.size()));
    out.raw(MAGIC, sizeof MAGIC);
    out.varint(samples.channels.size());
    out.varint(samples.times.size());
    time_coder times;
    out.varints(samples.times.size(), [&](std::size_t i) { return times.next(samples.times[i]); });
    for (const staged_channel &c : samples.channels) {
        out.varint(c.id.size());
        out.raw(c.id.data(), c.id.size());
        const bool ints = all_int32(c.values);
        out.varint(ints ? KIND_INT : KIND_F64);
        out.varint(c.values.size());
        if (ints) {
            int64_t before = 0;
            out.varints(c.values.size(), [&](std::size_t i) {
                const auto now = static_cast<int64_t>(c.values[i]);
                const uint64_t code = zigzag(now - before);
                before = now;
                return code;
            });
        } else {
            for (double v : c.values) out.raw(&v, sizeof v);
        }
    }
    return out.done();
}

std::string encode_staged(const std::vector<double> &times, const std::vector<staged_source_channel> &channels,
                          long scale) {
    writer out(64 + times.size() * 2 * (1 + channels.size()));
    out.raw(MAGIC, sizeof MAGIC);
    out.varint(channels.size());
    out.varint(times.size());
    time_coder coder;
    out.varints(times.size(), [&](std::size_t i) { return coder.next(std::llround(times[i] * 1e6)); });
    for (const staged_source_channel &c : channels) {
        out.varint(c.id.size());
        out.raw(c.id.data(), c.id.size());
        // Counts times a factor stay integers; beyond 32 bits they go as
        // doubles, as the samples of a run would.
        bool ints = true;
        for (std::size_t i = 0; i < c.count && ints; ++i) {
            const double v = static_cast<double>(c.raw[i]) * static_cast<double>(scale);
            ints = v >= -2147483648.0 && v <= 2147483647.0;
        }
        out.varint(ints ? KIND_INT : KIND_F64);
        out.varint(c.count);
        if (ints) {
            int64_t before = 0;
            out.varints(c.count, [&](std::size_t i) {
                const auto now = static_cast<int64_t>(static_cast<double>(c.raw[i]) * static_cast<double>(scale));
                const uint64_t code = zigzag(now - before);
                before = now;
                return code;
            });
        } else {
            for (std::size_t i = 0; i < c.count; ++i) {
                const double v = static_cast<double>(c.raw[i]) * static_cast<double>(scale);
                out.raw(&v, sizeof v);
            }
        }
    }
    return out.done();
}

bool decode_staged(const std::string &bytes, staged_content &samples, std::string &why) {
    samples = staged_content{};
    reader in(bytes);
    char magic[8];
    uint64_t channels = 0, n = 0;
    if (!in.raw(magic, sizeof magic) || std::memcmp(magic, MAGIC, sizeof magic) != 0 || !in.varint(channels) ||
        !in.varint(n) || channels > 65535) {
        why = "is not a staged recording";
        return false;
    }
    // Every time takes at least one byte.
    if (n > in.left()) {
        why = "is cut short";
        return false;
    }
    samples.times.resize(n);
    uint64_t previous = 0, step = 0;
    for (uint64_t i = 0; i < n; ++i) {
        uint64_t v;
        if (!in.varint(v)) {
            why = "is cut short";
            return false;
        }
        step += static_cast<uint64_t>(unzigzag(v));
        previous += step;
        samples.times[i] = static_cast<int64_t>(previous);
    }
    for (uint64_t k = 0; k < channels; ++k) {
        staged_channel c;
        uint64_t length = 0, kind = 0, count = 0;
        if (!in.varint(length) || length > 64 || length > in.left()) {
            why = "is cut short";
            return false;
        }
        c.id.resize(length);
        in.raw(c.id.data(), length);
        if (!in.varint(kind) || (kind != KIND_INT && kind != KIND_F64) || !in.varint(count) || count > n ||
            count > in.left()) {
            why = "holds a channel it cannot describe";
            return false;
        }
        c.values.resize(count);
        if (kind == KIND_F64) {
            if (count > in.left() / 8 || !in.raw(c.values.data(), count * 8)) {
                why = "is cut short";
                return false;
            }
        } else {
            int64_t value = 0;
            for (uint64_t i = 0; i < count; ++i) {
                uint64_t v;
                if (!in.varint(v)) {
                    why = "is cut short";
                    return false;
                }
                value += unzigzag(v);
                c.values[i] = static_cast<double>(value);
            }
        }
        samples.channels.push_back(std::move(c));
    }
    if (in.left() != 0) {
        why = "holds more than its samples";
        return false;
    }
    return true;
}
