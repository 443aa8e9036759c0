/*
 * Interface manager over a table of interfaces.
 */
#include "host/iface_table.h"

#include <cstring>
#include <mutex>
#include <unordered_map>

namespace ocni::host {
namespace {

struct Table {
    std::mutex mu;
    std::unordered_map<std::string, uint32_t> ifs;
    cerrno fail = 0;
    bool every_name = false;
};

Table &table()
{
    static Table *t = new Table;
    return *t;
}

char g_conn_token;

} // namespace

void imc_add_interface(const std::string &name, uint32_t ifindex)
{
    std::lock_guard<std::mutex> lk(table().mu);
    table().ifs[name] = ifindex;
}

void imc_clear()
{
    std::lock_guard<std::mutex> lk(table().mu);
    table().ifs.clear();
    table().fail = 0;
    table().every_name = false;
}

void imc_every_name_present(bool on)
{
    std::lock_guard<std::mutex> lk(table().mu);
    table().every_name = on;
}

void imc_fail_calls(cerrno rc)
{
    std::lock_guard<std::mutex> lk(table().mu);
    table().fail = rc;
}

} // namespace ocni::host

using namespace ocni::host;

extern "C" {

void *yfw_ocifmgr_im_conn = &g_conn_token;

cerrno imc_interface_find(void *conn, uint32_t count, const imc_if_req_t *req, const void *options,
                          imc_if_resp_t *resp)
{
    (void)options;
    if (conn == nullptr || (count > 0 && (req == nullptr || resp == nullptr)))
        return YFW_RC_MAP_FAILED;
    try {
        Table &t = table();
        std::lock_guard<std::mutex> lk(t.mu);
        if (t.fail != 0)
            return t.fail;
        for (uint32_t i = 0; i < count; ++i) {
            std::string name(req[i].name, strnlen(req[i].name, sizeof req[i].name));
            auto it = t.ifs.find(name);
            if (it == t.ifs.end() && t.every_name && !name.empty())
                it = t.ifs.emplace(name, uint32_t(t.ifs.size() + 1)).first;
            resp[i].status = it == t.ifs.end() ? 1 : 0;
            resp[i].ifindex = it == t.ifs.end() ? 0 : it->second;
        }
        return YFW_RC_OK;
    } catch (...) {
        return YFW_RC_NO_MEMORY;
    }
}

} // extern "C"
