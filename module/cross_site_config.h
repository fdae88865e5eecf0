// The server's side of the cross-site check: the directives KorvexCrossSiteCheck,
// KorvexTrustedOrigin and KorvexAllowedHost (server and virtual-host scope), and the
// check itself, run at the entry of the five resources.
#pragma once

#include "base/apache_shim.h"

namespace korvex::cross_site {

// The per-server configuration functions of the module record, and its directives (listed
// in module/server_directives.cpp).
const char *set_check(cmd_parms *cmd, void *, int on);
const char *add_trusted_origin(cmd_parms *cmd, void *, const char *value);
const char *add_allowed_host(cmd_parms *cmd, void *, const char *value);
void *create_server_config(apr_pool_t *pool, server_rec *s);
void *merge_server_config(apr_pool_t *pool, void *base, void *add);

// At post-configuration: gathers each server's allowed host names (ServerName, ServerAlias,
// KorvexAllowedHost) once, and warns about servers where the check is off.
void prepare(apr_pool_t *pconf, server_rec *s);

// 0 when the request may be served; otherwise it has been logged and the status to answer
// (403) is returned. Reads headers only.
int refusal(request_rec *r);

}  // namespace korvex::cross_site
