/*
 * Interface manager client.
 */
#ifndef IMC_H
#define IMC_H

#include <stdint.h>
#include "yfw_types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define IMC_IFNAME_LEN 64

typedef struct imc_if_req {
    char name[IMC_IFNAME_LEN];
} imc_if_req_t;

typedef struct imc_if_resp {
    int32_t status;      /* 0: interface found */
    uint32_t ifindex;
} imc_if_resp_t;

/* The framework's connection to the interface manager. */
extern void *yfw_ocifmgr_im_conn;

/* Looks up `count` interfaces; 0 when the call itself worked. */
cerrno imc_interface_find(void *conn, uint32_t count, const imc_if_req_t *req,
                          const void *options, imc_if_resp_t *resp);

#ifdef __cplusplus
}
#endif

#endif /* IMC_H */
