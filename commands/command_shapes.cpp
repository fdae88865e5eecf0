// Shapes shared by many command handlers (see command_shapes.h).
#include "commands/command_shapes.h"

#include <cstring>
#include <string_view>

#include "commands/shell_line.h"
#include "dbus/peer_catalog.h"
#include "dbus/primitives.h"
#include "base/absent_text.h"
#include "base/log.h"

namespace korvex::shape {

int print_reply(request_rec *r, const char *text, Reply mode) {
    if (text != nullptr || mode == Reply::kAlways) {
        ap_rprintf(r, "%s<br>", or_absent(text));
    }
    return (text != nullptr || mode != Reply::kRequired) ? 1 : 0;
}

int relay(request_rec *r, const char *text, const DbusCallSpec &spec, Reply mode, const char *func) {
    KLOG_AS(KORVEX_LOG_TRACE, func, "enter %s\n", func);
    const char *reply = korvex::string_message(r, text, spec);
    int ret = print_reply(r, reply, mode);
    KLOG_AS(KORVEX_LOG_TRACE, func, "leave %s\n", func);
    return ret;
}

int print_nvram(request_rec *r, const char *key, const char *func) {
    KLOG_AS(KORVEX_LOG_TRACE, func, "enter %s\n", func);
    const char *stored = korvex::nvram_get(r, key);
    int ret = print_reply(r, stored, Reply::kAlways);
    KLOG_AS(KORVEX_LOG_TRACE, func, "leave %s\n", func);
    return ret;
}

int print_number(request_rec *r, int number) {
    ap_rprintf(r, "%d<br>", number);
    return 1;
}

int print_text_call(request_rec *r, const char *argument, const DbusCallSpec &spec, const char *func) {
    KLOG_AS(KORVEX_LOG_TRACE, func, "enter %s\n", func);
    const char *answer = apache_dbus_send_str_ret_str(r, argument, &spec);
    int ret = print_reply(r, answer, Reply::kAlways);
    KLOG_AS(KORVEX_LOG_TRACE, func, "leave %s\n", func);
    return ret;
}

int run_shell(request_rec *r, const DbusCallSpec &spec, const char *tmpl, std::initializer_list<const char *> values) {
    const char *line = korvex::shell_line(r->pool, tmpl, values);
    return apache_dbus_send_str_ret_int(r, line, &spec);
}

int run_shell(request_rec *r, const DbusCallSpec &spec, const char *tmpl, std::initializer_list<const char *> values,
              Delivery *delivery) {
    return send_str_ret_int(r, korvex::shell_line(r->pool, tmpl, values), spec, delivery);
}

int switch_service(request_rec *r, const char *value, const ServiceSwitch &service) {
    const std::string_view wanted(value);
    if (wanted == "1") {
        run_shell(r, *service.run_with, service.start_line);
    } else if (wanted == "0") {
        run_shell(r, *service.run_with, service.stop_line);
    } else {
        return 0;
    }
    return 1;
}

const char *gateway_model(request_rec *r) {
    return korvex::string_message(r, korvex::peer::kGetModelArgument, korvex::peer::kGetModel);
}

int print_int_call(request_rec *r, int argument, const DbusCallSpec &spec, const char *func) {
    KLOG_AS(KORVEX_LOG_TRACE, func, "enter %s\n", func);
    int answer = apache_dbus_send_int_ret_int(r, argument, &spec);
    int ret = print_number(r, answer);
    KLOG_AS(KORVEX_LOG_TRACE, func, "leave %s\n", func);
    return ret;
}

namespace {

const char *notify(request_rec *r, const char *value, const StoreRule &rule) {
    const char *text = rule.notify_text != nullptr ? rule.notify_text : value;
    return korvex::string_message(r, text, *rule.notify_to);
}

}  // namespace

int store(request_rec *r, const char *value, const StoreRule &rule, const char *func) {
    KLOG_AS(KORVEX_LOG_TRACE, func, "enter %s\n", func);
    if (rule.accepts != nullptr && !rule.accepts(value)) {
        if (rule.refusal != nullptr) ap_rputs(rule.refusal, r);
        KLOG_AS(KORVEX_LOG_TRACE, func, "leave %s\n", func);
        return 0;
    }
    const char *set_reply = korvex::nvram_set(r, rule.key, value);
    const char *notify_reply = nullptr;
    if (rule.notify == Notify::kBeforeCommit) {
        notify_reply = notify(r, value, rule);
    }
    if (rule.commit) {
        korvex::nvram_commit(r);
    }
    if (rule.notify == Notify::kAfterCommit) {
        notify_reply = notify(r, value, rule);
    }

    int ret = 1;
    switch (rule.echo) {
        case Echo::kNothing:
            break;
        case Echo::kSetReply:
            ret = print_reply(r, set_reply, rule.reply);
            break;
        case Echo::kNotifyReply:
            ret = print_reply(r, notify_reply, rule.reply);
            break;
        case Echo::kValue:
            ret = print_reply(r, value, rule.reply);
            break;
        case Echo::kStoredValue:
            ret = print_reply(r, korvex::nvram_get(r, rule.key), rule.reply);
            break;
    }
    KLOG_AS(KORVEX_LOG_TRACE, func, "leave %s\n", func);
    return ret;
}

int store_if_changed(request_rec *r, const char *value, const StoreRule &rule, const char *func) {
    const char *current = korvex::nvram_get(r, rule.key);
    if (current != nullptr && std::strcmp(current, value) == 0) {
        KLOG_AS(KORVEX_LOG_TRACE, func, "%s unchanged\n", rule.key);
        return print_reply(r, nullptr, rule.reply);
    }
    return store(r, value, rule, func);
}

}  // namespace korvex::shape
