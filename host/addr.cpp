/*
 * Address conversions. Numeric only: nothing here resolves a name.
 */
#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <netdb.h>
#include <sys/socket.h>

#include "qz_addr.h"

namespace {

size_t addr_len(uint32_t af)
{
    return af == QZ_AF_INET ? 4 : af == QZ_AF_INET6 ? 16 : 0;
}

int hex_digit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

} // namespace

extern "C" {

int qz_inet_pton(int af, const char *src, ip_addr_t *dst)
{
    if (af != QZ_AF_INET && af != QZ_AF_INET6)
        return -1;
    if (src == nullptr || dst == nullptr)
        return 0;
    ip_addr_t a;
    memset(&a, 0, sizeof a);
    if (inet_pton(af == QZ_AF_INET ? AF_INET : AF_INET6, src, a.addr) != 1)
        return 0;
    a.af = uint32_t(af);
    *dst = a;
    return 1;
}

int ip_addr2hex_string(const ip_addr_t *addr, char *buf, size_t bufsz)
{
    if (addr == nullptr || buf == nullptr)
        return -1;
    size_t n = addr_len(addr->af);
    if (n == 0 || bufsz < 2 * n + 1)
        return -1;
    static const char digits[] = "0123456789abcdef";
    for (size_t i = 0; i < n; ++i) {
        buf[2 * i] = digits[addr->addr[i] >> 4];
        buf[2 * i + 1] = digits[addr->addr[i] & 0xf];
    }
    buf[2 * n] = '\0';
    return 0;
}

int hex_string2ip_addr(const char *hex, ip_addr_t *addr)
{
    if (hex == nullptr || addr == nullptr)
        return -1;
    size_t len = strlen(hex);
    uint32_t af = len == 8 ? QZ_AF_INET : len == 32 ? QZ_AF_INET6 : 0;
    if (af == 0)
        return -1;
    ip_addr_t a;
    memset(&a, 0, sizeof a);
    for (size_t i = 0; i < len / 2; ++i) {
        int hi = hex_digit(hex[2 * i]);
        int lo = hex_digit(hex[2 * i + 1]);
        if (hi < 0 || lo < 0)
            return -1;
        a.addr[i] = uint8_t(hi << 4 | lo);
    }
    a.af = af;
    *addr = a;
    return 0;
}

const char *ip_addr_string(const ip_addr_t *addr)
{
    static thread_local char text[QZ_ADDR_STR_LEN];
    text[0] = '\0';
    if (addr == nullptr || addr_len(addr->af) == 0)
        return text;
    if (inet_ntop(addr->af == QZ_AF_INET ? AF_INET : AF_INET6, addr->addr, text, sizeof text) == nullptr)
        text[0] = '\0';
    return text;
}

int getaddrinfo_qz(const char *node, const char *service, const struct addrinfo *hints,
                   struct addrinfo **res)
{
    if (res == nullptr)
        return EAI_FAIL;
    *res = nullptr;
    struct addrinfo h;
    memset(&h, 0, sizeof h);
    if (hints != nullptr)
        h = *hints;
    h.ai_flags |= AI_NUMERICHOST;
    if (service != nullptr)
        h.ai_flags |= AI_NUMERICSERV;
    return getaddrinfo(node, service, &h, res);
}

void freeaddrinfo_qz(struct addrinfo *res)
{
    if (res != nullptr)
        freeaddrinfo(res);
}

} // extern "C"
