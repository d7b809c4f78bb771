#include "entry.h"

int brantel_main(int, char**) { return 0; }
void Usage(char*) {}
