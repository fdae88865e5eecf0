#include "sim/dbus_value_build.h"

#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdlib>
#include <memory>

namespace korvex::sim {
namespace {

struct DbusFree {
    void operator()(char *text) const { dbus_free(text); }
};
using DbusText = std::unique_ptr<char, DbusFree>;

bool fail(std::string *error, const std::string &reason) {
    *error = reason;
    return false;
}

// Signed value of a JSON integer or of a decimal string.
bool read_signed(const json_t *value, long long *out) {
    if (json_is_integer(value)) {
        *out = json_integer_value(value);
        return true;
    }
    if (!json_is_string(value))
        return false;
    const char *text = json_string_value(value);
    char *end = nullptr;
    errno = 0;
    *out = std::strtoll(text, &end, 10);
    return *text != '\0' && *end == '\0' && errno == 0;
}

// Unsigned 64-bit value; strings allow values beyond the signed JSON integer range.
bool read_unsigned(const json_t *value, unsigned long long *out) {
    if (json_is_integer(value)) {
        if (json_integer_value(value) < 0)
            return false;
        *out = static_cast<unsigned long long>(json_integer_value(value));
        return true;
    }
    if (!json_is_string(value))
        return false;
    const char *text = json_string_value(value);
    char *end = nullptr;
    errno = 0;
    *out = std::strtoull(text, &end, 10);
    return *text != '\0' && *text != '-' && *end == '\0' && errno == 0;
}

bool append_basic(DBusMessageIter *iter, int type, const json_t *value, std::string *error) {
    DBusBasicValue basic{};
    long long signed_value = 0;
    unsigned long long unsigned_value = 0;
    const std::string shown = json_compact_text(value);
    auto out_of_range = [&] {
        return fail(error, shown + " does not fit type '" + std::string(1, char(type)) + "'");
    };
    switch (type) {
    case DBUS_TYPE_BYTE:
        if (!read_unsigned(value, &unsigned_value) || unsigned_value > 0xff) return out_of_range();
        basic.byt = static_cast<unsigned char>(unsigned_value);
        break;
    case DBUS_TYPE_UINT16:
        if (!read_unsigned(value, &unsigned_value) || unsigned_value > 0xffff) return out_of_range();
        basic.u16 = static_cast<dbus_uint16_t>(unsigned_value);
        break;
    case DBUS_TYPE_UINT32:
        if (!read_unsigned(value, &unsigned_value) || unsigned_value > 0xffffffffULL) return out_of_range();
        basic.u32 = static_cast<dbus_uint32_t>(unsigned_value);
        break;
    case DBUS_TYPE_UINT64:
        if (!read_unsigned(value, &unsigned_value)) return out_of_range();
        basic.u64 = unsigned_value;
        break;
    case DBUS_TYPE_INT16:
        if (!read_signed(value, &signed_value) || signed_value < -32768 || signed_value > 32767)
            return out_of_range();
        basic.i16 = static_cast<dbus_int16_t>(signed_value);
        break;
    case DBUS_TYPE_INT32:
        if (!read_signed(value, &signed_value) || signed_value < INT32_MIN || signed_value > INT32_MAX)
            return out_of_range();
        basic.i32 = static_cast<dbus_int32_t>(signed_value);
        break;
    case DBUS_TYPE_INT64:
        if (!read_signed(value, &signed_value)) return out_of_range();
        basic.i64 = signed_value;
        break;
    case DBUS_TYPE_DOUBLE:
        if (!json_is_number(value)) return out_of_range();
        basic.dbl = json_number_value(value);
        break;
    case DBUS_TYPE_BOOLEAN:
        if (json_is_boolean(value))
            basic.bool_val = json_is_true(value);
        else if (json_is_integer(value) && (json_integer_value(value) == 0 || json_integer_value(value) == 1))
            basic.bool_val = json_integer_value(value) == 1;
        else
            return out_of_range();
        break;
    case DBUS_TYPE_STRING:
    case DBUS_TYPE_OBJECT_PATH:
    case DBUS_TYPE_SIGNATURE:
        if (!json_is_string(value)) return out_of_range();
        basic.str = const_cast<char *>(json_string_value(value));
        if (type == DBUS_TYPE_OBJECT_PATH && !dbus_validate_path(basic.str, nullptr))
            return fail(error, shown + " is not an object path");
        if (type == DBUS_TYPE_SIGNATURE && !dbus_signature_validate(basic.str, nullptr))
            return fail(error, shown + " is not a signature");
        break;
    default:
        return fail(error, "type '" + std::string(1, char(type)) + "' is not supported");
    }
    if (!dbus_message_iter_append_basic(iter, type, &basic))
        return fail(error, "out of memory");
    return true;
}

bool append_value(DBusMessageIter *iter, DBusSignatureIter *signature, const json_t *value,
                  std::string *error);

// D-Bus signature that a JSON value gets inside a variant.
std::string inferred_signature(const json_t *value) {
    if (json_is_string(value)) return "s";
    if (json_is_boolean(value)) return "b";
    if (json_is_real(value)) return "d";
    if (json_is_integer(value)) {
        json_int_t number = json_integer_value(value);
        return (number >= INT32_MIN && number <= INT32_MAX) ? "i" : "x";
    }
    if (json_is_object(value)) return "a{sv}";
    if (json_is_array(value)) {
        size_t index;
        const json_t *element;
        json_array_foreach(value, index, element) {
            if (!json_is_string(element))
                return "av";
        }
        return "as";
    }
    return "";
}

bool append_variant(DBusMessageIter *iter, const json_t *value, std::string *error) {
    std::string inner = inferred_signature(value);
    if (inner.empty())
        return fail(error, "a variant cannot hold " + json_compact_text(value));
    DBusMessageIter sub;
    if (!dbus_message_iter_open_container(iter, DBUS_TYPE_VARIANT, inner.c_str(), &sub))
        return fail(error, "out of memory");
    DBusSignatureIter inner_signature;
    dbus_signature_iter_init(&inner_signature, inner.c_str());
    if (!append_value(&sub, &inner_signature, value, error)) {
        dbus_message_iter_abandon_container(iter, &sub);
        return false;
    }
    return dbus_message_iter_close_container(iter, &sub) || fail(error, "out of memory");
}

bool append_dict_entry(DBusMessageIter *array, const DBusSignatureIter *entry_signature,
                       const json_t *key, const json_t *value, std::string *error) {
    DBusSignatureIter fields;
    dbus_signature_iter_recurse(entry_signature, &fields);
    DBusMessageIter entry;
    if (!dbus_message_iter_open_container(array, DBUS_TYPE_DICT_ENTRY, nullptr, &entry))
        return fail(error, "out of memory");
    bool ok = append_value(&entry, &fields, key, error);
    if (ok) {
        dbus_signature_iter_next(&fields);
        ok = append_value(&entry, &fields, value, error);
    }
    if (!ok) {
        dbus_message_iter_abandon_container(array, &entry);
        return false;
    }
    return dbus_message_iter_close_container(array, &entry) || fail(error, "out of memory");
}

bool append_array_elements(DBusMessageIter *array, DBusSignatureIter *element_signature,
                           const json_t *value, std::string *error) {
    bool dict = dbus_signature_iter_get_current_type(element_signature) == DBUS_TYPE_DICT_ENTRY;
    if (dict && json_is_object(value)) {
        const char *key;
        const json_t *member;
        json_object_foreach(const_cast<json_t *>(value), key, member) {
            JsonPtr key_value(json_string(key));
            if (!append_dict_entry(array, element_signature, key_value.get(), member, error))
                return false;
        }
        return true;
    }
    if (!json_is_array(value))
        return fail(error, json_compact_text(value) + " is not an array");
    size_t index;
    const json_t *element;
    json_array_foreach(value, index, element) {
        bool ok;
        if (dict) {
            if (!json_is_array(element) || json_array_size(element) != 2)
                return fail(error, "dictionary entry " + json_compact_text(element) + " is not [key, value]");
            ok = append_dict_entry(array, element_signature, json_array_get(element, 0),
                                   json_array_get(element, 1), error);
        } else {
            ok = append_value(array, element_signature, element, error);
        }
        if (!ok)
            return false;
    }
    return true;
}

bool append_container(DBusMessageIter *iter, DBusSignatureIter *signature, const json_t *value,
                      std::string *error) {
    int type = dbus_signature_iter_get_current_type(signature);
    DBusSignatureIter inner;
    dbus_signature_iter_recurse(signature, &inner);
    DbusText element_signature;
    if (type == DBUS_TYPE_ARRAY)
        element_signature.reset(dbus_signature_iter_get_signature(&inner));
    DBusMessageIter sub;
    if (!dbus_message_iter_open_container(iter, type, element_signature.get(), &sub))
        return fail(error, "out of memory");
    bool ok = true;
    if (type == DBUS_TYPE_ARRAY) {
        ok = append_array_elements(&sub, &inner, value, error);
    } else {
        size_t field = 0;
        if (!json_is_array(value))
            ok = fail(error, json_compact_text(value) + " is not an array of struct fields");
        while (ok) {
            if (field >= json_array_size(value)) {
                ok = fail(error, "too few struct fields in " + json_compact_text(value));
                break;
            }
            ok = append_value(&sub, &inner, json_array_get(value, field++), error);
            if (!dbus_signature_iter_next(&inner))
                break;
        }
        if (ok && field != json_array_size(value))
            ok = fail(error, "too many struct fields in " + json_compact_text(value));
    }
    if (!ok) {
        dbus_message_iter_abandon_container(iter, &sub);
        return false;
    }
    return dbus_message_iter_close_container(iter, &sub) || fail(error, "out of memory");
}

bool append_value(DBusMessageIter *iter, DBusSignatureIter *signature, const json_t *value,
                  std::string *error) {
    int type = dbus_signature_iter_get_current_type(signature);
    if (type == DBUS_TYPE_VARIANT)
        return append_variant(iter, value, error);
    if (type == DBUS_TYPE_ARRAY || type == DBUS_TYPE_STRUCT)
        return append_container(iter, signature, value, error);
    return append_basic(iter, type, value, error);
}

}  // namespace

bool append_json_values(DBusMessage *message, const std::string &signature, const json_t *values,
                        std::string *error) {
    DBusError dbus_error;
    dbus_error_init(&dbus_error);
    if (!dbus_signature_validate(signature.c_str(), &dbus_error)) {
        std::string reason = "invalid signature \"" + signature + "\": " + dbus_error.message;
        dbus_error_free(&dbus_error);
        return fail(error, reason);
    }
    if (!json_is_array(values))
        return fail(error, "values must be a JSON array");
    size_t count = 0;
    if (!signature.empty()) {
        DBusSignatureIter types;
        dbus_signature_iter_init(&types, signature.c_str());
        do {
            ++count;
        } while (dbus_signature_iter_next(&types));
    }
    if (count != json_array_size(values))
        return fail(error, "signature \"" + signature + "\" has " + std::to_string(count) +
                               " arguments but " + std::to_string(json_array_size(values)) +
                               " values were given");
    if (count == 0)
        return true;
    DBusMessageIter iter;
    dbus_message_iter_init_append(message, &iter);
    DBusSignatureIter types;
    dbus_signature_iter_init(&types, signature.c_str());
    for (size_t index = 0; index < count; ++index) {
        if (!append_value(&iter, &types, json_array_get(values, index), error))
            return false;
        dbus_signature_iter_next(&types);
    }
    return true;
}

bool json_values_fit_signature(const std::string &signature, const json_t *values,
                               std::string *error) {
    DBusMessage *scratch = dbus_message_new(DBUS_MESSAGE_TYPE_METHOD_RETURN);
    if (scratch == nullptr)
        return fail(error, "out of memory");
    bool fits = append_json_values(scratch, signature, values, error);
    dbus_message_unref(scratch);
    return fits;
}

}  // namespace korvex::sim
