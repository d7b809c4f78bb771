// Reading miniSEED 2 records with libmseed (see mseed_read.h).
#include "mseed_read.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <libmseed.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

#include "vxfil/huge_pages.h"

namespace {

struct parsed_record {
    MSRecord *msr = nullptr;
    ~parsed_record() {
        if (msr) msr_free(&msr);
    }
};

std::string code_text(const char *field, std::size_t size) {
    std::size_t n = 0;
    while (n < size && field[n] != '\0') ++n;
    return std::string(field, n);
}

void silence_library() {
    // The library's own complaints would be chatter on standard error; a
    // failure becomes one line of ours.
    static const bool quiet = (ms_loginit(
                                   [](char *) {}, nullptr, [](char *) {}, nullptr),
                               true);
    (void)quiet;
}

} // namespace

void read_seed_records(const char *bytes, std::size_t size, const std::string &what, bool decode,
                       const std::function<void(const seed_record &)> &each) {
    const std::function<bool(const seed_record &)> all = [decode](const seed_record &) { return decode; };
    read_seed_records_if(bytes, size, what, all, each);
}

void read_seed_records_if(const char *bytes, std::size_t size, const std::string &what,
                          const std::function<bool(const seed_record &)> &wanted,
                          const std::function<void(const seed_record &)> &each) {
    silence_library();
    std::size_t offset = 0;
    parsed_record parsed;
    seed_record rec;
    // A damaged record can make the library's decoder read past the record
    // length it reported: the file's last stretch (less than the longest
    // record) is read from a copy with that much room of zeros after it, so
    // that no read leaves our memory.
    std::vector<char> tail;
    std::size_t tail_start = 0;
    while (offset < size) {
        const std::size_t left = size - offset;
        if (tail.empty() && left < static_cast<std::size_t>(MAXRECLEN)) {
            tail_start = offset;
            tail.assign(bytes + offset, bytes + size);
            tail.resize(left + static_cast<std::size_t>(MAXRECLEN), '\0');
        }
        char *at = tail.empty() ? const_cast<char *>(bytes + offset) : tail.data() + (offset - tail_start);
        const int32_t available = left > 0x7fffffff ? 0x7fffffff : static_cast<int32_t>(left);
        auto parse = [&](bool samples) {
            const int status = msr_parse(at, available, &parsed.msr, 0, samples ? 1 : 0, 0);
            if (status != MS_NOERROR || parsed.msr == nullptr || parsed.msr->reclen <= 0 ||
                static_cast<std::size_t>(parsed.msr->reclen) > left)
                throw std::runtime_error("\"" + what + "\" is not a sequence of miniSEED records (at byte " +
                                         std::to_string(offset) + ")");
        };
        parse(false);
        const MSRecord *m = parsed.msr;
        rec.network = code_text(m->network, sizeof m->network);
        rec.station = code_text(m->station, sizeof m->station);
        rec.location = code_text(m->location, sizeof m->location);
        rec.channel = code_text(m->channel, sizeof m->channel);
        rec.start_us = m->starttime;
        rec.rate = msr_samprate(const_cast<MSRecord *>(m));
        rec.count = m->samplecnt;
        rec.record_length = m->reclen;
        rec.encoding = m->encoding;
        rec.quality = m->dataquality;
        rec.samples.clear();
        const bool decode = wanted(rec);
        if (decode) {
            parse(true);
            m = parsed.msr;
            if (m->numsamples != m->samplecnt || m->numsamples < 0)
                throw std::runtime_error("\"" + what + "\" holds a record whose samples cannot be decoded");
            const auto n = static_cast<std::size_t>(m->numsamples);
            rec.samples.resize(n);
            switch (m->sampletype) {
            case 'i': {
                const auto *v = static_cast<const int32_t *>(m->datasamples);
                for (std::size_t i = 0; i < n; ++i) rec.samples[i] = v[i];
                break;
            }
            case 'f': {
                const auto *v = static_cast<const float *>(m->datasamples);
                for (std::size_t i = 0; i < n; ++i) rec.samples[i] = v[i];
                break;
            }
            case 'd': {
                const auto *v = static_cast<const double *>(m->datasamples);
                for (std::size_t i = 0; i < n; ++i) rec.samples[i] = v[i];
                break;
            }
            default:
                if (n != 0) throw std::runtime_error("\"" + what + "\" holds a record of text samples");
            }
        }
        offset += static_cast<std::size_t>(m->reclen);
        each(rec);
    }
}

std::string read_whole_file(const std::string &path, bool *missing) {
    if (missing) *missing = false;
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        if (errno == ENOENT && missing) {
            *missing = true;
            return {};
        }
        throw std::runtime_error("can't read \"" + path + "\": " + std::strerror(errno));
    }
    // Read at once into room for the whole file; a file that grows while it
    // is read is read on to its end.
    std::string bytes;
    struct stat sb {};
    if (::fstat(fd, &sb) == 0 && sb.st_size > 0) {
        bytes.reserve(static_cast<std::size_t>(sb.st_size));
        VxFil::advise_huge_pages(bytes.data(), bytes.capacity());
        bytes.resize(static_cast<std::size_t>(sb.st_size));
    }
    std::size_t have = 0;
    for (;;) {
        if (have == bytes.size()) bytes.resize(bytes.size() + (1 << 16));
        const ssize_t n = ::read(fd, bytes.data() + have, bytes.size() - have);
        if (n < 0) {
            if (errno == EINTR) continue;
            const int e = errno;
            ::close(fd);
            throw std::runtime_error("can't read \"" + path + "\": " + std::strerror(e));
        }
        if (n == 0) break;
        have += static_cast<std::size_t>(n);
    }
    ::close(fd);
    bytes.resize(have);
    return bytes;
}
