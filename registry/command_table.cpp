// Execution of one command per request argument, with its outcome line.
#include "registry/command_table.h"

#include "registry/module_config.h"

int execAPI(request_rec *r, const char *name, char *value) {
    ModuleConfig *config = getKorvexData(r);
    HashItem *item = (config != nullptr && config->table != nullptr) ? findItem(config->table, name) : nullptr;
    if (item == nullptr) {
        // The name comes straight from the client: escape it before echoing it into HTML.
        ap_rprintf(r, "%s doesn't exist", ap_escape_html2(r->pool, name, 0));
        return -1;
    }
    const int ret = item->handler(r, value);
    ap_rprintf(r, ret == 1 ? "%s done" : "%s failed", name);
    return ret;
}

int runQuery(void *rec, const char *name, const char *value) {
    auto *r = static_cast<request_rec *>(rec);
    const char *text = value;
    if (r->method_number == M_GET) {
        // A malformed escape leaves the value as it stands rather than losing it.
        const char *unescaped = apr_punescape_url(r->pool, value, nullptr, nullptr, 0);
        if (unescaped != nullptr) text = unescaped;
    }
    // The argument table lies in a buffer of the module's own (parse_arguments), so a
    // handler may edit its value in place without a copy: a large body is not held twice.
    execAPI(r, name, const_cast<char *>(text));
    return 1;
}
