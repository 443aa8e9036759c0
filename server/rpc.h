/*
 * The NETCONF operations of the server: every session's RPCs go through
 * one engine (one lock), the running datastore's lock, and the registry
 * of open sessions that kill-session and the lock need.
 */
#ifndef OCNI_SERVER_RPC_H
#define OCNI_SERVER_RPC_H

#include <cstddef>

#include "ocni_map_engine.h"
#include "yang_context.h"

struct nc_session;

namespace ocni::server {

/* Sets the RPC callbacks on the context's ietf-netconf schema; the engine is shared by all sessions. */
bool install_rpcs(const yang::Context &ctx, tool::Engine &engine);

/*
 * After an RPC is answered (its reply freed): gives the heap's free memory
 * back to the system when the RPC moved routes, so that a server idles
 * small again after a large edit or read.
 */
void after_rpc();

/* Session registry: a new session, the end of one (releases its lock), and how many are open. */
void session_started(nc_session *s);
void session_ended(nc_session *s);
size_t session_count();

}  // namespace ocni::server

#endif
