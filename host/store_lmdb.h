/*
 * Persistent store engine: the configuration kept in an LMDB environment
 * in a directory of its own, so that it survives restarts.
 *
 * A write transaction is one LMDB write transaction: writers queue on
 * LMDB's lock (across processes), and a process killed at any moment
 * leaves the store as before or as after it. Each commit is a durable
 * sync (about half a millisecond), so callers make one per edit. A read
 * transaction is one LMDB snapshot.
 */
#ifndef OCNI_HOST_STORE_LMDB_H
#define OCNI_HOST_STORE_LMDB_H

#include <cstddef>
#include <memory>
#include <string>

#include "store.h"

namespace ocni::host {

/*
 * Address space reserved for the store, sparse on disk: 16 GiB holds tens of
 * millions of routes, and stays within what memory checkers can map.
 */
constexpr size_t LMDB_MAP_SIZE = size_t(1) << 34;

/*
 * Opens (creating it when missing) the store in directory `dir`; null with
 * `err` set (a sentence) when the directory or the environment cannot be
 * opened. A data file that is empty, shorter than its meta page says, or
 * not an environment at all is refused before it is mapped. A store the
 * user cannot write opens read-only: its write transactions fail.
 */
std::shared_ptr<StoreEngine> open_lmdb_engine(const std::string &dir, std::string &err);

} // namespace ocni::host

#endif
