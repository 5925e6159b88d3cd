#ifndef VELLIB_IO_VELUTF8STAT_INTERNAL_H
#define VELLIB_IO_VELUTF8STAT_INTERNAL_H

#include <vellib/velutf8stat.h>

#include "io/velstat_core.h"

struct velutf8stat : vel_statcore {};

#endif
