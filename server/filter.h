/*
 * <get>/<get-config> filters: the VRFs and prefixes a filter names become
 * the engine's read filters (a seek in the store), and the whole filter is
 * then applied to what the engine returns, as XPath through libyang.
 */
#ifndef OCNI_SERVER_FILTER_H
#define OCNI_SERVER_FILTER_H

#include <string>
#include <vector>

#include "edit_ops.h"

struct lyd_node;

namespace ocni::server {

struct Filter {
    bool everything = true;              /* no filter: the whole tree */
    std::vector<std::string> xpaths;     /* the selection: union of these */
    std::vector<tool::ReadFilter> reads; /* engine reads that cover the selection; empty: one of everything */
    bool routes = true;                  /* the selection may hold routes: the engine is read */
};

/* A subtree filter (the content of <filter type="subtree">, as libyang holds it). */
RpcError subtree_filter(const yang::Context &ctx, const lyd_node *content, Filter &out);

/* An XPath filter whose prefixes are module names. */
RpcError xpath_filter(const std::string &select, Filter &out);

/* What `data` holds that the filter selects (data itself when it selects everything). */
RpcError apply_filter(const Filter &f, yang::Tree &data);

}  // namespace ocni::server

#endif
