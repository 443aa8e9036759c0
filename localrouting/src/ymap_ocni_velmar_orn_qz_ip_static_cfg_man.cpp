/* Read-direction callbacks: native static-route configuration to OpenConfig. */
#define OCNI_SRC_FILE "localrouting/src/ymap_ocni_velmar_orn_qz_ip_static_cfg_man"
#include "ymap_ocni_velmar_orn_qz_ip_static_cfg_man.h"
