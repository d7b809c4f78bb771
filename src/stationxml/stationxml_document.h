// The FDSN StationXML 1.2 document of an archive's channel epochs.
//
// One Network per network code; one Station per element and table row (an
// element re-sited by a second row gets a second Station with the same code),
// holding that row's channel epochs; one Channel per epoch. Every node has
// the startDate and endDate of the data it describes.
//
// The response is flat, gains only, as far as the table and the recordings
// know the instrument:
//   stage 1, the sensor: Pa to V, the table's sensitivity, a PolesZeros
//     stage without poles or zeros (normalization factor 1 at the table's
//     frequency);
//   stage 2, the digitizer: V to count, the table's counts_per_volt or else
//     1 / (volts-per-count factor x external gain), which is how the
//     recordings turn counts into volts; a Coefficients stage without
//     coefficients, with a decimation of factor 1 at the channel's rate.
// Each stage names its units in a filter element: a stage of a gain and a
// decimation alone passes the schema, but readers refuse it.
// InstrumentSensitivity is the product of the two gains, counts per pascal,
// at the table's frequency.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "channel_epochs.h"

namespace stationxml {

// The digitizer's gain of an epoch in counts per volt; not finite or not
// above 0 when the recordings give no usable factor and the row gives none.
double counts_per_volt(const channel_epoch &e);

// The document, UTF-8. `created` is the Created time (xs:dateTime) and
// `source` the Source text; nothing else of the run goes in, so the same
// plan gives the same bytes.
std::string stationxml_document(const epoch_plan &plan, const std::string &source,
                                const std::string &created);

// A double in the fewest digits that read back to the same value.
std::string shortest(double v);

} // namespace stationxml
