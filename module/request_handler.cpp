#include "module/request_handler.h"

#include <cstring>

#include "base/guard.h"
#include "base/log.h"
#include "commands/system/firmware_update.h"
#include "dbus/peer_catalog.h"
#include "dbus/primitives.h"
#include "module/cross_site_config.h"
#include "module/fault_hooks.h"
#include "module/request_arguments.h"
#include "module/request_body.h"
#include "registry/command_table.h"

namespace {

constexpr char kContentType[] = "text/html;charset=utf-8";
constexpr char kUploadRefused[] = "The firmware upload was incomplete or could not be stored; nothing was updated.";

// The serve_* helpers are parts of korvex_handler: their log lines carry its name.
constexpr char kHandlerName[] = "korvex_handler";
#define HLOG(level, ...) KLOG_AS((level), kHandlerName, __VA_ARGS__)

// The arguments of a POST: the body, URL-unescaped as a whole ("+" stays "+"), becomes
// the request's argument string and is split into the table where it is, so that a large
// body is held once (afterwards r->args reads as the first argument's name). Null when
// there is no usable body (*status says why); nothing of such a body is used.
apr_table_t *body_arguments(request_rec *r, BodyStatus *status) {
    char *body = get_postdata(r, status);
    char *text = body != nullptr ? korvex::unescape_in_place(body) : nullptr;
    if (text == nullptr) return nullptr;
    r->args = text;
    return korvex::parse_arguments(r->pool, text);
}

apr_table_t *query_arguments(request_rec *r) {
    return korvex::parse_arguments(r->pool, r->args != nullptr ? apr_pstrdup(r->pool, r->args) : nullptr);
}

// True when the resource serves the request's method (r->allowed, set by allow_methods).
bool method_allowed(const request_rec *r) { return (r->allowed & (AP_METHOD_BIT << r->method_number)) != 0; }

// The request's arguments: the query string of a GET, the body of a POST. Returns OK, or
// the status to answer instead: 405 for a method the resource does not serve, 413 for a
// body over the limit. *arguments is null for a POST without a usable body.
int request_arguments(request_rec *r, apr_table_t **arguments) {
    *arguments = nullptr;
    if (!method_allowed(r)) return korvex::http::kMethodNotAllowed;
    if (r->method_number == M_GET) {
        *arguments = query_arguments(r);
        return korvex::http::kOk;
    }
    BodyStatus status = BodyStatus::kRead;
    *arguments = body_arguments(r, &status);
    return status == BodyStatus::kTooLarge ? korvex::http::kRequestEntityTooLarge : korvex::http::kOk;
}

// "sdk.cgi" and "send.dat" forward the argument "json" to a daemon; a POST without a
// usable body forwards nothing.
const char *json_argument(apr_table_t *arguments) { return apr_table_get(arguments, "json"); }

int no_usable_body() {
    HLOG(KORVEX_LOG_ERROR, "tmp is NULL\n");
    return korvex::http::kOk;
}

int serve_sdk(request_rec *r) {
    ap_set_content_type(r, kContentType);
    apr_table_t *arguments = nullptr;
    const int status = request_arguments(r, &arguments);
    if (status != korvex::http::kOk) return status;
    if (arguments == nullptr) return no_usable_body();
    const char *reply = korvex::string_message(r, json_argument(arguments), korvex::peer::kSdkJsonCommand);
    if (reply != nullptr) ap_rprintf(r, "%s", reply);
    return korvex::http::kOk;
}

// Stores the upload of "update.cgi"; a refused one answers its error status with a short
// text, and an earlier image stays as it was.
int receive_image(request_rec *r) {
    const int refused = save_uImage(r);
    if (refused != 0) {
        HLOG(KORVEX_LOG_ERROR, "upload refused (%d), the updater is not started\n", refused);
        if (refused != AP_FILTER_ERROR) ap_custom_response(r, refused, kUploadRefused);
    }
    return refused;
}

int serve_update(request_rec *r) {
    if (!method_allowed(r)) return korvex::http::kMethodNotAllowed;
    return korvex::firmware::update_from_upload(r, receive_image,
                                                korvex::fault::purge_pause(r, korvex::firmware::kPurgePause));
}

int serve_network(request_rec *r) {
    ap_set_content_type(r, kContentType);
    apr_table_t *arguments = nullptr;
    const int status = request_arguments(r, &arguments);
    if (status != korvex::http::kOk) return status;
    // Every argument is a command, run in table order with nothing between their outputs;
    // an unusable body runs none.
    if (arguments != nullptr) apr_table_do(runQuery, r, arguments, nullptr);
    return korvex::http::kOk;
}

int serve_send_dat(request_rec *r) {
    HLOG(KORVEX_LOG_REQUEST, "send.dat doing\n");
    ap_set_content_type(r, kContentType);
    apr_table_t *arguments = nullptr;
    const int status = request_arguments(r, &arguments);
    if (status != korvex::http::kOk) return status;
    if (arguments == nullptr) return no_usable_body();
    korvex::string_message(r, json_argument(arguments), korvex::peer::kAppSendDat);
    return korvex::http::kOk;
}

int serve_get_dat(request_rec *r) {
    ap_set_content_type(r, kContentType);
    if (!method_allowed(r)) return korvex::http::kMethodNotAllowed;
    ap_rprintf(r, "%s", korvex::string_message(r, korvex::peer::kAppGetDatArgument, korvex::peer::kAppGetDat));
    return korvex::http::kOk;
}

constexpr apr_int64_t method_bit(int method) { return AP_METHOD_BIT << method; }
constexpr apr_int64_t kGet = method_bit(M_GET);  // HEAD too: Apache counts it as GET
constexpr apr_int64_t kPost = method_bit(M_POST);

struct Resource {
    const char *handler_name;
    // The methods it serves: any other is answered 405, and Apache names these in the
    // answer's Allow header (r->allowed).
    apr_int64_t methods;
    int (*serve)(request_rec *r);
};

// The one place that says which methods each resource serves.
constexpr Resource kResources[] = {
    {"sdk.cgi", kGet | kPost, serve_sdk},
    {"update.cgi", kGet | kPost, serve_update},
    {"network.cgi", kGet | kPost, serve_network},
    {"send.dat", kPost, serve_send_dat},
    {"get.dat", kGet, serve_get_dat},
};

// The request's resource serves `methods`. Apache builds the Allow header of a 405 answer
// from r->allowed_methods; r->allowed is the older field, which method_allowed reads.
void allow_methods(request_rec *r, apr_int64_t methods) {
    r->allowed = methods;
    ap_clear_method_list(r->allowed_methods);
    r->allowed_methods->method_mask = methods;
}

// Answers echo client values into HTML byte for byte (clients rely on those bytes), so
// every answer tells the browser to run nothing and to guess no other type, and lets only
// pages of the gateway's own origin show it in a frame (its upload page shows update.cgi's
// answer in one). Set among the error headers so that 405 and 500 answers carry them too.
void forbid_active_content(request_rec *r) {
    apr_table_setn(r->err_headers_out, "X-Content-Type-Options", "nosniff");
    apr_table_setn(r->err_headers_out, "Content-Security-Policy", "default-src 'none'; frame-ancestors 'self'");
}

}  // namespace

bool is_korvex_resource(const char *handler_name) {
    if (handler_name == nullptr) return false;
    for (const Resource &resource : kResources) {
        if (std::strcmp(handler_name, resource.handler_name) == 0) return true;
    }
    return false;
}

// A failure inside the module (an exception) answers 500 with the reason in the log,
// never a 200 with a cut-off body.
int korvex_handler(request_rec *r) {
    if (r->handler == nullptr) return korvex::http::kDeclined;
    for (const Resource &resource : kResources) {
        if (std::strcmp(r->handler, resource.handler_name) == 0) {
            allow_methods(r, resource.methods);
            forbid_active_content(r);
            // Before any argument is read, any body consumed or any call made.
            if (const int refused = korvex::cross_site::refusal(r)) return refused;
            return korvex::guarded(resource.handler_name, korvex::http::kInternalServerError, [r, &resource] {
                korvex::fault::before_serve(r);
                const int status = resource.serve(r);
                korvex::fault::after_serve(r);
                return status;
            });
        }
    }
    return korvex::http::kDeclined;
}
