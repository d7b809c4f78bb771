// Comment-headed recordings: a first comment line naming sample rate, gain,
// station, date and time, followed by blocks of three channels of 512 or 128
// samples, either as little-endian 16-bit words (BinaryVXFIL) or as text lines
// (AsciiVXFIL).
//
// Binary block: for each of the three channels a 2-word time stamp (absent in
// the oldest files, whose first line begins with "T") and m_length signed
// 16-bit samples. Text block: one line per channel, two stamp numbers (again
// absent in the oldest files) and m_length sample numbers.
#pragma once

#include <array>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "vxfil/comment.h"

namespace VxFil {

// Three sample sequences, one per output channel.
using atype = std::array<std::vector<double>, 3>;

struct VXFIL_arguments {
    bool m_concat = false;          // join consecutive blocks whose stamps continue
    bool m_old_file_type = false;   // oldest kind: blocks carry no time stamps
    bool m_fail_parse_path = false; // a path without date and time is fatal
    bool m_quiet = false;           // suppress informational messages
    // First-generation reading: the oldest kind's "Tidserier RATE GAIN" line
    // is a comment like type 1 without the "!", and its text form goes to
    // the text reader.
    bool m_legacy = false;
};

// Small message builder: Formatter() << "text " << 42 gives a std::string.
class Formatter {
  public:
    enum ConvertToString { to_str };

    template <typename T> Formatter& operator<<(const T& value) {
        m_stream << value;
        return *this;
    }
    std::string str() const { return m_stream.str(); }
    operator std::string() const { return m_stream.str(); }
    std::string operator>>(ConvertToString) const { return m_stream.str(); }

  private:
    std::ostringstream m_stream;
};

// "TZ=UTC", writable because putenv keeps the pointer.
extern char TZ[7];

// Broken-down UTC time to seconds; the process time zone is forced to UTC
// before it is used, so mktime already works in UTC.
time_t my_timegm(tm* t);

// Reads the date ("%04d%*c%02d%*c%02d") and time ("%02d%*c%02d%*c%02d") of a
// type 3 comment. False when the date does not scan.
bool parse_date(arguments& a, time_t& start_of_day, time_t& start);

// The comment test without an object; prints the invalid-comment message when
// no grammar matches.
bool validate_comment(const char* line);

// The first line of the oldest kind, "Tidserier RATE GAIN" (gain optional),
// read like a type 1 comment without the "!".
bool valid_comment_oldest(const char *line, arguments &a);

class VXFIL {
  public:
    enum {
        LINELEN = 256, // capacity of station, date and time texts of a comment
        SECS_PER_DAY = 86400,
        FBUFSIZE = 51200, // text reader's line buffer
        Max = 514         // largest binary block of one channel: 512 samples and a 2-word stamp
    };

    // Opens path in mode "rb".
    VXFIL(const char* path, VXFIL_arguments* args);
    // Takes ownership of an already-open stream; path only names the
    // recording (start time from the name, messages).
    VXFIL(FILE* stream, const char* path, VXFIL_arguments* args);
    VXFIL(const VXFIL&) = delete;
    VXFIL& operator=(const VXFIL&) = delete;

    virtual int readcomment() = 0;
    virtual int read(atype& out, int* time) = 0;
    virtual ~VXFIL();
    virtual const char* type() const { return "vxfil"; }
    virtual bool is_binary() const { return false; }

    void set_newfile() { m_old_file_type = false; }
    void set_oldfile() { m_old_file_type = true; }
    bool is_newfile() const { return !m_old_file_type; }
    // A block was read ahead but not joined to the current one.
    bool is_timegap() const { return m_is_next && !m_use_next; }
    // Output channel index for the 1st, 2nd and 3rd channel of the file; each below 3.
    void set_micorder(unsigned a, unsigned b, unsigned c);
    size_t get_length() const { return m_length; }
    double get_frequency() const { return m_frequency; }
    // current holds the block and its joined successor.
    bool extended_data() const { return m_use_next; }
    int get_gain() const { return m_gain; }
    char get_station() const { return m_station.empty() ? '\0' : m_station[0]; }
    const char* firstline() const { return m_firstline.c_str(); }
    time_t get_vxtime(int i) const;
    time_t get_vxtimenext() const { return get_vxtime(2); }
    time_t get_start_of_day() const;
    static short le16toh16(short word);

    bool parse_comment(const char* line);
    bool set_time_start_of_day(const char* fname);
    void set_time_base(const char* fname);

    int readnext(atype& next_block);
    int getdata();
    void copy_next_to_current();
    void extend_current();
    bool can_we_use_next();
    // True when the waiting block does NOT continue the current one (a gap).
    bool time_is_ok();

    struct file_closer {
        void operator()(FILE* f) const {
            if (f) std::fclose(f);
        }
    };

    std::unique_ptr<FILE, file_closer> m_fd; // first member: opened before anything else
    size_t m_length = 512;
    bool m_concat = false;
    bool m_is_next = false;
    bool m_use_next = false;
    bool m_old_file_type = false;
    std::array<unsigned, 3> m_micorder{0, 1, 2};
    double m_frequency = 18.0;
    int m_timegaps = 0;
    bool m_unixtime = false;
    bool m_quiet = false;
    int m_gain = -1;
    std::string m_station;
    bool m_uncertain_year = false;
    std::string m_date_from_comment;
    std::string m_time_from_comment;
    time_t m_start_of_day = 0;
    time_t m_time_base = 0;
    bool m_legacy = false;
    // Half-hour index (0 to 47) and station letter of the file-name pattern
    // that gave the start of day; -1 and 0 when no pattern matched.
    int m_name_half_hour = -1;
    char m_name_station = 0;
    int m_time[4] = {0, 0, 0, 0};
    atype current;
    atype next;
    std::string m_firstline;

  protected:
    // The shared first-line reader: the text reader ends the line at a line
    // feed and drops carriage returns, the binary reader ends it at a carriage
    // return and keeps line feeds.
    int read_comment_line(bool binary);
    // Prints "File: <path> Type:<type>", reads and parses the comment and
    // warns about an uncertain year; run by the subclass constructors.
    void open_recording(const char* path);

  private:
    void prepare(const char* path, VXFIL_arguments* args);
    void force_utc() const;
};

class BinaryVXFIL : public VXFIL {
  public:
    BinaryVXFIL(const char* path, VXFIL_arguments* args);
    BinaryVXFIL(FILE* stream, const char* path, VXFIL_arguments* args);
    int readcomment() override;
    int read(atype& out, int* time) override;
    ~BinaryVXFIL() override;
    const char* type() const override { return "binary"; }
    bool is_binary() const override { return true; }
};

class AsciiVXFIL : public VXFIL {
  public:
    AsciiVXFIL(const char* path, VXFIL_arguments* args);
    AsciiVXFIL(FILE* stream, const char* path, VXFIL_arguments* args);
    int readcomment() override;
    int read(atype& out, int* time) override;
    ~AsciiVXFIL() override;
    const char* type() const override { return "text"; }
    bool is_binary() const override { return false; }

  private:
    std::vector<char> m_line; // FBUFSIZE characters
};

// Chooses the text or binary reader from the first 256 bytes of path and
// returns it, owned by the caller. Throws std::runtime_error ("Can't open
// <path>\n", "fread: EOF \n", "Found no end of first commentline\n").
VXFIL* detect(const char* path, VXFIL_arguments* args);
VXFIL* detect(const char* path, bool concat, bool old_file_type, bool fail_parse_path);
// The same choice on an already-open, seekable stream (rewound after probing),
// whose ownership passes to the reader; path only names the recording. The
// stream is closed when an error is thrown.
VXFIL* detect(FILE* stream, const char* path, VXFIL_arguments* args);

} // namespace VxFil
