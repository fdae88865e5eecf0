// The module's configuration directives: the cross-site check's (module/cross_site_config),
// the deployment settings' (KorvexOrbwebHost) and the log's (KorvexLogThinning).
#pragma once

#include "base/apache_shim.h"

namespace korvex::directives {

// The module record's directive table.
extern const command_rec kTable[];

// At pre-configuration: forgets the server-wide settings of the previous pass.
int reset_server_wide(apr_pool_t *pconf, apr_pool_t *plog, apr_pool_t *ptemp);

}  // namespace korvex::directives
