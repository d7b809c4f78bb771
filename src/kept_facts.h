// --facts DIR: the facts of every recording that a run converts to
// miniSEED, kept in DIR/.brantel-archive/recordings/ as an SDS archive keeps
// them, so that the station metadata of a mirrored archive can be derived
// without reading its data again.
#pragma once

#include <vector>

#include "sds_index.h"

// The facts describe the recordings' own samples: options that change the
// samples or cut them (and every layout but --mseed) are refused with one
// line before anything is written.
void refuse_options_beside_facts();

// --catalog DIR keeps the same facts, of the recordings as read, in
// DIR/.brantel-archive/catalog/ whatever the layout and options: the report
// page of a mirrored archive draws from them.

// Writes the facts after the run's outputs (with --facts, --catalog or both);
// a failure ends the process with one line.
void keep_facts(const std::vector<sds::recording_facts> &facts);
