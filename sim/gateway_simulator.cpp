#include "sim/gateway_simulator.h"

#include "dbus/peer_catalog.h"
#include "sim/control_names.h"
#include "sim/dbus_value_build.h"
#include "sim/dbus_value_render.h"

namespace korvex::sim {
namespace {

// Longest wait for bus traffic, so a stop request is noticed soon even when libdbus
// restarts an interrupted poll.
constexpr int kMaxWaitMs = 100;

// The bus daemon keeps method calls sent without destination to itself (it answers them
// with an error), so only the broadcast signals need a match rule.
constexpr char kMatchUpdateSignals[] = "type='signal',interface='com.KorvexLabs.signal.update'";

std::string text_or_empty(const char *text) { return text != nullptr ? text : ""; }

bool add_match(DBusConnection *connection, const char *rule, std::string *error) {
    DBusError dbus_error;
    dbus_error_init(&dbus_error);
    dbus_bus_add_match(connection, rule, &dbus_error);
    if (!dbus_error_is_set(&dbus_error))
        return true;
    *error = std::string("cannot add match rule ") + rule + ": " + dbus_error.message;
    dbus_error_free(&dbus_error);
    return false;
}

}  // namespace

GatewaySimulator::GatewaySimulator(DBusConnection *connection, NvramStore &nvram)
    : connection_(connection),
      nvram_(nvram),
      peers_(nvram),
      names_(connection),
      state_{nvram_, records_, rules_, names_, busy_} {}

bool GatewaySimulator::start(std::string *error) {
    return add_match(connection_, kMatchUpdateSignals, error) && names_.acquire_all(error);
}

int GatewaySimulator::run(const volatile std::sig_atomic_t &stop_requested) {
    while (!stop_requested) {
        dbus_connection_read_write(connection_, busy_.ms_until_next(replies_.ms_until_next(kMaxWaitMs)));
        while (DBusMessage *message = dbus_connection_pop_message(connection_)) {
            handle(message);
            dbus_message_unref(message);
        }
        serve_freed_calls();
        if (disconnected_ || !dbus_connection_get_is_connected(connection_))
            return 1;
        if (replies_.send_due(connection_) > 0)
            dbus_connection_flush(connection_);
    }
    return 0;
}

void GatewaySimulator::handle(DBusMessage *message) {
    switch (dbus_message_get_type(message)) {
    case DBUS_MESSAGE_TYPE_METHOD_CALL:
        handle_method_call(message);
        break;
    case DBUS_MESSAGE_TYPE_SIGNAL:
        if (dbus_message_is_signal(message, DBUS_INTERFACE_LOCAL, "Disconnected"))
            disconnected_ = true;
        else if (dbus_message_has_interface(message, korvex::peer::kIfSignalUpdate))
            records_.add(make_call_record(message));
        break;
    default:
        break;
    }
}

void GatewaySimulator::handle_method_call(DBusMessage *call) {
    const std::string destination = text_or_empty(dbus_message_get_destination(call));
    const std::string interface = text_or_empty(dbus_message_get_interface(call));
    const bool wants_reply = !dbus_message_get_no_reply(call);

    if (destination == control::kBusName && interface == control::kInterface) {
        DBusMessage *reply = answer_control_call(call, state_);
        if (reply != nullptr)
            replies_.schedule(reply, 0);
        return;
    }
    if (!is_gateway_name(destination)) {
        // Addressed to the control name or the connection's own name on another interface.
        if (wants_reply)
            replies_.schedule(dbus_message_new_error(call, kErrorUnknownMethod, "No such method"), 0);
        return;
    }

    if (busy_.is_busy(destination)) {
        if (!busy_.hold(destination, call) && wants_reply)
            replies_.schedule(dbus_message_new_error(call, DBUS_ERROR_LIMITS_EXCEEDED, "too many calls waiting"), 0);
        return;
    }
    serve_gateway_call(call);
}

void GatewaySimulator::serve_freed_calls() {
    while (DBusMessage *call = busy_.next_ready()) {
        serve_gateway_call(call);
        dbus_message_unref(call);
    }
}

void GatewaySimulator::serve_gateway_call(DBusMessage *call) {
    const std::string destination = text_or_empty(dbus_message_get_destination(call));
    records_.add(make_call_record(call));
    std::optional<BehaviourRule> rule = rules_.take(destination, text_or_empty(dbus_message_get_interface(call)),
                                                    text_or_empty(dbus_message_get_member(call)));
    if (rule && rule->mode == AnswerMode::Silent)
        return;
    if (rule && rule->mode == AnswerMode::Busy)
        busy_.occupy(destination, rule->delay_ms);
    // The daemon acts on a call whether or not its sender waits for the answer.
    Answer answer = answer_for(rule ? &*rule : nullptr, call);
    if (dbus_message_get_no_reply(call))
        return;
    DBusMessage *reply = build_reply(call, answer);
    if (reply != nullptr)
        replies_.schedule(reply, rule ? rule->delay_ms : 0);
}

Answer GatewaySimulator::answer_for(const BehaviourRule *rule, DBusMessage *call) {
    const std::string destination = text_or_empty(dbus_message_get_destination(call));
    const std::string interface = text_or_empty(dbus_message_get_interface(call));
    const std::string member = text_or_empty(dbus_message_get_member(call));
    switch (rule ? rule->mode : AnswerMode::Default) {
    case AnswerMode::Error:
        return Answer::error(control::kErrorInjected, "failure injected by the simulator");
    case AnswerMode::NoArg:
        return Answer::empty();
    case AnswerMode::WrongType: {
        // The other basic type than the daemon normally sends first.
        const PeerMethod *method = peers_.find(destination, interface, member);
        bool normally_string = method != nullptr && method->reply_signature.rfind('s', 0) == 0;
        return normally_string ? Answer::int32(7) : Answer::string("7");
    }
    case AnswerMode::Values:
        return Answer::of(rule->signature, json_incref(rule->values.get()));
    default: {
        JsonPtr args = message_args_as_json(call);
        return peers_.answer(destination, interface, member, text_or_empty(dbus_message_get_signature(call)),
                             args.get());
    }
    }
}

DBusMessage *GatewaySimulator::build_reply(DBusMessage *call, const Answer &answer) {
    if (!answer.error_name.empty())
        return dbus_message_new_error(call, answer.error_name.c_str(), answer.error_text.c_str());
    DBusMessage *reply = dbus_message_new_method_return(call);
    if (reply == nullptr)
        return nullptr;
    std::string error;
    if (!append_json_values(reply, answer.signature, answer.values.get(), &error)) {
        dbus_message_unref(reply);
        return dbus_message_new_error(call, DBUS_ERROR_FAILED, ("cannot build the answer: " + error).c_str());
    }
    return reply;
}

}  // namespace korvex::sim
