// The file of a staged recording's samples (see sds_staged_file.h).
#include "sds_staged_file.h"

#include <cmath>
#include <cstring>

namespace {

constexpr char MAGIC[8] = {'B', 'R', 'S', 'T', 'A', 'G', 'E', '1'};
constexpr uint32_t ORDER_MARK = 0x01020304;
constexpr uint32_t KIND_I32 = 1;
constexpr uint32_t KIND_F64 = 2;

template <class T> void put(std::string &out, const T &v) {
    out.append(reinterpret_cast<const char *>(&v), sizeof v);
}

bool all_int32(const std::vector<double> &values) {
    for (double v : values) {
        if (!(v >= -2147483648.0 && v <= 2147483647.0)) return false;
        if (static_cast<double>(static_cast<int32_t>(v)) != v) return false;
        if (v == 0.0 && std::signbit(v)) return false; // -0.0 keeps its sign as a double
    }
    return true;
}

// Reads from a byte range, refusing to pass its end.
class reader {
  public:
    explicit reader(const std::string &bytes) : m_bytes(bytes) {}
    template <class T> bool get(T &v) { return take(&v, sizeof v); }
    bool take(void *to, std::size_t n) {
        if (n > m_bytes.size() - m_at) return false;
        std::memcpy(to, m_bytes.data() + m_at, n);
        m_at += n;
        return true;
    }
    std::size_t left() const { return m_bytes.size() - m_at; }

  private:
    const std::string &m_bytes;
    std::size_t m_at = 0;
};

} // namespace

std::string encode_staged(const staged_content &samples) {
    std::string out;
    std::size_t size = 32 + samples.times.size() * 8;
    for (const staged_channel &c : samples.channels) size += 24 + c.id.size() + c.values.size() * 8;
    out.reserve(size);
    out.append(MAGIC, sizeof MAGIC);
    put(out, ORDER_MARK);
    put(out, static_cast<uint32_t>(samples.channels.size()));
    put(out, static_cast<uint64_t>(samples.times.size()));
    out.append(reinterpret_cast<const char *>(samples.times.data()), samples.times.size() * sizeof(int64_t));
    for (const staged_channel &c : samples.channels) {
        put(out, static_cast<uint32_t>(c.id.size()));
        out += c.id;
        const bool ints = all_int32(c.values);
        put(out, ints ? KIND_I32 : KIND_F64);
        put(out, static_cast<uint64_t>(c.values.size()));
        if (ints) {
            for (double v : c.values) put(out, static_cast<int32_t>(v));
        } else {
            out.append(reinterpret_cast<const char *>(c.values.data()), c.values.size() * sizeof(double));
        }
    }
    return out;
}

bool decode_staged(const std::string &bytes, staged_content &samples, std::string &why) {
    samples = staged_content{};
    reader in(bytes);
    char magic[8];
    uint32_t order = 0, channels = 0;
    uint64_t n = 0;
    if (!in.take(magic, sizeof magic) || std::memcmp(magic, MAGIC, sizeof magic) != 0 || !in.get(order) ||
        order != ORDER_MARK || !in.get(channels) || !in.get(n)) {
        why = "not a staged recording";
        return false;
    }
    if (n > in.left() / sizeof(int64_t)) {
        why = "cut short";
        return false;
    }
    samples.times.resize(n);
    in.take(samples.times.data(), n * sizeof(int64_t));
    for (uint32_t k = 0; k < channels; ++k) {
        staged_channel c;
        uint32_t length = 0, kind = 0;
        uint64_t count = 0;
        if (!in.get(length) || length > 64 || length > in.left()) {
            why = "cut short";
            return false;
        }
        c.id.resize(length);
        in.take(c.id.data(), length);
        if (!in.get(kind) || (kind != KIND_I32 && kind != KIND_F64) || !in.get(count) || count > n) {
            why = "holds a channel it cannot describe";
            return false;
        }
        const std::size_t width = kind == KIND_I32 ? 4 : 8;
        if (count > in.left() / width) {
            why = "cut short";
            return false;
        }
        c.values.resize(count);
        if (kind == KIND_F64) {
            in.take(c.values.data(), count * 8);
        } else {
            for (uint64_t i = 0; i < count; ++i) {
                int32_t v = 0;
                in.get(v);
                c.values[i] = v;
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
