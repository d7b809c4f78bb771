// The files an SDS archive reads back: day files and staged recordings
// (miniSEED records), the facts of a recording and the index entry of a day
// file. Any of them may have been damaged or edited by hand.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>

#include "fuzz_support.h"
#include "mseed_read.h"
#include "sds_index.h"

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
    sds::recording_facts facts;
    (void)sds::parse_facts(bytes, facts);
    sds::day_entry entry;
    sds::parse_day_entry(bytes, entry);
    return 0;
}
