/*
 * Tagged allocation of the OS abstraction layer, named duplicates and
 * bounded string operations.
 */
#include "host/alloc.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unordered_map>

#include "wos_alloc.h"
#include "yfw_str.h"

namespace ocni::host {
namespace {

struct Registry {
    std::mutex mu;
    std::unordered_map<std::string, size_t> live; /* tag -> live blocks; keys never erased */
    std::unordered_map<const void *, const std::string *> blocks;
    std::string fail_tag;
    unsigned fail_nth = 0;
};

Registry &reg()
{
    static Registry *r = new Registry; /* outlives every static user */
    return *r;
}

/* Whether this allocation is to be refused (a test asked for it). */
bool refuse(Registry &r, const std::string &tag)
{
    if (r.fail_nth == 0 || (!r.fail_tag.empty() && r.fail_tag != tag))
        return false;
    return --r.fail_nth == 0;
}

void *tagged_calloc(size_t size, size_t count, const char *tag)
{
    if (size != 0 && count > SIZE_MAX / size)
        return nullptr;
    std::string t = tag != nullptr ? tag : "";
    Registry &r = reg();
    std::lock_guard<std::mutex> lk(r.mu);
    if (refuse(r, t))
        return nullptr;
    size_t bytes = size * count;
    void *p = calloc(1, bytes == 0 ? 1 : bytes);
    if (p == nullptr)
        return nullptr;
    auto it = r.live.emplace(std::move(t), 0).first;
    ++it->second;
    r.blocks[p] = &it->first;
    return p;
}

} // namespace

size_t alloc_live(const std::string &tag)
{
    Registry &r = reg();
    std::lock_guard<std::mutex> lk(r.mu);
    auto it = r.live.find(tag);
    return it == r.live.end() ? 0 : it->second;
}

std::string alloc_tag_of(const void *p)
{
    Registry &r = reg();
    std::lock_guard<std::mutex> lk(r.mu);
    auto it = r.blocks.find(p);
    return it == r.blocks.end() ? std::string() : *it->second;
}

void alloc_fail_nth(const std::string &tag, unsigned nth)
{
    Registry &r = reg();
    std::lock_guard<std::mutex> lk(r.mu);
    r.fail_tag = tag;
    r.fail_nth = nth;
}

bool alloc_refused(const char *tag)
{
    Registry &r = reg();
    std::lock_guard<std::mutex> lk(r.mu);
    return refuse(r, tag);
}

} // namespace ocni::host

using namespace ocni::host;

extern "C" {

void *wos_named_calloc_(size_t size, size_t count, const char *tag)
{
    try {
        return tagged_calloc(size, count, tag);
    } catch (...) {
        return nullptr;
    }
}

void wos_named_free(void *p)
{
    if (p == nullptr)
        return;
    {
        Registry &r = reg();
        std::lock_guard<std::mutex> lk(r.mu);
        auto it = r.blocks.find(p);
        if (it != r.blocks.end()) {
            --r.live[*it->second];
            r.blocks.erase(it);
        }
    }
    free(p);
}

char *yfw_strdup(const char *s, const char *tag)
{
    if (s == nullptr)
        return nullptr;
    size_t n = strlen(s) + 1;
    char *p = static_cast<char *>(wos_named_calloc_(1, n, tag));
    if (p != nullptr)
        memcpy(p, s, n);
    return p;
}

int yfw_strncpy_s(const char *caller, char *dest, size_t destsz, const char *src, size_t count)
{
    (void)caller;
    if (dest == nullptr || destsz == 0)
        return 1;
    if (src == nullptr) {
        dest[0] = '\0';
        return 1;
    }
    size_t n = strnlen(src, count);
    int cut = 0;
    if (n > destsz - 1) {
        n = destsz - 1;
        cut = 1;
    }
    memmove(dest, src, n);
    dest[n] = '\0';
    return cut;
}

int yfw_strcpy_s(const char *caller, char *dest, size_t destsz, const char *src)
{
    return yfw_strncpy_s(caller, dest, destsz, src, SIZE_MAX);
}

int yfw_strcat_s(const char *caller, char *dest, size_t destsz, const char *src)
{
    (void)caller;
    if (dest == nullptr || destsz == 0)
        return 1;
    size_t len = strnlen(dest, destsz);
    if (len == destsz) { /* unterminated destination: terminate it, nothing fits */
        dest[destsz - 1] = '\0';
        return 1;
    }
    if (src == nullptr)
        return 1;
    size_t n = strlen(src);
    int cut = 0;
    if (n > destsz - 1 - len) {
        n = destsz - 1 - len;
        cut = 1;
    }
    memmove(dest + len, src, n);
    dest[len + n] = '\0';
    return cut;
}

} // extern "C"
