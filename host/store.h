/*
 * The configuration store behind the sysdb.h client.
 *
 * Keys are full "/"-separated paths ("/cfg/gl/rsi/vrf/red/name"); values
 * are packed tuples. A key ending in "/" marks a directory that exists
 * even without items below it. Engines keep keys in byte order, so every
 * lookup is an ordered range scan over the literal part of its path.
 *
 * Every access goes through a transaction: a read transaction is one
 * snapshot from its first read to its end; a write transaction is the
 * only one at a time (across processes for the persistent engine) and
 * applies all of its writes at commit, or none. A request sets its read
 * transaction as the thread's current one (TxnScope); the plug-in's store
 * lookups read through it and fail outside any scope.
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

/* One transaction; destroyed uncommitted, it aborts. */
class Txn {
public:
    virtual ~Txn() = default;
    virtual bool writable() const = 0;

    /* SYSDB_RC_NOT_FOUND when the key is absent. */
    virtual cerrno get(const std::string &key, std::string &value) = 0;
    /* SYSDB_RC_FAILED in a read transaction. */
    virtual cerrno put(const std::string &key, const std::string &value) = 0;
    /* SYSDB_RC_NOT_FOUND when the key is absent. */
    virtual cerrno del(const std::string &key) = 0;
    /*
     * Visits the keys k with lo <= k < hi in byte order (an empty `hi`
     * means no upper bound) until `fn` returns false, which is a success
     * (YFW_RC_OK). The visitor may write to the transaction it scans.
     */
    using Visitor = std::function<bool(const std::string &key, const std::string &value)>;
    virtual cerrno scan(const std::string &lo, const std::string &hi, const Visitor &fn) = 0;
    /* Applies the writes (a read transaction just ends); the transaction is then closed. */
    virtual cerrno commit() = 0;
    virtual void abort() = 0;
    /* The system's words for the last failed write or commit ("No space left on device"), "" when none. */
    virtual std::string cause() const { return ""; }
};

/* Sorted string keys to byte values. */
class StoreEngine {
public:
    virtual ~StoreEngine() = default;

    /* A snapshot of the committed store; null when none can be taken. */
    virtual std::unique_ptr<Txn> begin_read() = 0;
    /* Waits for the writer's place; null when the store cannot be written. */
    virtual std::unique_ptr<Txn> begin_write() = 0;

    /* Shorthands, each in a transaction of its own (for set-up and tools). */
    using Visitor = Txn::Visitor;
    cerrno get(const std::string &key, std::string &value);
    cerrno put(const std::string &key, const std::string &value);
    cerrno del(const std::string &key);
    cerrno scan(const std::string &lo, const std::string &hi, const Visitor &fn);
};

/*
 * Makes `txn` the thread's current transaction for store lookups while
 * the scope lives (the previous one comes back after).
 */
class TxnScope {
public:
    explicit TxnScope(Txn *txn);
    ~TxnScope();
    TxnScope(const TxnScope &) = delete;
    TxnScope &operator=(const TxnScope &) = delete;
    /* The thread's current transaction, null outside any scope. */
    static Txn *current();

private:
    Txn *prev_;
};

/*
 * Tests that call the plug-in's store functions directly, outside any
 * request: with this on, a lookup outside a scope reads the committed
 * store through a read transaction of its own. Off by default; the host's
 * requests never rely on it.
 */
void store_scope_each_lookup(bool on);

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
