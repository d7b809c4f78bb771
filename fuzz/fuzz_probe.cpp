// The format probe over the first bytes of a file.
#include <cstddef>
#include <cstdint>

#include "fuzz_support.h"
#include "vxfil/format_probe.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::init_process();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The probe is handed a buffer of exactly the given size, so that reading
    // one byte past it is caught.
    (void)VxFil::probe_format(data, size);
    return 0;
}
