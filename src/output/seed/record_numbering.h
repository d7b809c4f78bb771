// Sequence numbers of miniSEED 2 records: six ASCII digits at the start of
// every record's fixed header, counted on through a file and starting again
// at 1 after 999999.
#pragma once

#include <cstddef>
#include <string>

// Gives the records in `records` (each record_length bytes, one after the
// other) the numbers sequence, sequence + 1, ..., and leaves sequence at the
// number of the record that would come next.
void renumber_records(std::string &records, std::size_t record_length, int &sequence);
