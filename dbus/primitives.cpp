// The nine method-call primitives, each a row of data over the bus exchange: what it
// returns before anything is sent, without a reply and for a reply without a usable first
// argument, which trace lines it writes and which "No reply" record.
#include "dbus/primitives.h"

#include "dbus/exchange.h"
#include "dbus/no_reply_log.h"
#include "dbus/peer_catalog.h"
#include "base/absent_text.h"
#include "base/log.h"

namespace korvex::dbus {

namespace {

constexpr int kNoTrace = 0;

// Integer-returning primitives.
struct IntRow {
    const char *name;
    int trace_level;  // "enter"/"leave" lines (kNoTrace: none)
    int before_sending;
    int without_reply;
    int empty_reply;
    bool trace_value;  // "ret: %d" after a reply
    NoReplyText no_reply;
};

// Text-returning primitives. Failures give null; a reply without a text gives `empty_reply`.
struct TextRow {
    const char *name;
    int trace_level;           // "enter"/"leave" lines (kNoTrace: none)
    const char *empty_reply;   // null, or "(null)" as the formatter writes an absent text
    const char *value_trace;   // logged after a reply with the value (null: not logged)
    const char *leave_format;  // "leave" line; may show the value after the name
    NoReplyText no_reply;
};

constexpr IntRow kStrRetInt{"apache_dbus_send_str_ret_int", KORVEX_LOG_TRACE, -1, -1, -1, true, NoReplyText::kPlain};
constexpr IntRow kIntRetInt{"apache_dbus_send_int_ret_int", KORVEX_LOG_TRACE, -1, -1, -1, true, NoReplyText::kPlain};
constexpr IntRow kCommitNvram{"apache_dbus_commit_nvram", kNoTrace, -1, 0, 0, false, NoReplyText::kCommit};
constexpr IntRow kControlLed{"dbus_control_LED", KORVEX_LOG_TRACE, 0, 0, 0, false, NoReplyText::kLed};

constexpr TextRow kStrRetStr{"apache_dbus_send_str_ret_str", KORVEX_LOG_TRACE, nullptr, "retStr: %s\n",
                             "leave %s, retStr: %s\n", NoReplyText::kPlain};
constexpr TextRow kIntRetStr{"apache_dbus_send_int_ret_str", KORVEX_LOG_CHILD, nullptr, "ret string: %s\n",
                             "leave %s\n", NoReplyText::kPlain};
constexpr TextRow kStringMessage{"apache_dbus_string_message", kNoTrace, kAbsentText, nullptr, nullptr,
                                 NoReplyText::kStr};
constexpr TextRow kGetNvram{"apache_dbus_get_nvram", kNoTrace, kAbsentText, nullptr, nullptr, NoReplyText::kKey};
constexpr TextRow kSetNvram{"apache_dbus_set_nvram", kNoTrace, kAbsentText, nullptr, nullptr, NoReplyText::kKey};

bool sent_nothing(const Result &result) {
    return result.outcome == Outcome::kNoConnection || result.outcome == Outcome::kNotBuilt;
}

void trace(int level, const char *name, const char *format) {
    if (level != kNoTrace) KLOG_AS(level, name, format, name);
}

korvex::Delivery delivery_of(const Call &call, const Result &result) {
    if (sent_nothing(result) || result.no_owner) return korvex::Delivery::kNotSent;
    // A destination that stopped answering: reads are not sent, writes go without waiting.
    if (result.outcome == Outcome::kFailedFast) {
        return call.effect == korvex::peer::Effect::kWrite ? korvex::Delivery::kUnanswered
                                                           : korvex::Delivery::kNotSent;
    }
    return result.outcome == Outcome::kReply || result.answered_with_error ? korvex::Delivery::kAnswered
                                                                           : korvex::Delivery::kUnanswered;
}

int run_int(request_rec *r, const IntRow &row, const Call &call, korvex::Delivery *delivery = nullptr) {
    trace(row.trace_level, row.name, "enter %s\n");
    const Result result = exchange_one(r, row.name, call);
    if (delivery != nullptr) *delivery = delivery_of(call, result);
    if (sent_nothing(result)) return row.before_sending;
    int ret = row.without_reply;
    if (result.outcome != Outcome::kReply) {
        log_no_reply(row.name, row.no_reply, call);
    } else {
        dbus_int32_t value = 0;
        if (first_int32(result.reply.get(), &value)) {
            ret = value;
        } else {
            KLOG_AS(KORVEX_LOG_ERROR, row.name, "Message has no arguments!\n");
            ret = row.empty_reply;
        }
        if (row.trace_value) KLOG_AS(KORVEX_LOG_TRACE, row.name, "ret: %d\n", ret);
    }
    trace(row.trace_level, row.name, "leave %s\n");
    return ret;
}

// What a text primitive returns for a call that has been made, with its log lines.
char *text_of(request_rec *r, const TextRow &row, const Call &call, const Result &result) {
    if (result.outcome != Outcome::kReply) {
        if (!sent_nothing(result)) log_no_reply(row.name, row.no_reply, call);
        return nullptr;
    }
    const char *text = first_string(result.reply.get());
    if (text == nullptr) {
        KLOG_AS(KORVEX_LOG_ERROR, row.name, "Message has no arguments!\n");
        text = row.empty_reply;
    }
    char *ret = text != nullptr ? apr_pstrdup(r->pool, text) : nullptr;
    if (row.value_trace != nullptr) KLOG_AS(KORVEX_LOG_TRACE, row.name, row.value_trace, or_absent(ret));
    return ret;
}

char *run_text(request_rec *r, const TextRow &row, const Call &call) {
    trace(row.trace_level, row.name, "enter %s\n");
    const Result result = exchange_one(r, row.name, call);
    if (sent_nothing(result)) return nullptr;
    char *ret = text_of(r, row, call, result);
    if (row.trace_level != kNoTrace) KLOG_AS(row.trace_level, row.name, row.leave_format, row.name, or_absent(ret));
    return ret;
}

const TextRow &row_of(TextPrimitive primitive) {
    return primitive == TextPrimitive::kGetNvram ? kGetNvram : kStringMessage;
}

}  // namespace

Call text_call(TextPrimitive primitive, const DbusCallSpec &spec, const char *argument) {
    // Both primitives fix their own time-out, whatever the row of the peer table says.
    const int timeout = primitive == TextPrimitive::kGetNvram ? peer::kTimeoutNvram : peer::kTimeoutStringMessage;
    return Call::method(spec.dest, spec.ifac, spec.cmd, timeout, Arg::string(argument));
}

const char *text_outcome(request_rec *r, TextPrimitive primitive, const Call &call, const Result &result) {
    return text_of(r, row_of(primitive), call, result);
}

}  // namespace korvex::dbus

using korvex::dbus::Arg;
using korvex::dbus::Call;
namespace peer = korvex::peer;
namespace rows = korvex::dbus;

int apache_dbus_send_str_ret_int(request_rec *r, const char *str, const DbusCallSpec *spec) {
    return rows::run_int(r, rows::kStrRetInt, Call::method(*spec, Arg::string(str)));
}

char *apache_dbus_send_str_ret_str(request_rec *r, const char *str, const DbusCallSpec *spec) {
    return rows::run_text(r, rows::kStrRetStr, Call::method(*spec, Arg::string(str)));
}

int apache_dbus_send_int_ret_int(request_rec *r, int value, const DbusCallSpec *spec) {
    return rows::run_int(r, rows::kIntRetInt, Call::method(*spec, Arg::int32(value)));
}

char *apache_dbus_send_int_ret_str(request_rec *r, int value, const DbusCallSpec *spec) {
    return rows::run_text(r, rows::kIntRetStr, Call::method(*spec, Arg::int32(value)));
}

char *apache_dbus_string_message(request_rec *r, const char *str, const char *dest, const char *ifac,
                                 const char *command) {
    return rows::run_text(r, rows::kStringMessage,
                          Call::method(dest, ifac, command, peer::kTimeoutStringMessage, Arg::string(str)));
}

char *apache_dbus_get_nvram(request_rec *r, const char *key, const char *dest, const char *ifac) {
    return rows::run_text(r, rows::kGetNvram,
                          Call::method(dest, ifac, peer::kNvramGet.cmd, peer::kNvramGet.timeout, Arg::string(key)));
}

char *apache_dbus_set_nvram(request_rec *r, const char *key, const char *value, const char *dest,
                            const char *ifac) {
    return rows::run_text(r, rows::kSetNvram, Call::method(dest, ifac, peer::kNvramSet.cmd, peer::kNvramSet.timeout,
                                                            Arg::string(key), Arg::string(value)));
}

int apache_dbus_commit_nvram(request_rec *r, const char *dest, const char *ifac) {
    return rows::run_int(r, rows::kCommitNvram,
                         Call::method(dest, ifac, peer::kNvramCommit.cmd, peer::kNvramCommit.timeout,
                                      Arg::string(peer::kNvramCommitArgument)));
}

int dbus_control_LED(request_rec *r, const char *led, unsigned value, const char *dest, const char *ifac) {
    return rows::run_int(r, rows::kControlLed, Call::method(dest, ifac, peer::kSdkLed.cmd, peer::kSdkLed.timeout,
                                                             Arg::string(led), Arg::uint32(value)));
}

namespace korvex {

int send_str_ret_int(request_rec *r, const char *str, const DbusCallSpec &spec, Delivery *delivery) {
    return rows::run_int(r, rows::kStrRetInt, Call::method(spec, Arg::string(str)), delivery);
}

char *nvram_get(request_rec *r, const char *key) {
    return apache_dbus_get_nvram(r, key, peer::kNvramGet.dest, peer::kNvramGet.ifac);
}

char *nvram_set(request_rec *r, const char *key, const char *value) {
    return apache_dbus_set_nvram(r, key, value, peer::kNvramSet.dest, peer::kNvramSet.ifac);
}

int nvram_commit(request_rec *r) {
    return apache_dbus_commit_nvram(r, peer::kNvramCommit.dest, peer::kNvramCommit.ifac);
}

}  // namespace korvex
