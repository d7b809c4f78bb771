#include "series.h"

std::vector<series_t> data;
series_t time_array;
long samples = 0;
