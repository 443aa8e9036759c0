/*
 * The interface manager the host simulates: a table of interfaces that
 * the host and tests fill, looked up by imc_interface_find.
 */
#ifndef OCNI_HOST_IFACE_TABLE_H
#define OCNI_HOST_IFACE_TABLE_H

#include <cstdint>
#include <string>

#include "imc.h"

namespace ocni::host {

/* Adds (or renumbers) an interface; names are matched exactly. */
void imc_add_interface(const std::string &name, uint32_t ifindex);
void imc_clear();
/* Makes every call fail with `rc` (0: calls work again). */
void imc_fail_calls(cerrno rc);
/*
 * With `on`, every name is an interface (a name not added gets an index
 * of its own): the router a host plays has whatever its configuration
 * names.
 */
void imc_every_name_present(bool on);

} // namespace ocni::host

#endif
