// Behaviour rules that tests set to change how a daemon answers.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/json_ptr.h"

namespace korvex::sim {

enum class AnswerMode { Default, Silent, Error, NoArg, WrongType, Values, Busy };

struct BehaviourRule {
    std::string destination;  // one of the gateway daemons' bus names
    std::optional<std::string> interface;
    std::optional<std::string> member;
    AnswerMode mode = AnswerMode::Default;
    int delay_ms = 0;
    std::optional<int> times;  // applies to that many more calls, then is dropped
    std::string signature;     // Values mode
    std::shared_ptr<json_t> values;

    // Interface and member both given beats member only, which beats interface only,
    // which beats destination only.
    int specificity() const { return (member ? 2 : 0) + (interface ? 1 : 0); }
};

// Parses a rule from its JSON text; throws std::invalid_argument with the reason.
BehaviourRule parse_behaviour_rule(const std::string &json_text);

class RuleBook {
  public:
    // Replaces any rule for the same destination, interface and member.
    void set(BehaviourRule rule);
    void clear() { rules_.clear(); }

    // The most specific rule matching the call, counting one use of it.
    std::optional<BehaviourRule> take(const std::string &destination, const std::string &interface,
                                      const std::string &member);

  private:
    std::vector<BehaviourRule> rules_;
};

}  // namespace korvex::sim
