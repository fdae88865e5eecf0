#include "dbus/call_batch.h"

#include <dbus/dbus.h>

#include <chrono>
#include <climits>

#include "dbus/call.h"
#include "dbus/connection.h"
#include "dbus/dbus_ptr.h"
#include "base/absent_text.h"
#include "base/log.h"

namespace korvex::dbus {

namespace {

using Clock = std::chrono::steady_clock;
using Micros = long long;

// What libdbus waits when a caller asks for its default time-out.
constexpr Micros kLibdbusDefaultTimeout = 25000LL * 1000;

// Book-keeping of one call while the batch waits (plain data, so it can live in the pool).
struct Slot {
    dbus_uint32_t serial;
    Micros deadline;  // since the batch was sent
    bool waiting;
};

const char *primitive_name(TextCallShape shape) {
    return shape == TextCallShape::kNvramGet ? "apache_dbus_get_nvram" : "apache_dbus_string_message";
}

Micros timeout_of(const DbusCallSpec &spec) {
    return spec.timeout < 0 ? kLibdbusDefaultTimeout : static_cast<Micros>(spec.timeout) * 1000;
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
        slots_[i] = Slot{serial, timeout_of(*calls_[i].spec), true};
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
            if (slots_[i].waiting && slots_[i].serial == serial) {
                close(i);
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
            if (!slots_[i].waiting) {
                continue;
            }
            if (slots_[i].deadline <= now) {
                close(i);
            } else if (slots_[i].deadline < next) {
                next = slots_[i].deadline;
            }
        }
        return next - now;
    }

    void close(std::size_t i) {
        slots_[i].waiting = false;
        --waiting_;
    }

    request_rec *r_;
    TextCall *calls_;
    Slot *slots_;
    std::size_t count_;
    std::size_t waiting_ = 0;
    const Clock::time_point start_ = Clock::now();
};

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
        MessagePtr message = build_call(*data, calls[i]);
        dbus_uint32_t serial = 0;
        if (message && dbus_connection_send(data->conn, message.get(), &serial)) {
            collector.sent(i, serial);
        }
    }
    dbus_connection_flush(data->conn);
    collector.run(data->conn);
    drain_incoming(data);
    for (std::size_t i = 0; i < count; ++i) {
        if (calls[i].result == nullptr) {
            log_no_reply(calls[i]);
        }
    }
    return true;
}

}  // namespace korvex::dbus
