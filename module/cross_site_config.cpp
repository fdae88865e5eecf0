#include "module/cross_site_config.h"

#include "base/log.h"
#include "module/cross_site_policy.h"

extern "C" module AP_MODULE_DECLARE_DATA korvex_module;

namespace korvex::cross_site {
namespace {

constexpr char kRefusedText[] = "cross-site request refused";
constexpr char kForeignHostText[] = "unknown host name refused";

struct ServerConfig {
    int check;                     // -1 not set here, 0 off, 1 on
    apr_array_header_t *trusted;   // const char *: validated origins
    apr_array_header_t *hosts;     // const char *: KorvexAllowedHost names
    apr_array_header_t *allowed;   // const char *: every allowed host name, made by prepare()
};

ServerConfig *config_of(server_rec *s) {
    return static_cast<ServerConfig *>(ap_get_module_config(s->module_config, &korvex_module));
}

void append_names(apr_array_header_t *to, const apr_array_header_t *names) {
    if (names == nullptr) return;
    for (int i = 0; i < names->nelts; ++i)
        *static_cast<const char **>(apr_array_push(to)) = APR_ARRAY_IDX(names, i, const char *);
}

void log_refusal(request_rec *r, const Decision &decision) {
    const int length = static_cast<int>(decision.evidence.size() > 200 ? 200 : decision.evidence.size());
    if (decision.verdict == Verdict::kForeignHost) {
        KLOG_AS(KORVEX_LOG_STATE, "cross_site_check", "request for an unknown host refused: %s %s, Host: %.*s\n",
                r->method, r->uri, length, decision.evidence.data());
    } else {
        KLOG_AS(KORVEX_LOG_STATE, "cross_site_check", "cross-site request refused: %s %s from %.*s\n", r->method,
                r->uri, length, decision.evidence.data());
    }
}

}  // namespace

const char *set_check(cmd_parms *cmd, void *, int on) {
    config_of(cmd->server)->check = on ? 1 : 0;
    return nullptr;
}

const char *add_trusted_origin(cmd_parms *cmd, void *, const char *value) {
    Origin origin;
    if (!parse_origin(value, &origin))
        return apr_psprintf(cmd->pool, "KorvexTrustedOrigin: \"%s\" is not an origin (scheme://host[:port])", value);
    *static_cast<const char **>(apr_array_push(config_of(cmd->server)->trusted)) = value;
    return nullptr;
}

const char *add_allowed_host(cmd_parms *cmd, void *, const char *value) {
    std::string_view host;
    unsigned port = 0;
    // Wildcards as in ServerAlias are allowed; anything else must be a plain host name.
    const std::string_view text = value;
    const bool wildcard = text.find_first_of("*?") != std::string_view::npos;
    if (text.empty() || (!wildcard && (!parse_host(text, &host, &port) || port != 0)))
        return apr_psprintf(cmd->pool, "KorvexAllowedHost: \"%s\" is not a host name", value);
    *static_cast<const char **>(apr_array_push(config_of(cmd->server)->hosts)) = value;
    return nullptr;
}


void *create_server_config(apr_pool_t *pool, server_rec *) {
    auto *config = static_cast<ServerConfig *>(apr_pcalloc(pool, sizeof(ServerConfig)));
    config->check = -1;
    config->trusted = apr_array_make(pool, 2, sizeof(const char *));
    config->hosts = apr_array_make(pool, 2, sizeof(const char *));
    return config;
}

void *merge_server_config(apr_pool_t *pool, void *base_config, void *add_config) {
    const auto *base = static_cast<ServerConfig *>(base_config);
    const auto *add = static_cast<ServerConfig *>(add_config);
    auto *merged = static_cast<ServerConfig *>(apr_pcalloc(pool, sizeof(ServerConfig)));
    merged->check = add->check != -1 ? add->check : base->check;
    merged->trusted = apr_array_append(pool, base->trusted, add->trusted);
    merged->hosts = apr_array_append(pool, base->hosts, add->hosts);
    return merged;
}

void prepare(apr_pool_t *pconf, server_rec *s) {
    for (server_rec *server = s; server != nullptr; server = server->next) {
        ServerConfig *config = config_of(server);
        if (config == nullptr) continue;
        config->allowed = apr_array_make(pconf, 4, sizeof(const char *));
        if (server->server_hostname != nullptr)
            *static_cast<const char **>(apr_array_push(config->allowed)) = server->server_hostname;
        append_names(config->allowed, server->names);
        append_names(config->allowed, server->wild_names);
        append_names(config->allowed, config->hosts);
        if (config->check == 0) {
            ap_log_error_(__FILE__, __LINE__, korvex_module.module_index, APLOG_WARNING, 0, server,
                         "KorvexCrossSiteCheck is off for %s:%u: any web page that the gateway's user opens can "
                         "change its settings",
                         server->server_hostname != nullptr ? server->server_hostname : "?", server->port);
        }
    }
}

int refusal(request_rec *r) {
    const ServerConfig *config = config_of(r->server);
    if (config == nullptr) return 0;
    Policy policy;
    policy.enabled = config->check != 0;
    policy.trusted_origins = reinterpret_cast<const char *const *>(config->trusted->elts);
    policy.trusted_count = static_cast<std::size_t>(config->trusted->nelts);
    if (config->allowed != nullptr) {
        policy.allowed_hosts = reinterpret_cast<const char *const *>(config->allowed->elts);
        policy.allowed_count = static_cast<std::size_t>(config->allowed->nelts);
    }
    RequestHeaders request;
    request.scheme = ap_http_scheme(r);
    request.host = apr_table_get(r->headers_in, "Host");
    request.sec_fetch_site = apr_table_get(r->headers_in, "Sec-Fetch-Site");
    request.origin = apr_table_get(r->headers_in, "Origin");
    request.referer = apr_table_get(r->headers_in, "Referer");
    const Decision decision = judge(policy, request);
    if (decision.verdict == Verdict::kPass) return 0;
    log_refusal(r, decision);
    ap_custom_response(r, HTTP_FORBIDDEN, decision.verdict == Verdict::kForeignHost ? kForeignHostText : kRefusedText);
    return HTTP_FORBIDDEN;
}

}  // namespace korvex::cross_site
