#include "sim/peer_methods.h"

namespace korvex::sim {

Answer Answer::of(const std::string &signature, json_t *values_array) {
    Answer answer;
    answer.signature = signature;
    answer.values.reset(values_array);
    return answer;
}

Answer Answer::string(const std::string &text) { return of("s", json_pack("[s]", text.c_str())); }

Answer Answer::int32(int value) { return of("i", json_pack("[i]", value)); }

Answer Answer::strings(const std::vector<std::string> &lines) {
    json_t *array = json_array();
    for (const std::string &line : lines)
        json_array_append_new(array, json_string(line.c_str()));
    return of("as", json_pack("[o]", array));
}

Answer Answer::error(const std::string &name, const std::string &text) {
    Answer answer;
    answer.error_name = name;
    answer.error_text = text;
    return answer;
}

Answer Answer::empty() { return of("", json_array()); }

std::string string_arg(const json_t *args, size_t index) {
    const char *text = json_string_value(json_array_get(args, index));
    return text != nullptr ? text : "";
}

PeerMethods::PeerMethods(NvramStore &nvram) {
    add_platform_methods(methods_, nvram);
    add_daemon_methods(methods_);
}

const PeerMethod *PeerMethods::find(const std::string &destination, const std::string &interface,
                                    const std::string &member) const {
    for (const PeerMethod &method : methods_) {
        if (method.destination == destination && method.interface == interface && method.member == member)
            return &method;
    }
    return nullptr;
}

Answer PeerMethods::answer(const std::string &destination, const std::string &interface,
                           const std::string &member, const std::string &arg_signature,
                           const json_t *args) const {
    const PeerMethod *method = find(destination, interface, member);
    if (method == nullptr)
        return Answer::error(kErrorUnknownMethod, "No such method \"" + member + "\" in interface \"" +
                                                      interface + "\" at \"" + destination + "\"");
    if (arg_signature != method->arg_signature)
        return Answer::error(kErrorInvalidArgs, "\"" + member + "\" takes \"" + method->arg_signature +
                                                    "\", not \"" + arg_signature + "\"");
    return method->answer(args);
}

}  // namespace korvex::sim
