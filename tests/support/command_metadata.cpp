#include "tests/support/command_metadata.h"

#include <jansson.h>

#include <memory>
#include <stdexcept>

namespace korvex::test {
namespace {

using JsonPtr = std::unique_ptr<json_t, decltype(&json_decref)>;

std::string text_field(json_t *object, const char *key, const std::string &where) {
    json_t *value = json_object_get(object, key);
    if (!json_is_string(value)) throw std::runtime_error(where + ": \"" + key + "\" is not a text");
    return json_string_value(value);
}

bool bool_field(json_t *object, const char *key, const std::string &where) {
    json_t *value = json_object_get(object, key);
    if (!json_is_boolean(value)) throw std::runtime_error(where + ": \"" + key + "\" is not true or false");
    return json_is_true(value);
}

}  // namespace

std::string command_metadata_path() { return std::string(KORVEX_SOURCE_DIR) + "/registry/commands.json"; }

std::vector<CommandExample> load_command_metadata(const std::string &path) {
    json_error_t error;
    JsonPtr root(json_load_file(path.c_str(), 0, &error), json_decref);
    if (!root) throw std::runtime_error(path + ":" + std::to_string(error.line) + ": " + error.text);
    json_t *commands = json_object_get(root.get(), "commands");
    if (!json_is_array(commands)) throw std::runtime_error(path + ": no \"commands\" array");
    std::vector<CommandExample> out;
    for (size_t i = 0; i < json_array_size(commands); ++i) {
        json_t *entry = json_array_get(commands, i);
        const std::string where = path + ": command " + std::to_string(i);
        CommandExample c;
        c.command = text_field(entry, "name", where);
        c.family = text_field(entry, "family", where);
        c.confirm = bool_field(entry, "confirm", where);
        json_t *effects = json_object_get(entry, "effects");
        if (!json_is_object(effects)) throw std::runtime_error(where + ": no \"effects\" object");
        c.reboots = bool_field(effects, "reboots", where);
        json_t *restarts = json_object_get(effects, "restarts");
        if (!json_is_array(restarts)) throw std::runtime_error(where + ": \"restarts\" is not a list");
        for (size_t k = 0; k < json_array_size(restarts); ++k) {
            if (!json_is_string(json_array_get(restarts, k))) throw std::runtime_error(where + ": bad restart");
            c.restarts.emplace_back(json_string_value(json_array_get(restarts, k)));
        }
        json_t *example = json_object_get(entry, "example");
        if (!json_is_object(example)) throw std::runtime_error(where + ": no \"example\" object");
        c.value = text_field(example, "value", where);
        c.answer = text_field(example, "answer", where);
        c.checked = bool_field(example, "checked", where);
        if (!c.checked) c.why = text_field(example, "why", where);
        out.push_back(std::move(c));
    }
    return out;
}

}  // namespace korvex::test
