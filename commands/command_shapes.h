// Shapes shared by many command handlers. Most commands of "network.cgi" are one of a few
// patterns (pass a text to a daemon and print its reply; store a value under one nvram key;
// print one nvram key; print an integer answer); each pattern lives here once, and a
// command's handler is a one-line call naming its peer-table row or its rule.
//
// Every shape prints with "%s<br>" or "%d<br>" and returns the handler's result (1 success,
// 0 failure). `func` is the name of the handler the shape acts for; the traces carry it.
#pragma once

#include <initializer_list>

#include "base/apache_shim.h"
#include "dbus/dbus_types.h"
#include "dbus/primitives.h"

namespace korvex::shape {

// How a reply text is printed and what it means for the result.
enum class Reply {
    kAlways,     // printed even when absent (as "(null)<br>"); success
    kIfPresent,  // printed only when present; success either way
    kRequired,   // printed only when present; success only when present
};

// Prints `text` with "%s<br>" as `mode` says and returns the handler's result.
int print_reply(request_rec *r, const char *text, Reply mode);

// Sends `text` to the daemon of `spec` (a text-returning call with the time-out of
// apache_dbus_string_message) and prints the reply as `mode` says.
int relay(request_rec *r, const char *text, const DbusCallSpec &spec, Reply mode, const char *func);

// Reads nvram `key` and prints it, absent or not; success.
int print_nvram(request_rec *r, const char *key, const char *func);

// Prints `number` with "%d<br>"; success.
int print_number(request_rec *r, int number);

// Sends the integer `argument` to the daemon of `spec` and prints the integer answer (-1 when
// the call failed) with "%d<br>"; success whatever the answer.
int print_int_call(request_rec *r, int argument, const DbusCallSpec &spec, const char *func);

// ---- Storing a command's value under one nvram key ----

// Which text a store prints.
enum class Echo {
    kNothing,      // prints nothing; success
    kSetReply,     // the platform's reply to the set
    kNotifyReply,  // the notified daemon's reply
    kValue,        // the command's own value
    kStoredValue,  // the key read back once the set (and commit) is done
};

// When the notification is sent relative to the commit.
enum class Notify {
    kNone,
    kBeforeCommit,  // after the set, before the commit
    kAfterCommit,   // after the commit (or after the set when there is no commit)
};

// Whether a command's value may be stored at all.
using ValueCheck = bool (*)(const char *value);

// One row per storing command: set key := value, maybe commit, maybe tell a daemon. A row
// is made by store_key or store_and_commit and the named steps below, never field by field:
//   store_and_commit(kKey).telling_before_commit(peer::kRow).printing(Echo::kNotifyReply)
struct StoreRule {
    const char *key;                          // nvram key written with the command's value
    bool commit = false;                      // commit the working nvram after the set
    Notify notify = Notify::kNone;            // whether and when a daemon is told
    const DbusCallSpec *notify_to = nullptr;  // the daemon, interface and member told (text call)
    const char *notify_text = nullptr;        // fixed text sent; null sends the command's value
    Echo echo = Echo::kNothing;               // what is printed
    Reply reply = Reply::kAlways;             // how it is printed and what the result is
    ValueCheck accepts = nullptr;             // null: every value is stored
    const char *refusal = nullptr;            // printed when `accepts` refuses the value (null: nothing)

    // The same row, telling `peer` the command's value (or `fixed_text`) after the set and
    // before the commit.
    constexpr StoreRule telling_before_commit(const DbusCallSpec &peer, const char *fixed_text = nullptr) const {
        return telling(Notify::kBeforeCommit, peer, fixed_text);
    }
    // The same row, telling `peer` after the commit (after the set when there is none).
    constexpr StoreRule telling_after_commit(const DbusCallSpec &peer, const char *fixed_text = nullptr) const {
        return telling(Notify::kAfterCommit, peer, fixed_text);
    }
    // The same row, printing `what` as `how` says (instead of printing nothing).
    constexpr StoreRule printing(Echo what, Reply how = Reply::kAlways) const {
        StoreRule row = *this;
        row.echo = what;
        row.reply = how;
        return row;
    }
    // The same row, storing only values `check` accepts; others print `refusal` (null:
    // nothing), change nothing and fail.
    constexpr StoreRule accepting_only(ValueCheck check, const char *refusal_text = nullptr) const {
        StoreRule row = *this;
        row.accepts = check;
        row.refusal = refusal_text;
        return row;
    }

private:
    // Not an aggregate: rows come from the helpers only.
    constexpr explicit StoreRule(const char *stored_key, bool commits) : key(stored_key), commit(commits) {}
    constexpr StoreRule telling(Notify when, const DbusCallSpec &peer, const char *fixed_text) const {
        StoreRule row = *this;
        row.notify = when;
        row.notify_to = &peer;
        row.notify_text = fixed_text;
        return row;
    }
    friend constexpr StoreRule store_key(const char *key);
    friend constexpr StoreRule store_and_commit(const char *key);
};

// Sets `key` to the command's value, and nothing else: no commit, nobody told, nothing
// printed, every value accepted.
constexpr StoreRule store_key(const char *key) { return StoreRule(key, false); }

// Sets `key` to the command's value and commits the working nvram.
constexpr StoreRule store_and_commit(const char *key) { return StoreRule(key, true); }

// Runs a store rule for the command's value. A value the rule does not accept prints the
// rule's refusal, changes nothing and fails.
int store(request_rec *r, const char *value, const StoreRule &rule, const char *func);

// Runs a store rule only when `value` differs from the stored text of the rule's key (byte
// comparison; an absent stored text counts as different). When equal nothing is written or
// sent and an absent text is printed as `rule.reply` says.
int store_if_changed(request_rec *r, const char *value, const StoreRule &rule, const char *func);

// A service started by one shell line and stopped by another, chosen by the command's value.
struct ServiceSwitch {
    const char *start_line;  // run for the value "1"
    const char *stop_line;   // run for the value "0"
    const DbusCallSpec *run_with;  // the "doSystem" row (its time-out)
};

// Runs the switch's line for "1" or "0" and succeeds; any other value runs nothing and fails.
int switch_service(request_rec *r, const char *value, const ServiceSwitch &service);

// The gateway's model as the platform daemon names it ("getModel"); null without a reply.
const char *gateway_model(request_rec *r);

// Prints the text answer of a call that sends the text `argument` to `spec`, absent or not
// ("(null)<br>"); success.
int print_text_call(request_rec *r, const char *argument, const DbusCallSpec &spec, const char *func);

// Has the platform daemon run one shell line, built by korvex::shell_line from `tmpl` and
// `values`, with the time-out of `spec` (a "doSystem" row). Returns the daemon's answer
// (-1 when the call failed). The line is not logged: it may carry a password.
int run_shell(request_rec *r, const DbusCallSpec &spec, const char *tmpl,
              std::initializer_list<const char *> values = {});
// The same, also saying how far the call got (dbus/primitives.h).
int run_shell(request_rec *r, const DbusCallSpec &spec, const char *tmpl, std::initializer_list<const char *> values,
              Delivery *delivery);

}  // namespace korvex::shape
