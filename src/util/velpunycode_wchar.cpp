#include <vellib/velpunycode_wchar.h>

/* The path is that of the source, seen from here. */
#define VEL_MODULE      "util/../adt/velwchar"
#define VEL_WCHAR(verb) vel_punycode_wchar_##verb

#include "adt/velwchar_core.h"
