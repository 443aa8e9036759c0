/*
 * Address conversions of the platform. Numeric only: nothing here ever
 * resolves a name.
 */
#ifndef QZ_ADDR_H
#define QZ_ADDR_H

#include <stddef.h>
#include <stdint.h>
#include <netdb.h>

#ifdef __cplusplus
extern "C" {
#endif

#define QZ_AF_INET  2
#define QZ_AF_INET6 10

/* Hexadecimal address text: 8 (IPv4) or 32 (IPv6) lower-case digits. */
#define QZ_HEX_ADDR_LEN 33
#define QZ_ADDR_STR_LEN 46

typedef struct ip_addr {
    uint32_t af;        /* QZ_AF_INET or QZ_AF_INET6 */
    uint8_t addr[16];   /* network order; IPv4 in the first 4 bytes */
} ip_addr_t;

/* Parses numeric address text of family `af`; 1 on success, 0 bad text, -1 bad family. */
int qz_inet_pton(int af, const char *src, ip_addr_t *dst);
/* Fixed-width lower-case hexadecimal text of the address; 0 on success. */
int ip_addr2hex_string(const ip_addr_t *addr, char *buf, size_t bufsz);
/* Parses hexadecimal address text (8 digits IPv4, 32 IPv6); 0 on success. */
int hex_string2ip_addr(const char *hex, ip_addr_t *addr);
/* Canonical text of the address, in per-thread storage of this library. */
const char *ip_addr_string(const ip_addr_t *addr);

/* Numeric-only getaddrinfo (never a name lookup). */
struct addrinfo;
int getaddrinfo_qz(const char *node, const char *service, const struct addrinfo *hints,
                   struct addrinfo **res);
void freeaddrinfo_qz(struct addrinfo *res);

#ifdef __cplusplus
}
#endif

#endif /* QZ_ADDR_H */
