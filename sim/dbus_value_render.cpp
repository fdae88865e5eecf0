#include "sim/dbus_value_render.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>

namespace korvex::sim {
namespace {

bool is_string_like(int type) {
    return type == DBUS_TYPE_STRING || type == DBUS_TYPE_OBJECT_PATH || type == DBUS_TYPE_SIGNATURE;
}

// Shortest decimal text that reads back as the same double.
std::string double_text(double value) {
    char text[40];
    for (int precision = 1; precision <= 17; ++precision) {
        std::snprintf(text, sizeof text, "%.*g", precision, value);
        if (std::strtod(text, nullptr) == value)
            break;
    }
    return text;
}

std::string basic_text(DBusMessageIter *iter) {
    int type = dbus_message_iter_get_arg_type(iter);
    DBusBasicValue value;
    dbus_message_iter_get_basic(iter, &value);
    char text[32];
    switch (type) {
    case DBUS_TYPE_BYTE: std::snprintf(text, sizeof text, "%u", unsigned(value.byt)); return text;
    case DBUS_TYPE_BOOLEAN: return value.bool_val ? "true" : "false";
    case DBUS_TYPE_INT16: std::snprintf(text, sizeof text, "%d", int(value.i16)); return text;
    case DBUS_TYPE_UINT16: std::snprintf(text, sizeof text, "%u", unsigned(value.u16)); return text;
    case DBUS_TYPE_INT32: std::snprintf(text, sizeof text, "%" PRId32, value.i32); return text;
    case DBUS_TYPE_UINT32: std::snprintf(text, sizeof text, "%" PRIu32, value.u32); return text;
    case DBUS_TYPE_INT64: std::snprintf(text, sizeof text, "%" PRId64, value.i64); return text;
    case DBUS_TYPE_UINT64: std::snprintf(text, sizeof text, "%" PRIu64, value.u64); return text;
    case DBUS_TYPE_DOUBLE: return double_text(value.dbl);
    case DBUS_TYPE_UNIX_FD: std::snprintf(text, sizeof text, "%d", value.fd); return text;
    default: return value.str != nullptr ? value.str : "";
    }
}

json_t *basic_json(DBusMessageIter *iter) {
    int type = dbus_message_iter_get_arg_type(iter);
    DBusBasicValue value;
    dbus_message_iter_get_basic(iter, &value);
    switch (type) {
    case DBUS_TYPE_BYTE: return json_integer(value.byt);
    case DBUS_TYPE_BOOLEAN: return json_boolean(value.bool_val);
    case DBUS_TYPE_INT16: return json_integer(value.i16);
    case DBUS_TYPE_UINT16: return json_integer(value.u16);
    case DBUS_TYPE_INT32: return json_integer(value.i32);
    case DBUS_TYPE_UINT32: return json_integer(value.u32);
    case DBUS_TYPE_INT64: return json_integer(value.i64);
    // JSON integers here are signed 64-bit; larger values keep their digits as text.
    case DBUS_TYPE_UINT64:
        return value.u64 > uint64_t(INT64_MAX) ? json_string(basic_text(iter).c_str())
                                               : json_integer(json_int_t(value.u64));
    case DBUS_TYPE_DOUBLE: return json_real(value.dbl);
    case DBUS_TYPE_UNIX_FD: return json_integer(value.fd);
    default: return json_string(value.str != nullptr ? value.str : "");
    }
}

json_t *value_json(DBusMessageIter *iter);

json_t *array_json(DBusMessageIter *iter) {
    DBusMessageIter elements;
    dbus_message_iter_recurse(iter, &elements);
    bool is_dict = dbus_message_iter_get_element_type(iter) == DBUS_TYPE_DICT_ENTRY;
    bool string_keys = false;
    if (is_dict) {
        char *signature = dbus_message_iter_get_signature(iter);
        // "a{" followed by the key's type code.
        string_keys = is_string_like(signature[2]);
        dbus_free(signature);
    }
    json_t *result = (is_dict && string_keys) ? json_object() : json_array();
    while (dbus_message_iter_get_arg_type(&elements) != DBUS_TYPE_INVALID) {
        if (is_dict) {
            DBusMessageIter entry;
            dbus_message_iter_recurse(&elements, &entry);
            json_t *key = value_json(&entry);
            dbus_message_iter_next(&entry);
            json_t *value = value_json(&entry);
            if (string_keys) {
                json_object_set_new(result, json_string_value(key), value);
                json_decref(key);
            } else {
                json_array_append_new(result, json_pack("[oo]", key, value));
            }
        } else {
            json_array_append_new(result, value_json(&elements));
        }
        dbus_message_iter_next(&elements);
    }
    return result;
}

json_t *value_json(DBusMessageIter *iter) {
    int type = dbus_message_iter_get_arg_type(iter);
    if (type == DBUS_TYPE_ARRAY)
        return array_json(iter);
    if (type == DBUS_TYPE_STRUCT || type == DBUS_TYPE_VARIANT) {
        DBusMessageIter fields;
        dbus_message_iter_recurse(iter, &fields);
        if (type == DBUS_TYPE_VARIANT)
            return value_json(&fields);
        json_t *result = json_array();
        while (dbus_message_iter_get_arg_type(&fields) != DBUS_TYPE_INVALID) {
            json_array_append_new(result, value_json(&fields));
            dbus_message_iter_next(&fields);
        }
        return result;
    }
    return basic_json(iter);
}

}  // namespace

std::vector<std::string> render_message_args(DBusMessage *message) {
    std::vector<std::string> rendered;
    DBusMessageIter iter;
    if (!dbus_message_iter_init(message, &iter))
        return rendered;
    do {
        char *signature = dbus_message_iter_get_signature(&iter);
        std::string text = signature;
        dbus_free(signature);
        text += ':';
        if (dbus_type_is_basic(dbus_message_iter_get_arg_type(&iter))) {
            text += basic_text(&iter);
        } else {
            JsonPtr value(value_json(&iter));
            text += json_compact_text(value.get());
        }
        rendered.push_back(std::move(text));
    } while (dbus_message_iter_next(&iter));
    return rendered;
}

JsonPtr message_args_as_json(DBusMessage *message) {
    JsonPtr values(json_array());
    DBusMessageIter iter;
    if (!dbus_message_iter_init(message, &iter))
        return values;
    do {
        json_array_append_new(values.get(), value_json(&iter));
    } while (dbus_message_iter_next(&iter));
    return values;
}

}  // namespace korvex::sim
