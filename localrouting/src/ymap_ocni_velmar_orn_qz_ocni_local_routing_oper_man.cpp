/* State-direction callbacks: operational answers to OpenConfig state. */
#define OCNI_SRC_FILE "localrouting/src/ymap_ocni_velmar_orn_qz_ocni_local_routing_oper_man"
#include "ymap_ocni_velmar_orn_qz_ocni_local_routing_oper_man.h"
