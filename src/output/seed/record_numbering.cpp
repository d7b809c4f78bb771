// Renumbering of records packed apart (see record_numbering.h).
#include "record_numbering.h"

namespace {

constexpr int LAST_NUMBER = 999999;
constexpr std::size_t DIGITS = 6;

// "%06d" of a number from 1 to 999999.
void put_number(char *field, int number) {
    for (std::size_t i = DIGITS; i-- > 0;) {
        field[i] = static_cast<char>('0' + number % 10);
        number /= 10;
    }
}

} // namespace

void renumber_records(std::string &records, std::size_t record_length, int &sequence) {
    if (record_length < DIGITS) return;
    for (std::size_t at = 0; at + record_length <= records.size(); at += record_length) {
        put_number(records.data() + at, sequence);
        sequence = sequence >= LAST_NUMBER ? 1 : sequence + 1;
    }
}
