/*
 * Keyed list utilities over framework data trees, and value namespaces.
 */
#define OCNI_SRC_FILE "localrouting/src/ymap_ni_static_util"
#include "ymap_ni_static_util.h"

#include <string.h>

extern "C" {

void oc_ni_set_data_namespace(zidl_yfw_datatree *node, const char *ns)
{
    if (node == NULL)
        return;
    if (node->data_ns != NULL && ns != NULL && strcmp(node->data_ns, ns) == 0)
        return;
    node->data_ns = yfw_strdup(ns, OCNI_TAG_NS);
    node->flags2 |= YFW_DT_F2_DATA_NS;
}

} // extern "C"
