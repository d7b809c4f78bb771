#include "entry.h"

int main(int argc, char** argv) { return brantel_main(argc, argv); }
