/* Read-direction callbacks: native static-route configuration to OpenConfig. */
#ifndef YMAP_OCNI_VELMAR_ORN_QZ_IP_STATIC_CFG_MAN_H
#define YMAP_OCNI_VELMAR_ORN_QZ_IP_STATIC_CFG_MAN_H

#include "ocni_common.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif
