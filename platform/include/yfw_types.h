/*
 * Core types shared by the mapping framework and its plug-ins: result codes,
 * data tree nodes, the mapping and request contexts, the request descriptor
 * and the xpath-operation record.
 *
 * Plain C; every layout here is part of the binary contract between the
 * framework and a plug-in loaded with dlopen.
 */
#ifndef YFW_TYPES_H
#define YFW_TYPES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------ */
/* Result codes                                                        */
/* ------------------------------------------------------------------ */

typedef uint32_t cerrno;

#define YFW_RC_OK               0x00000000u
#define YFW_RC_MAP_FAILED       0xaaf2a000u /* error path recorded; bad args or failed mapping */
#define YFW_RC_INVALID_REQUEST  0xaaf2f400u /* refused; user_error_msg set */
#define YFW_RC_NODE_EXISTS      0xaaf2fc00u /* xpath add: node already there, result still set */
#define YFW_RC_NO_MEMORY        0xaaf29e00u
#define YFW_RC_NOT_APPLICABLE   0xaaf2f600u
#define YFW_RC_NO_COMMON_DATA   0xaaf2f000u
#define SYSDB_RC_NOT_FOUND      0x40818600u
#define SYSDB_RC_INVALID_ARG    0x40818400u /* bad handle, path or pattern */
#define SYSDB_RC_FAILED         0x40818800u /* store engine failure */

/* ------------------------------------------------------------------ */
/* Data tree                                                           */
/* ------------------------------------------------------------------ */

/* Edit operations carried by a node (`op`). */
#define YFW_DT_OP_NONE    0u
#define YFW_DT_OP_MERGE   1u
#define YFW_DT_OP_CREATE  2u
#define YFW_DT_OP_DELETE  3u
#define YFW_DT_OP_REMOVE  4u
#define YFW_DT_OP_REPLACE 5u

/* Bits of `flags`. */
#define YFW_DT_F_LIST      0x01u /* list entry, or key leaf of one */
#define YFW_DT_F_VALUE     0x02u /* node has a value */
#define YFW_DT_F_OP        0x10u /* `op` is meaningful */
#define YFW_DT_F_CHILDREN  0x40u /* node has children; inspect them only when set */

/* Bits of `flags2`. */
#define YFW_DT_F2_DATA_NS  0x10u /* `data_ns` set */

/*
 * One node of a framework data tree. The children of a node lie in one
 * contiguous array owned by the framework, so the address of a node is
 * only stable until a sibling is added to the same parent (the array may
 * move). Scans over `children` stop at a child whose `name` is NULL.
 */
typedef struct zidl_yfw_datatree {
    char *name;                          /* schema node name */
    char *value;                         /* leaf value, NULL for containers and lists */
    uint32_t op;                         /* YFW_DT_OP_* */
    uint32_t n_children;                 /* number of entries in `children` */
    struct zidl_yfw_datatree *children;  /* contiguous child array */
    char *ns;                            /* namespace of the node's module */
    char *data_ns;                       /* namespace of the value (identities) */
    uint8_t flags;                       /* YFW_DT_F_* */
    uint8_t flags2;                      /* YFW_DT_F2_* */
    uint16_t reserved16;
    uint32_t reserved32;
    void *fw;                            /* framework-private, never touched by plug-ins */
} zidl_yfw_datatree;

/* ------------------------------------------------------------------ */
/* Request descriptor                                                  */
/* ------------------------------------------------------------------ */

#define YFW_REQ_READ        0u
#define YFW_REQ_READ_STATE 10u
#define YFW_REQ_EDIT        1u  /* any value other than 0 and 10 is an edit */

/*
 * The framework's request descriptor. Only `op_type` is named; the
 * selection markers and the mode word that decide whether a read wants
 * configuration nodes live at fixed byte offsets of the descriptor.
 */
#define YFW_REQ_OFF_SEL_7F0  0x7f0u /* uint16, bit 15 */
#define YFW_REQ_OFF_SEL_570  0x570u /* uint8,  bits 0..2 */
#define YFW_REQ_OFF_SEL_548  0x548u /* uint8,  bits 0..1 */
#define YFW_REQ_OFF_SEL_541  0x541u /* uint16, bits 0..13 (groups 0x1ff, 0x600, 0x3800) */
#define YFW_REQ_OFF_SEL_4DC  0x4dcu /* uint8,  bits 0..3 */
#define YFW_REQ_OFF_SEL_528  0x528u /* uint8,  bits 0..2 */
#define YFW_REQ_OFF_SEL_508  0x508u /* uint8,  bits 0..1 */
#define YFW_REQ_OFF_SEL_520  0x520u /* uint8,  bits 0..1 */
#define YFW_REQ_OFF_SEL_56C  0x56cu /* uint8,  bits 0..3 */
#define YFW_REQ_OFF_MODE     0x550u /* uint32 mode word */
#define YFW_REQ_MODE_SELECTED 2u    /* with a marker set: leave configuration out */
#define YFW_REQ_SIZE         0x800u

typedef struct yfw_request {
    uint32_t op_type;
    uint8_t body[YFW_REQ_SIZE - sizeof(uint32_t)];
} yfw_request;

/* ------------------------------------------------------------------ */
/* Contexts                                                            */
/* ------------------------------------------------------------------ */

#define YFW_MAX_ANCESTORS 50

typedef struct yfw_ancestor {
    const char *path;          /* schema path, e.g. "/network-instances" */
    zidl_yfw_datatree *node;   /* the request node at that level */
} yfw_ancestor;

/* Per-request state, owned by the framework, shared by all callbacks of one request. */
typedef struct yfw_req_ctx {
    yfw_request *request;
    yfw_ancestor ancestors[YFW_MAX_ANCESTORS];
    uint8_t depth;                  /* number of valid entries in `ancestors` */
    zidl_yfw_datatree *current_list;
    char *trim_path;                /* trim-path list context */
    uint32_t suppress_flag;         /* additions made while set are dropped */
    uint32_t vrf_path_flag;         /* set while the native VRF entry is added */
    void *common_data_ptr;          /* plug-in's per-request route record */
    char *user_error_msg;           /* message for the client; freed by the framework */
    void *fw;                       /* framework-private */
} yfw_req_ctx;

/* Mapping context handed to every callback. */
typedef struct yfw_map_ctx {
    yfw_req_ctx *req_ctx;
    uint32_t debug_state;   /* address passed to yfw_debug_should_log */
    void *err_log;          /* log handle for level 0 lines */
    void *trc_log;          /* log handle for level 3 lines */
    void *ltrace_buf;       /* lightweight trace buffer */
    uint32_t ltrace_on;     /* non-zero: also write every line to ltrace_buf */
    void *fw;               /* framework-private */
} yfw_map_ctx;

/* ------------------------------------------------------------------ */
/* xpath-operation record                                              */
/* ------------------------------------------------------------------ */

#define YFW_XPATH_OP_ADD   1u
#define YFW_XPATH_OP_FIND  4u

#define YFW_XPATH_NODE_CONTAINER 1u
#define YFW_XPATH_NODE_LIST      2u
#define YFW_XPATH_NODE_LEAF      3u

#define YFW_XPATH_VALUE_LEN  300
#define YFW_XPATH_NS_LEN     250
#define YFW_XPATH_PATH_LEN   1000

typedef struct yfw_map_xpath_op {
    zidl_yfw_datatree *root;                /* 0    */
    zidl_yfw_datatree *result;              /* 8    */
    uint32_t op;                            /* 16   */
    uint32_t node_type;                     /* 20   */
    char value[YFW_XPATH_VALUE_LEN];        /* 24   */
    char ns[YFW_XPATH_NS_LEN];              /* 324  */
    char path[YFW_XPATH_PATH_LEN];          /* 574  */
    char schema_path[YFW_XPATH_PATH_LEN];   /* 1574 */
    /* 2 bytes of padding: 2576 in all */
} yfw_map_xpath_op;

#ifdef __cplusplus
#define YFW_STATIC_ASSERT static_assert
#else
#define YFW_STATIC_ASSERT _Static_assert
#endif
YFW_STATIC_ASSERT(sizeof(yfw_map_xpath_op) == 2576, "xpath record size");
YFW_STATIC_ASSERT(offsetof(yfw_map_xpath_op, root) == 0, "root");
YFW_STATIC_ASSERT(offsetof(yfw_map_xpath_op, result) == 8, "result");
YFW_STATIC_ASSERT(offsetof(yfw_map_xpath_op, op) == 16, "op");
YFW_STATIC_ASSERT(offsetof(yfw_map_xpath_op, node_type) == 20, "node_type");
YFW_STATIC_ASSERT(offsetof(yfw_map_xpath_op, value) == 24, "value");
YFW_STATIC_ASSERT(offsetof(yfw_map_xpath_op, ns) == 324, "ns");
YFW_STATIC_ASSERT(offsetof(yfw_map_xpath_op, path) == 574, "path");
YFW_STATIC_ASSERT(offsetof(yfw_map_xpath_op, schema_path) == 1574, "schema_path");
YFW_STATIC_ASSERT(offsetof(yfw_request, op_type) == 0, "op_type first");
YFW_STATIC_ASSERT(sizeof(yfw_request) > YFW_REQ_OFF_SEL_7F0 + 1, "descriptor covers markers");

#ifdef __cplusplus
}
#endif

#endif /* YFW_TYPES_H */
