#include "sim/behaviour_rules.h"

#include <cstring>
#include <stdexcept>

#include "sim/bus_names.h"
#include "sim/dbus_value_build.h"

namespace korvex::sim {
namespace {

AnswerMode parse_mode(const std::string &name) {
    if (name == "default") return AnswerMode::Default;
    if (name == "silent") return AnswerMode::Silent;
    if (name == "error") return AnswerMode::Error;
    if (name == "noarg") return AnswerMode::NoArg;
    if (name == "wrongtype") return AnswerMode::WrongType;
    if (name == "values") return AnswerMode::Values;
    if (name == "busy") return AnswerMode::Busy;
    throw std::invalid_argument("unknown mode \"" + name + "\"");
}

std::string required_string(json_t *object, const char *key) {
    json_t *value = json_object_get(object, key);
    if (!json_is_string(value))
        throw std::invalid_argument(std::string("\"") + key + "\" must be a string");
    return json_string_value(value);
}

std::optional<std::string> optional_string(json_t *object, const char *key) {
    if (json_object_get(object, key) == nullptr)
        return std::nullopt;
    return required_string(object, key);
}

std::optional<int> optional_int(json_t *object, const char *key, int minimum) {
    json_t *value = json_object_get(object, key);
    if (value == nullptr)
        return std::nullopt;
    if (!json_is_integer(value) || json_integer_value(value) < minimum ||
        json_integer_value(value) > 86400000)
        throw std::invalid_argument(std::string("\"") + key + "\" must be an integer of at least " +
                                    std::to_string(minimum));
    return int(json_integer_value(value));
}

void reject_unknown_keys(json_t *object) {
    static const char *const kKeys[] = {"destination", "interface", "member", "mode",
                                        "delay_ms",    "times",     "signature", "values"};
    const char *key;
    json_t *value;
    json_object_foreach(object, key, value) {
        bool known = false;
        for (const char *allowed : kKeys)
            known = known || std::strcmp(key, allowed) == 0;
        if (!known)
            throw std::invalid_argument(std::string("unknown key \"") + key + "\"");
    }
}

}  // namespace

BehaviourRule parse_behaviour_rule(const std::string &json_text) {
    json_error_t parse_error;
    JsonPtr object(json_loads(json_text.c_str(), 0, &parse_error));
    if (!object)
        throw std::invalid_argument(std::string("rule is not JSON: ") + parse_error.text);
    if (!json_is_object(object.get()))
        throw std::invalid_argument("rule must be a JSON object");
    reject_unknown_keys(object.get());

    BehaviourRule rule;
    rule.destination = required_string(object.get(), "destination");
    if (!is_gateway_name(rule.destination))
        throw std::invalid_argument("\"" + rule.destination + "\" is not a gateway daemon");
    rule.interface = optional_string(object.get(), "interface");
    rule.member = optional_string(object.get(), "member");
    rule.mode = parse_mode(required_string(object.get(), "mode"));
    rule.delay_ms = optional_int(object.get(), "delay_ms", 0).value_or(0);
    rule.times = optional_int(object.get(), "times", 1);

    bool has_values = json_object_get(object.get(), "signature") || json_object_get(object.get(), "values");
    if (rule.mode != AnswerMode::Values) {
        if (has_values)
            throw std::invalid_argument("\"signature\" and \"values\" belong to mode \"values\"");
        return rule;
    }
    rule.signature = required_string(object.get(), "signature");
    json_t *values = json_object_get(object.get(), "values");
    if (!json_is_array(values))
        throw std::invalid_argument("\"values\" must be a JSON array");
    std::string error;
    if (!json_values_fit_signature(rule.signature, values, &error))
        throw std::invalid_argument(error);
    rule.values.reset(json_incref(values), json_decref);
    return rule;
}

void RuleBook::set(BehaviourRule rule) {
    for (BehaviourRule &existing : rules_) {
        if (existing.destination == rule.destination && existing.interface == rule.interface &&
            existing.member == rule.member) {
            existing = std::move(rule);
            return;
        }
    }
    rules_.push_back(std::move(rule));
}

std::optional<BehaviourRule> RuleBook::take(const std::string &destination, const std::string &interface,
                                            const std::string &member) {
    auto best = rules_.end();
    for (auto it = rules_.begin(); it != rules_.end(); ++it) {
        if (it->destination != destination || (it->interface && *it->interface != interface) ||
            (it->member && *it->member != member))
            continue;
        if (best == rules_.end() || it->specificity() > best->specificity())
            best = it;
    }
    if (best == rules_.end())
        return std::nullopt;
    BehaviourRule chosen = *best;
    if (best->times && --*best->times == 0)
        rules_.erase(best);
    return chosen;
}

}  // namespace korvex::sim
