/* Everything a mapping plug-in may use of its host. */
#ifndef YFW_PLATFORM_H
#define YFW_PLATFORM_H

#include "yfw_types.h"
#include "yfw_map.h"
#include "yfw_str.h"
#include "yfw_trace.h"
#include "wos_alloc.h"
#include "sysdb.h"
#include "qz_addr.h"
#include "imc.h"

#endif /* YFW_PLATFORM_H */
