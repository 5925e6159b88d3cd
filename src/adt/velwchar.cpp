#include <vellib/velwchar.h>

#define VEL_MODULE      "adt/velwchar"
#define VEL_WCHAR(verb) vel_wchar_##verb

#include "adt/velwchar_core.h"
