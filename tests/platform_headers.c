/* The platform interface is plain C: every header must compile as C11 on its own. */
#include "yfw_types.h"
#include "yfw_map.h"
#include "yfw_str.h"
#include "yfw_trace.h"
#include "wos_alloc.h"
#include "sysdb.h"
#include "qz_addr.h"
#include "imc.h"
#include "yfw_platform.h"

int ocni_platform_headers_compile_as_c(void)
{
    return (int)sizeof(yfw_map_xpath_op);
}
