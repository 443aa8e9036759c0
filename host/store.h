/*
 * The configuration store behind the sysdb.h client.
 *
 * Keys are full "/"-separated paths ("/cfg/gl/rsi/vrf/red/name"); values
 * are packed tuples. A key ending in "/" marks a directory that exists
 * even without items below it. Engines keep keys in byte order, so every
 * lookup is an ordered range scan over the literal part of its path.
 *
 * The engine in use is process-wide: connections bound by a plug-in stay
 * valid when a test swaps or empties the store.
 */
#ifndef OCNI_HOST_STORE_H
#define OCNI_HOST_STORE_H

#include <functional>
#include <memory>
#include <string>

#include "yfw_types.h"

namespace ocni::host {

/* Sorted string keys to byte values, with one transaction at a time. */
class StoreEngine {
public:
    virtual ~StoreEngine() = default;

    /*
     * Writes between begin and commit apply together; abort drops them.
     * Writes outside a transaction apply at once. A second begin before
     * commit or abort fails with SYSDB_RC_FAILED.
     */
    virtual cerrno begin() = 0;
    virtual cerrno commit() = 0;
    virtual cerrno abort() = 0;

    /* SYSDB_RC_NOT_FOUND when the key is absent. */
    virtual cerrno get(const std::string &key, std::string &value) = 0;
    virtual cerrno put(const std::string &key, const std::string &value) = 0;
    /* SYSDB_RC_NOT_FOUND when the key is absent. */
    virtual cerrno del(const std::string &key) = 0;
    /*
     * Visits the keys k with lo <= k < hi in byte order (an empty `hi`
     * means no upper bound) until `fn` returns false.
     */
    using Visitor = std::function<bool(const std::string &key, const std::string &value)>;
    virtual cerrno scan(const std::string &lo, const std::string &hi, const Visitor &fn) = 0;
};

/* A new empty in-memory engine. */
std::shared_ptr<StoreEngine> make_memory_engine();

/* The engine every connection uses from now on. */
void store_use_engine(std::shared_ptr<StoreEngine> engine);
/* The engine in use (an empty in-memory one until another is set). */
std::shared_ptr<StoreEngine> store_engine();
/* Starts over with an empty in-memory engine; bind failures are cleared. */
void store_reset();

/* The next `count` binds fail with `rc` (count 0: binds work again). */
void store_fail_binds(cerrno rc, unsigned count);
/* Binds made so far, successful or not. */
size_t store_bind_count();

/* Smallest key greater than every key starting with `prefix` ("" when none). */
std::string prefix_end(const std::string &prefix);

/* Packed tuple of a list of fields ("d" int, "s" text), as tuple_pack makes it. */
class TupleWriter {
public:
    TupleWriter &d(int v);
    TupleWriter &s(const std::string &v);
    const std::string &bytes() const { return buf_; }

private:
    std::string buf_;
};

} // namespace ocni::host

#endif
