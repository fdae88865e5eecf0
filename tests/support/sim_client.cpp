#include "tests/support/sim_client.h"

#include <jansson.h>

#include <chrono>
#include <cstdarg>
#include <memory>
#include <stdexcept>
#include <thread>

#include "sim/control_names.h"

namespace korvex::test {
namespace {

constexpr int kControlTimeoutMs = 5000;

struct MessageUnref {
    void operator()(DBusMessage *message) const { dbus_message_unref(message); }
};
using MessagePtr = std::unique_ptr<DBusMessage, MessageUnref>;

struct JsonDecref {
    void operator()(json_t *value) const { json_decref(value); }
};

std::string take_error(DBusError *error, const std::string &context) {
    std::string text = context + ": " + (error->name ? error->name : "") + ": " +
                       (error->message ? error->message : "");
    dbus_error_free(error);
    return text;
}

// Reads the (b present, s value) reply of the nvram queries.
std::optional<std::string> presence_and_value(DBusMessage *reply) {
    DBusError error;
    dbus_error_init(&error);
    dbus_bool_t present = FALSE;
    const char *value = nullptr;
    if (!dbus_message_get_args(reply, &error, DBUS_TYPE_BOOLEAN, &present, DBUS_TYPE_STRING, &value,
                               DBUS_TYPE_INVALID))
        throw std::runtime_error(take_error(&error, "unexpected nvram reply"));
    if (!present)
        return std::nullopt;
    return std::string(value);
}

std::string json_text_field(json_t *object, const char *key) {
    const char *text = json_string_value(json_object_get(object, key));
    if (text == nullptr)
        throw std::runtime_error(std::string("record without \"") + key + "\"");
    return text;
}

std::vector<SimRecord> parse_records(const char *json_text) {
    json_error_t parse_error;
    std::unique_ptr<json_t, JsonDecref> array(json_loads(json_text, 0, &parse_error));
    if (!json_is_array(array.get()))
        throw std::runtime_error(std::string("records are not a JSON array: ") + parse_error.text);
    std::vector<SimRecord> records;
    size_t index;
    json_t *object;
    json_array_foreach(array.get(), index, object) {
        SimRecord record;
        record.type = json_text_field(object, "type");
        record.destination = json_text_field(object, "destination");
        record.interface = json_text_field(object, "interface");
        record.member = json_text_field(object, "member");
        record.path = json_text_field(object, "path");
        record.sender = json_text_field(object, "sender");
        size_t arg_index;
        json_t *arg;
        json_array_foreach(json_object_get(object, "args"), arg_index, arg) {
            record.args.push_back(json_string_value(arg) ? json_string_value(arg) : "");
        }
        records.push_back(std::move(record));
    }
    return records;
}

}  // namespace

SimClient::SimClient(const std::string &bus_address) {
    DBusError error;
    dbus_error_init(&error);
    connection_ = dbus_connection_open_private(bus_address.c_str(), &error);
    if (connection_ == nullptr)
        throw std::runtime_error(take_error(&error, "cannot connect to " + bus_address));
    dbus_connection_set_exit_on_disconnect(connection_, FALSE);
    if (!dbus_bus_register(connection_, &error)) {
        dbus_connection_close(connection_);
        dbus_connection_unref(connection_);
        throw std::runtime_error(take_error(&error, "cannot register on " + bus_address));
    }
}

SimClient::~SimClient() {
    dbus_connection_close(connection_);
    dbus_connection_unref(connection_);
}

DBusMessage *SimClient::call(const char *member, int first_arg_type, ...) {
    MessagePtr message(dbus_message_new_method_call(sim::control::kBusName, sim::control::kObjectPath,
                                                    sim::control::kInterface, member));
    if (!message)
        throw std::runtime_error("out of memory");
    va_list args;
    va_start(args, first_arg_type);
    bool appended = first_arg_type == DBUS_TYPE_INVALID ||
                    dbus_message_append_args_valist(message.get(), first_arg_type, args);
    va_end(args);
    if (!appended)
        throw std::runtime_error(std::string("cannot build control call ") + member);
    DBusError error;
    dbus_error_init(&error);
    DBusMessage *reply =
        dbus_connection_send_with_reply_and_block(connection_, message.get(), kControlTimeoutMs, &error);
    if (reply == nullptr)
        throw std::runtime_error(take_error(&error, std::string("simulator control call ") + member));
    return reply;
}

void SimClient::reset() { MessagePtr(call("Reset", DBUS_TYPE_INVALID)); }

std::vector<SimRecord> SimClient::records() {
    MessagePtr reply(call("Records", DBUS_TYPE_INVALID));
    const char *json_text = nullptr;
    DBusError error;
    dbus_error_init(&error);
    if (!dbus_message_get_args(reply.get(), &error, DBUS_TYPE_STRING, &json_text, DBUS_TYPE_INVALID))
        throw std::runtime_error(take_error(&error, "unexpected Records reply"));
    return parse_records(json_text);
}

void SimClient::clear_records() { MessagePtr(call("ClearRecords", DBUS_TYPE_INVALID)); }

void SimClient::set_record_limit(uint32_t limit) {
    dbus_uint32_t value = limit;
    MessagePtr(call("SetRecordLimit", DBUS_TYPE_UINT32, &value, DBUS_TYPE_INVALID));
}

void SimClient::set_rule(const std::string &rule_json) {
    const char *text = rule_json.c_str();
    MessagePtr(call("SetRule", DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID));
}

void SimClient::set_absent(const std::string &bus_name, bool absent) {
    const char *name = bus_name.c_str();
    dbus_bool_t flag = absent ? TRUE : FALSE;
    MessagePtr(call("SetAbsent", DBUS_TYPE_STRING, &name, DBUS_TYPE_BOOLEAN, &flag, DBUS_TYPE_INVALID));
}

std::optional<std::string> SimClient::nvram(const std::string &key) {
    const char *text = key.c_str();
    MessagePtr reply(call("NvramGet", DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID));
    return presence_and_value(reply.get());
}

std::optional<std::string> SimClient::nvram_committed(const std::string &key) {
    const char *text = key.c_str();
    MessagePtr reply(call("NvramGetCommitted", DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID));
    return presence_and_value(reply.get());
}

void SimClient::nvram_put(const std::string &key, const std::string &value, bool commit) {
    const char *key_text = key.c_str();
    const char *value_text = value.c_str();
    dbus_bool_t flag = commit ? TRUE : FALSE;
    MessagePtr(call("NvramPut", DBUS_TYPE_STRING, &key_text, DBUS_TYPE_STRING, &value_text, DBUS_TYPE_BOOLEAN,
                    &flag, DBUS_TYPE_INVALID));
}

std::vector<SimRecord> SimClient::wait_for_records(std::size_t count, int timeout_ms) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    std::vector<SimRecord> found = records();
    while (found.size() < count && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        found = records();
    }
    return found;
}

std::string SimClient::ping() {
    MessagePtr reply(call("Ping", DBUS_TYPE_INVALID));
    const char *pong = nullptr;
    DBusError error;
    dbus_error_init(&error);
    if (!dbus_message_get_args(reply.get(), &error, DBUS_TYPE_STRING, &pong, DBUS_TYPE_INVALID))
        throw std::runtime_error(take_error(&error, "unexpected Ping reply"));
    return pong;
}

}  // namespace korvex::test
