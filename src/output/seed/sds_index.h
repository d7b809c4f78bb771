// The bookkeeping of an SDS archive, in DIR/.brantel-archive/:
//   tree          the settings that shape samples and records, recorded by
//                 the archive's first run ("record-length N", "scale N")
//   merge.lock    fcntl lock file: one merge at a time changes day files
//                 (fcntl record locks also hold between hosts over NFS)
//   recordings/   per filed recording its facts (see recording_facts)
//   days/         per day file what the archive last wrote into it: size,
//                 modification time, content hash, and the stretches of
//                 samples with their rate, volts-per-count factor and gain
//   staging/RUN/  recordings converted by a run and waiting for its merge
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "sds_paths.h"
#include "sds_samples.h"

namespace sds {

namespace fs = std::filesystem;

fs::path book_of(const fs::path &top);

// The fields of a tab-separated line (one field when it has no tab).
std::vector<std::string> split_tabs(const std::string &line);

// FNV-1a, 64 bits: names files by a path.
uint64_t fnv1a(const void *bytes, std::size_t n, uint64_t seed = 0xcbf29ce484222325ULL);
// A hash of a day file's content, word by word.
uint64_t content_hash(const void *bytes, std::size_t n);
std::string hex64(uint64_t v);

// The content of a small file, or empty with `missing` set.
std::string read_text(const fs::path &path, bool *missing = nullptr);
// Replaces a small file whole (temporary file, fsync, rename) unless it
// already holds exactly `text`. Throws std::runtime_error on failure.
void write_text(const fs::path &path, const std::string &text);

// Settings that must stay the same for the whole life of an archive.
struct tree_settings {
    long record_length = 4096;
    long scale = 1;
};

// Compares `wanted` with the settings the archive recorded and records them
// when it has none yet (`record`). Returns the refusal line, or empty.
std::string check_tree_settings(const fs::path &top, const tree_settings &wanted, bool record);

// The settings the archive recorded; false when it has none.
bool read_tree_settings(const fs::path &top, tree_settings &settings);

// An exclusive fcntl lock on DIR/.brantel-archive/merge.lock for the
// lifetime of the object; waits for the holder.
class merge_lock {
  public:
    explicit merge_lock(const fs::path &top);
    ~merge_lock();
    merge_lock(const merge_lock &) = delete;
    merge_lock &operator=(const merge_lock &) = delete;

  private:
    int m_fd = -1;
};

// A stretch of samples of a day file that share their facts.
struct day_span {
    int64_t first = 0, last = 0; // Unix microseconds
    sample_facts facts;
};

// What the archive knows of one day file.
struct day_entry {
    uint64_t size = 0;
    int64_t mtime_ns = 0; // 0: not known yet (written, rename not confirmed)
    uint64_t hash = 0;
    std::vector<day_span> spans;
    // While a new content is being put in place: the content before it.
    bool has_prev = false;
    bool prev_absent = false; // the file did not exist before
    uint64_t prev_size = 0, prev_hash = 0;
    std::vector<day_span> prev_spans;
    bool damaged = false; // read_day_entry: the entry was not whole
};

fs::path day_entry_path(const fs::path &top, const std::string &day_file_name);
// False when there is no entry.
bool read_day_entry(const fs::path &top, const std::string &day_file_name, day_entry &entry);
void write_day_entry(const fs::path &top, const std::string &day_file_name, const day_entry &entry);
// An entry from its text; false when the text is not a whole entry (lines
// it does not know are passed over).
bool parse_day_entry(const std::string &text, day_entry &entry);
void remove_day_entry(const fs::path &top, const std::string &day_file_name);
// Names of every entry.
std::vector<std::string> day_entry_names(const fs::path &top);

// One channel of a converted recording.
struct recording_channel {
    channel_codes codes;
    int64_t first = 0, last = 0; // first and last sample, Unix microseconds
    double rate = 0.0;
    double volts_per_count = 0.0;
    double gain = 0.0;
    uint64_t samples = 0; // in the recording
    uint64_t filed = 0;   // added to the archive by its conversion
    struct span {
        int64_t first, last;
        uint64_t samples;
    };
    std::vector<span> spans; // continuous stretches
};

// The facts of a recording that a conversion keeps.
struct recording_facts {
    std::string path; // as given to brantel
    std::string run;  // the run that converted it
    std::vector<recording_channel> channels;
    std::string check; // staged recordings: the hash of their samples file
};

std::string facts_text(const recording_facts &facts);
// False when the text is not a facts file.
bool parse_facts(const std::string &text, recording_facts &facts);
// The name of a recording's facts file, from its path as given.
std::string recording_key(const std::string &path);
fs::path recording_facts_path(const fs::path &top, const std::string &path);
// The folder of the facts of recordings as read (brantel --catalog), keyed
// as recordings/ is.
fs::path catalog_of(const fs::path &top);

} // namespace sds
