#include "module/server_directives.h"

#include <string_view>

#include "module/apache_log_sink.h"
#include "module/cross_site_config.h"
#include "module/cross_site_policy.h"
#include "registry/deployment_settings.h"

namespace korvex::directives {
namespace {

// The host reaches a shell line as one word; a plain host name is all orbwebm2m takes.
const char *set_orbweb_host(cmd_parms *cmd, void *, const char *value) {
    if (cmd->server->is_virtual)
        return "KorvexOrbwebHost applies to the whole server: set it outside <VirtualHost>";
    std::string_view host;
    unsigned port = 0;
    if (!cross_site::parse_host(value, &host, &port) || port != 0 || host.size() != std::string_view(value).size())
        return apr_psprintf(cmd->pool, "KorvexOrbwebHost: \"%s\" is not a host name", value);
    deployment::set_orbweb_host(apr_pstrdup(cmd->pool, value));
    return nullptr;
}

const char *set_log_thinning(cmd_parms *cmd, void *, int on) {
    if (cmd->server->is_virtual)
        return "KorvexLogThinning applies to the whole server: set it outside <VirtualHost>";
    apache_log::set_thinning(on != 0);
    return nullptr;
}

// Apache keeps every directive function under one untyped pointer type; going through
// void (*)() says the cast is meant.
template <typename Function>
cmd_func directive_function(Function *function) {
    return reinterpret_cast<cmd_func>(reinterpret_cast<void (*)()>(function));
}

}  // namespace

const command_rec kTable[] = {
    AP_INIT_FLAG("KorvexCrossSiteCheck", directive_function(cross_site::set_check), nullptr, RSRC_CONF,
                 "On (default): refuse requests that browsers mark as cross-site, and unknown host names"),
    AP_INIT_ITERATE("KorvexTrustedOrigin", directive_function(cross_site::add_trusted_origin), nullptr, RSRC_CONF,
                    "Origins (scheme://host[:port]) whose pages may call the API"),
    AP_INIT_ITERATE("KorvexAllowedHost", directive_function(cross_site::add_allowed_host), nullptr, RSRC_CONF,
                    "Host names besides ServerName, ServerAlias, localhost and IP literals under which the API answers"),
    AP_INIT_TAKE1("KorvexOrbwebHost", directive_function(set_orbweb_host), nullptr, RSRC_CONF,
                  "Host name of the Orbweb rendezvous server that setOrbwebuuid starts its client against"),
    AP_INIT_FLAG("KorvexLogThinning", directive_function(set_log_thinning), nullptr, RSRC_CONF,
                 "On (default): a record repeated within its interval is held back and counted"),
    {nullptr, nullptr, nullptr, 0, RAW_ARGS, nullptr},
};

int reset_server_wide(apr_pool_t *, apr_pool_t *, apr_pool_t *) {
    deployment::reset();
    apache_log::set_thinning(true);
    return http::kOk;
}

}  // namespace korvex::directives
