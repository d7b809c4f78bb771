// The files an SDS archive reads back: day files (miniSEED records), staged
// recordings (their times and values as varints), the facts of a recording
// and the index entry of a day file. Any of them may have been damaged or
// edited by hand.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <string>

#include "fuzz_support.h"
#include "mseed_read.h"
#include "sds_index.h"
#include "sds_staged_file.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::init_process();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // An exact-size copy, so that reading one byte past it is caught.
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    try {
        std::size_t samples = 0;
        read_seed_records(bytes.data(), bytes.size(), "fuzz", true,
                          [&samples](const seed_record& r) { samples += r.samples.size(); });
    } catch (const std::exception&) {
        // Refused with a message: that is the expected outcome for most inputs.
    }
    staged_content staged;
    std::string why;
    if (decode_staged(bytes, staged, why)) {
        // What decodes encodes again into what decodes the same, bit for bit,
        // and no channel has more values than there are times.
        staged_content again;
        if (!decode_staged(encode_staged(staged), again, why) || again.times != staged.times ||
            again.channels.size() != staged.channels.size())
            __builtin_trap();
        for (std::size_t k = 0; k < staged.channels.size(); ++k) {
            const staged_channel &a = staged.channels[k], &b = again.channels[k];
            if (a.values.size() > staged.times.size() || a.id != b.id || a.values.size() != b.values.size() ||
                (!a.values.empty() &&
                 std::memcmp(a.values.data(), b.values.data(), a.values.size() * sizeof(double)) != 0))
                __builtin_trap();
        }
    }
    sds::recording_facts facts;
    (void)sds::parse_facts(bytes, facts);
    sds::day_entry entry;
    sds::parse_day_entry(bytes, entry);
    return 0;
}
