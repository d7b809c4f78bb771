// The quick-look pictures of an SDS tree: one per recorder (NET.STA.LOC) and
// UTC day, at OUTPUT/report/quicklooks/NET.STA.LOC/YYYY-MM-DD.png (the
// location empty where it is: "XX.REA1."). The report links a day of a
// channel's row to its recorder's picture of that day when the file exists.
#pragma once

#include <filesystem>

#include "report_model.h"

namespace report {

// The folder of the pictures, relative to OUTPUT.
inline constexpr char QUICKLOOK_FOLDER[] = "report/quicklooks";

// Finds the pictures present (archive::quicklooks) and links them from the
// rows of the recorders' channels.
void link_quicklooks(const std::filesystem::path &output, archive &a);

} // namespace report
