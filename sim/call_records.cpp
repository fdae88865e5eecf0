#include "sim/call_records.h"

#include "sim/dbus_value_render.h"
#include "sim/json_ptr.h"

namespace korvex::sim {
namespace {

std::string text_or_empty(const char *text) { return text != nullptr ? text : ""; }

}  // namespace

CallRecord make_call_record(DBusMessage *message) {
    CallRecord record;
    record.type = dbus_message_type_to_string(dbus_message_get_type(message));
    record.destination = text_or_empty(dbus_message_get_destination(message));
    record.interface = text_or_empty(dbus_message_get_interface(message));
    record.member = text_or_empty(dbus_message_get_member(message));
    record.path = text_or_empty(dbus_message_get_path(message));
    record.sender = text_or_empty(dbus_message_get_sender(message));
    record.args = render_message_args(message);
    return record;
}

void CallRecords::add(CallRecord record) {
    while (records_.size() >= limit_) records_.pop_front();
    records_.push_back(std::move(record));
}

void CallRecords::set_limit(std::size_t limit) {
    limit_ = limit > 0 ? limit : 1;
    while (records_.size() > limit_) records_.pop_front();
}

std::string CallRecords::to_json() const {
    JsonPtr array(json_array());
    for (const CallRecord &record : records_) {
        json_t *args = json_array();
        for (const std::string &arg : record.args)
            json_array_append_new(args, json_string(arg.c_str()));
        json_array_append_new(array.get(),
                              json_pack("{s:s,s:s,s:s,s:s,s:s,s:s,s:o}", "type", record.type.c_str(),
                                        "destination", record.destination.c_str(), "interface",
                                        record.interface.c_str(), "member", record.member.c_str(),
                                        "path", record.path.c_str(), "sender", record.sender.c_str(),
                                        "args", args));
    }
    return json_compact_text(array.get());
}

}  // namespace korvex::sim
