#include "vxfil/debug.h"

namespace VxFil {
int vxfil_debug = 0;
}
