/* State-direction callbacks: operational answers to OpenConfig state. */
#ifndef YMAP_OCNI_VELMAR_ORN_QZ_OCNI_LOCAL_ROUTING_OPER_MAN_H
#define YMAP_OCNI_VELMAR_ORN_QZ_OCNI_LOCAL_ROUTING_OPER_MAN_H

#include "ocni_common.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif
