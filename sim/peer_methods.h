// The methods the simulated gateway daemons offer, with their normal answers.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "sim/json_ptr.h"
#include "sim/nvram_store.h"

namespace korvex::sim {

inline constexpr char kErrorUnknownMethod[] = "org.freedesktop.DBus.Error.UnknownMethod";
inline constexpr char kErrorInvalidArgs[] = "org.freedesktop.DBus.Error.InvalidArgs";

// What a daemon sends back: a method return with `signature` and `values` (a JSON array,
// one element per argument), or an error when `error_name` is set.
struct Answer {
    std::string signature;
    JsonPtr values;
    std::string error_name;
    std::string error_text;

    static Answer of(const std::string &signature, json_t *values_array);
    static Answer string(const std::string &text);
    static Answer int32(int value);
    static Answer strings(const std::vector<std::string> &lines);
    static Answer error(const std::string &name, const std::string &text);
    static Answer empty();
};

// The text of argument `index` of a call's arguments (JSON array); "" when absent.
std::string string_arg(const json_t *args, size_t index);

using AnswerFunction = std::function<Answer(const json_t *args)>;

struct PeerMethod {
    std::string destination;
    std::string interface;
    std::string member;
    std::string arg_signature;    // what the caller must send
    std::string reply_signature;  // what the daemon answers
    AnswerFunction answer;
};

// Per-daemon method tables (platform_answers.cpp, daemon_answers.cpp).
void add_platform_methods(std::vector<PeerMethod> &methods, NvramStore &nvram);
void add_daemon_methods(std::vector<PeerMethod> &methods);

class PeerMethods {
  public:
    explicit PeerMethods(NvramStore &nvram);

    // The method of that destination, or null.
    const PeerMethod *find(const std::string &destination, const std::string &interface,
                           const std::string &member) const;

    // The normal answer to a call: UnknownMethod for a method no daemon has, InvalidArgs
    // when the arguments do not have the expected signature.
    Answer answer(const std::string &destination, const std::string &interface,
                  const std::string &member, const std::string &arg_signature,
                  const json_t *args) const;

  private:
    std::vector<PeerMethod> methods_;
};

}  // namespace korvex::sim
