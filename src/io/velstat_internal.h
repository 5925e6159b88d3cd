#ifndef VELLIB_IO_VELSTAT_INTERNAL_H
#define VELLIB_IO_VELSTAT_INTERNAL_H

#include <vellib/velstat.h>

#include "io/velstat_core.h"

struct velstat : vel_statcore {};

#endif
