#include "dbus/call_batch.h"

#include <dbus/dbus.h>

#include <chrono>
#include <climits>
#include <cstring>

#include "dbus/call.h"
#include "dbus/connection.h"
#include "dbus/dbus_ptr.h"
#include "dbus/silent_peers.h"
#include "base/absent_text.h"
#include "base/log.h"

namespace korvex::dbus {

namespace {

using Clock = std::chrono::steady_clock;
using Micros = long long;

// How one call of the batch ended.
enum class End { kNotSent, kOpen, kAnswered, kExpired };

// Book-keeping of one call while the batch waits (plain data, so it can live in the pool).
struct Slot {
    dbus_uint32_t serial;
    Micros deadline;  // since the batch was sent
    End end;          // kOpen while its reply is awaited
    silent_peers::Call admitted;
};

const char *primitive_name(TextCallShape shape) {
    return shape == TextCallShape::kNvramGet ? "apache_dbus_get_nvram" : "apache_dbus_string_message";
}

Micros timeout_of(const DbusCallSpec &spec) {
    return static_cast<Micros>(silence::timeout_or_default(spec.timeout)) * 1000;
}

// The method call for one item, or null (logged as the primitive logs it).
MessagePtr build_call(const DbusData &data, const TextCall &call) {
    const char *func = primitive_name(call.shape);
    MessagePtr message = new_method_call(&data, func, call.spec->dest, call.spec->ifac, call.spec->cmd);
    if (message && !append_string(message.get(), call.argument)) {
        KLOG_AS(KORVEX_LOG_ERROR, func, "dbus_message_append_args fail\n");
        return nullptr;
    }
    return message;
}

// The reply's first argument as the text primitives return it: "(null)" when it is no text.
const char *reply_text(apr_pool_t *pool, DBusMessage *reply, const char *func) {
    const char *text = first_string(reply);
    if (text == nullptr) {
        KLOG_AS(KORVEX_LOG_ERROR, func, "Message has no arguments!\n");
        return kAbsentText;
    }
    return apr_pstrdup(pool, text);
}

void log_no_reply(const TextCall &call) {
    const DbusCallSpec &spec = *call.spec;
    const char *func = primitive_name(call.shape);
    if (call.shape == TextCallShape::kNvramGet) {
        KLOG_AS(KORVEX_LOG_ERROR, func, "No reply, key: %s, dest: %s, ifac: %s, cmd: %s\n", call.argument,
                spec.dest, spec.ifac, spec.cmd);
    } else {
        KLOG_AS(KORVEX_LOG_ERROR, func, "No reply, str: %s, dest: %s, ifac: %s, command: %s\n", call.argument,
                spec.dest, spec.ifac, spec.cmd);
    }
}

class Collector {
public:
    Collector(request_rec *r, TextCall *calls, Slot *slots, std::size_t count)
        : r_(r), calls_(calls), slots_(slots), count_(count) {}

    void sent(std::size_t i, dbus_uint32_t serial) {
        slots_[i].serial = serial;
        slots_[i].deadline = timeout_of(*calls_[i].spec);
        slots_[i].end = End::kOpen;
        ++waiting_;
    }

    // Waits until every call has its reply or has run out of time.
    void run(DBusConnection *conn) {
        while (waiting_ > 0) {
            while (DBusMessage *raw = dbus_connection_pop_message(conn)) {
                MessagePtr message(raw);
                take(message.get());
            }
            if (waiting_ == 0) {
                break;
            }
            const Micros wait = expire_and_time_left();
            if (waiting_ == 0) {
                break;
            }
            const Micros wait_ms = (wait + 999) / 1000;
            if (!dbus_connection_read_write(conn, wait_ms > INT_MAX ? INT_MAX : static_cast<int>(wait_ms))) {
                break;  // the bus went away: whatever is still open gets no reply
            }
        }
    }

private:
    // A reply to one of the open calls is kept; anything else is dropped.
    void take(DBusMessage *message) {
        const int type = dbus_message_get_type(message);
        if (type != DBUS_MESSAGE_TYPE_METHOD_RETURN && type != DBUS_MESSAGE_TYPE_ERROR) {
            return;
        }
        const dbus_uint32_t serial = dbus_message_get_reply_serial(message);
        for (std::size_t i = 0; i < count_; ++i) {
            if (slots_[i].end == End::kOpen && slots_[i].serial == serial) {
                close(i, End::kAnswered);
                if (type == DBUS_MESSAGE_TYPE_METHOD_RETURN) {
                    calls_[i].result = reply_text(r_->pool, message, primitive_name(calls_[i].shape));
                }
                return;
            }
        }
    }

    // Gives up on calls past their own deadline; returns the time until the next deadline.
    Micros expire_and_time_left() {
        const Micros now =
            std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start_).count();
        Micros next = LLONG_MAX;
        for (std::size_t i = 0; i < count_; ++i) {
            if (slots_[i].end != End::kOpen) {
                continue;
            }
            if (slots_[i].deadline <= now) {
                close(i, End::kExpired);
            } else if (slots_[i].deadline < next) {
                next = slots_[i].deadline;
            }
        }
        return next - now;
    }

    void close(std::size_t i, End end) {
        slots_[i].end = end;
        --waiting_;
    }

    request_rec *r_;
    TextCall *calls_;
    Slot *slots_;
    std::size_t count_;
    std::size_t waiting_ = 0;
    const Clock::time_point start_ = Clock::now();
};

// Tells the table of silent destinations how each call went. All calls left together, so
// a destination that answered any of them answered in time: its other calls' time-outs
// (a member it ignores) do not make it silent. Answers are settled first for that reason.
void settle_destinations(const TextCall *calls, const Slot *slots, std::size_t count) {
    auto answered_dest = [&](const char *dest) {
        for (std::size_t j = 0; j < count; ++j) {
            if (slots[j].end == End::kAnswered && dest != nullptr && calls[j].spec->dest != nullptr &&
                std::strcmp(calls[j].spec->dest, dest) == 0) {
                return true;
            }
        }
        return false;
    };
    for (std::size_t i = 0; i < count; ++i) {
        if (slots[i].end == End::kAnswered) silent_peers::settle(slots[i].admitted, silence::Outcome::kAnswered);
    }
    for (std::size_t i = 0; i < count; ++i) {
        if (slots[i].end == End::kAnswered || silent_peers::fails_fast(slots[i].admitted)) continue;
        const bool timed_out = slots[i].end == End::kExpired && !answered_dest(calls[i].spec->dest);
        silent_peers::settle(slots[i].admitted, timed_out ? silence::Outcome::kTimedOut : silence::Outcome::kNotSent);
    }
}

}  // namespace

bool call_text_batch(request_rec *r, TextCall *calls, std::size_t count, const char *caller) {
    for (std::size_t i = 0; i < count; ++i) {
        calls[i].result = nullptr;
    }
    DbusData *data = lookup(r, caller);
    if (data == nullptr) {
        return false;
    }
    auto *slots = static_cast<Slot *>(apr_pcalloc(r->pool, sizeof(Slot) * (count > 0 ? count : 1)));
    Collector collector(r, calls, slots, count);
    for (std::size_t i = 0; i < count; ++i) {
        slots[i].end = End::kNotSent;
        slots[i].admitted = silent_peers::Call{-1, {silence::Admission::kSend, 0, 0}};
        MessagePtr message = build_call(*data, calls[i]);
        if (!message) continue;
        slots[i].admitted = silent_peers::admit(calls[i].spec->dest, calls[i].spec->timeout);
        if (silent_peers::fails_fast(slots[i].admitted)) continue;
        dbus_uint32_t serial = 0;
        if (dbus_connection_send(data->conn, message.get(), &serial)) {
            collector.sent(i, serial);
        }
    }
    dbus_connection_flush(data->conn);
    collector.run(data->conn);
    drain_incoming(data);
    settle_destinations(calls, slots, count);
    for (std::size_t i = 0; i < count; ++i) {
        const bool reported = !silent_peers::fails_fast(slots[i].admitted) ||
                              silent_peers::report_fast_failure(slots[i].admitted);
        if (calls[i].result == nullptr && reported) {
            log_no_reply(calls[i]);
        }
    }
    return true;
}

}  // namespace korvex::dbus
