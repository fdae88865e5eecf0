#include "dbus/exchange.h"

#include <chrono>
#include <climits>
#include <cstring>

#include "dbus/connection.h"
#include "dbus/name_owner.h"
#include "dbus/silent_peers.h"
#include "base/log.h"

namespace korvex::dbus {

namespace {

using Micros = long long;

// Book-keeping of one call of a set (plain data, so it can live in the request pool).
struct Slot {
    silent_peers::Call admitted;
    dbus_uint32_t serial;
    Micros deadline;  // since the set went out
    bool awaiting;    // its reply is awaited
    bool went_out;    // handed to the connection (sent, or sent without waiting)
    bool answered;    // a reply or an error reply came
};

bool append(DBusMessage *message, const Arg &arg) {
    switch (arg.type) {
    case Arg::Type::kNone:
        return true;
    case Arg::Type::kString:
        // The bus refuses a message with a text that is not UTF-8; refuse it here instead.
        if (arg.text == nullptr || !dbus_validate_utf8(arg.text, nullptr)) return false;
        return dbus_message_append_args(message, DBUS_TYPE_STRING, &arg.text, DBUS_TYPE_INVALID) != 0;
    case Arg::Type::kInt32: {
        const dbus_int32_t value = static_cast<dbus_int32_t>(arg.bits);
        return dbus_message_append_args(message, DBUS_TYPE_INT32, &value, DBUS_TYPE_INVALID) != 0;
    }
    case Arg::Type::kUint32: {
        const dbus_uint32_t value = arg.bits;
        return dbus_message_append_args(message, DBUS_TYPE_UINT32, &value, DBUS_TYPE_INVALID) != 0;
    }
    }
    return false;
}

// The message for one call, or null (logged with the texts of its kind).
MessagePtr build(const DbusData &data, const Call &call, const char *caller) {
    const bool signal = call.kind == Kind::kSignal;
    MessagePtr message(signal ? dbus_message_new_signal(data.objPath, call.ifac, call.member)
                              : dbus_message_new_method_call(call.dest, data.objPath, call.ifac, call.member));
    if (!message) {
        KLOG_AS(KORVEX_LOG_ERROR, caller, signal ? "Message Null\n" : "Could not allocate D-BUS message\n");
        return nullptr;
    }
    for (const Arg &arg : call.args) {
        if (!append(message.get(), arg)) {
            KLOG_AS(KORVEX_LOG_ERROR, caller, signal ? "dbus_message_append_args fail.\n" : "dbus_message_append_args fail\n");
            return nullptr;
        }
    }
    return message;
}

// Admission of every call. A destination in its silent window whose name has changed hands
// since it went silent (its watchdog started a new daemon) is reached at once.
void admit_all(OwnerCache &owners, const Call *calls, Slot *slots, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        const Call &call = calls[i];
        const char *dest = call.kind == Kind::kMethodCall ? call.dest : nullptr;
        slots[i].admitted = silent_peers::admit(dest, call.timeout_ms, call.effect);
        if (silent_peers::is_silent(slots[i].admitted) &&
            silent_peers::settle_owner(slots[i].admitted, owners.owner_of(dest))) {
            slots[i].admitted = silent_peers::admit(dest, call.timeout_ms, call.effect);
        }
    }
}

Micros deadline_of(const Call &call) {
    return static_cast<Micros>(silence::timeout_or_default(call.timeout_ms)) * 1000;
}

// Hands every admitted call to the connection.
void send_all(DbusData &data, const char *caller, const Call *calls, Slot *slots, Result *results,
              std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        const Call &call = calls[i];
        Slot &slot = slots[i];
        MessagePtr message = build(data, call, caller);
        if (!message) {
            results[i].outcome = Outcome::kNotBuilt;
            continue;
        }
        const silence::Admission admission = slot.admitted.ticket.admission;
        results[i].outcome = Outcome::kFailedFast;
        if (admission == silence::Admission::kFailFast) continue;
        // Queued on the bus, a write to a silent daemon runs when the daemon is free; its
        // late reply would only be dropped, so none is asked for.
        const bool waits = call.kind == Kind::kMethodCall && admission != silence::Admission::kSendNoWait;
        if (!waits && call.kind == Kind::kMethodCall) dbus_message_set_no_reply(message.get(), TRUE);
        if (!dbus_connection_send(data.conn, message.get(), &slot.serial)) {
            if (call.kind == Kind::kSignal) KLOG_AS(KORVEX_LOG_ERROR, caller, "Out Of Memory!\n");
            results[i].outcome = Outcome::kNoReply;
            continue;
        }
        slot.went_out = true;
        slot.deadline = deadline_of(call);
        slot.awaiting = waits;
        if (call.kind == Kind::kSignal) results[i].outcome = Outcome::kReply;
        if (waits) results[i].outcome = Outcome::kNoReply;  // until its reply comes
    }
}

// An error reply of the bus daemon itself saying that the destination has no owner.
bool is_no_owner(DBusMessage *error) {
    const char *sender = dbus_message_get_sender(error);
    if (sender == nullptr || std::strcmp(sender, peer::kBusDaemon) != 0) return false;
    return dbus_message_is_error(error, DBUS_ERROR_SERVICE_UNKNOWN) ||
           dbus_message_is_error(error, DBUS_ERROR_NAME_HAS_NO_OWNER);
}

class Collector {
public:
    Collector(Slot *slots, Result *results, std::size_t count) : slots_(slots), results_(results), count_(count) {
        for (std::size_t i = 0; i < count; ++i) {
            if (slots[i].awaiting) ++awaiting_;
            if (slots[i].went_out && slots[i].deadline > write_deadline_) write_deadline_ = slots[i].deadline;
        }
    }

    // Until every awaited reply came or ran out of time, and everything handed to the
    // connection is written (or its time is up too).
    void run(DBusConnection *conn) {
        for (;;) {
            while (DBusMessage *raw = dbus_connection_pop_message(conn)) {
                MessagePtr message(raw);
                take(std::move(message));
            }
            const Micros now = elapsed();
            Micros next = expire(now);
            const bool writing = dbus_connection_has_messages_to_send(conn) && now < write_deadline_;
            if (awaiting_ == 0 && !writing) return;
            if (writing && write_deadline_ < next) next = write_deadline_;
            const Micros wait_ms = (next - now + 999) / 1000;
            if (!dbus_connection_read_write(conn, wait_ms > INT_MAX ? INT_MAX : static_cast<int>(wait_ms))) {
                return;  // the bus went away: whatever is still awaited gets no reply
            }
        }
    }

private:
    // A reply to an awaited call is kept; anything else is dropped.
    void take(MessagePtr message) {
        const int type = dbus_message_get_type(message.get());
        if (type == DBUS_MESSAGE_TYPE_METHOD_RETURN || type == DBUS_MESSAGE_TYPE_ERROR) {
            const dbus_uint32_t serial = dbus_message_get_reply_serial(message.get());
            for (std::size_t i = 0; i < count_; ++i) {
                if (!slots_[i].awaiting || slots_[i].serial != serial) continue;
                slots_[i].awaiting = false;
                slots_[i].answered = true;
                --awaiting_;
                if (type == DBUS_MESSAGE_TYPE_METHOD_RETURN) {
                    results_[i].outcome = Outcome::kReply;
                    results_[i].reply = std::move(message);
                } else {
                    results_[i].answered_with_error = true;
                    results_[i].no_owner = is_no_owner(message.get());
                }
                return;
            }
        }
        count_dropped_message();
    }

    // Gives up on calls past their deadline; the next deadline still ahead.
    Micros expire(Micros now) {
        Micros next = LLONG_MAX;
        for (std::size_t i = 0; i < count_; ++i) {
            if (!slots_[i].awaiting) continue;
            if (slots_[i].deadline <= now) {
                slots_[i].awaiting = false;
                --awaiting_;
            } else if (slots_[i].deadline < next) {
                next = slots_[i].deadline;
            }
        }
        return next;
    }

    Micros elapsed() const {
        return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start_)
            .count();
    }

    Slot *slots_;
    Result *results_;
    std::size_t count_;
    std::size_t awaiting_ = 0;
    Micros write_deadline_ = 0;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

bool same_dest(const char *a, const char *b) { return a != nullptr && b != nullptr && std::strcmp(a, b) == 0; }

// Tells the table of silent destinations how each call that waited went. All calls of a
// set left together, so a destination that answered any of them answered in time: its
// other calls' time-outs (a member it ignores) do not make it silent.
void settle_all(OwnerCache &owners, const Call *calls, const Slot *slots, std::size_t count, bool connected) {
    auto answered = [&](const char *dest) {
        for (std::size_t j = 0; j < count; ++j) {
            if (slots[j].answered && same_dest(calls[j].dest, dest)) return true;
        }
        return false;
    };
    for (std::size_t i = 0; i < count; ++i) {
        if (slots[i].answered) silent_peers::settle(slots[i].admitted, silence::Outcome::kAnswered);
    }
    for (std::size_t i = 0; i < count; ++i) {
        const silence::Admission admission = slots[i].admitted.ticket.admission;
        if (slots[i].answered || admission == silence::Admission::kFailFast ||
            admission == silence::Admission::kSendNoWait) {
            continue;
        }
        const bool timed_out = slots[i].went_out && connected && !answered(calls[i].dest);
        const silence::Transition transition = silent_peers::settle(
            slots[i].admitted, timed_out ? silence::Outcome::kTimedOut : silence::Outcome::kNotSent);
        if (transition == silence::Transition::kDeclared) {
            silent_peers::note_owner(slots[i].admitted, owners.owner_of(calls[i].dest));
        }
    }
}

}  // namespace

void exchange(request_rec *r, const char *caller, const Call *calls, Result *results, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) results[i] = Result();
    DbusData *data = lookup(r, caller);
    if (data == nullptr) return;

    auto *slots = static_cast<Slot *>(apr_pcalloc(r->pool, sizeof(Slot) * (count > 0 ? count : 1)));
    OwnerCache owners(data->conn);
    admit_all(owners, calls, slots, count);
    send_all(*data, caller, calls, slots, results, count);
    Collector(slots, results, count).run(data->conn);
    settle_all(owners, calls, slots, count, dbus_connection_get_is_connected(data->conn) != 0);
}

bool first_int32(DBusMessage *reply, dbus_int32_t *out) {
    DBusMessageIter iter;
    if (!dbus_message_iter_init(reply, &iter)) return false;
    const int type = dbus_message_iter_get_arg_type(&iter);
    if (type != DBUS_TYPE_INT32 && type != DBUS_TYPE_UINT32) return false;
    dbus_message_iter_get_basic(&iter, out);
    return true;
}

const char *first_string(DBusMessage *reply) {
    DBusMessageIter iter;
    if (!dbus_message_iter_init(reply, &iter)) return nullptr;
    if (dbus_message_iter_get_arg_type(&iter) != DBUS_TYPE_STRING) return nullptr;
    const char *text = nullptr;
    dbus_message_iter_get_basic(&iter, &text);
    return text;
}

}  // namespace korvex::dbus
