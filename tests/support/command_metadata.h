// The command metadata of registry/commands.json as the tests read it: per command its wire
// name, family, and example (value, answer, whether the answer is checked against the
// simulator and, when not, why).
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace korvex::test {

struct CommandExample {
    std::string command;  // wire name
    std::string family;
    std::string value;
    std::string answer;
    bool checked = false;
    std::string why;  // why an example is not checked ("" when it is)
    bool reboots = false;
    std::vector<std::string> restarts;
    bool confirm = false;
};

// How gtest shows a parameter: its command and example value.
inline void PrintTo(const CommandExample &c, std::ostream *out) { *out << c.command << "=" << c.value; }

// Every command of registry/commands.json in file order; throws std::runtime_error when the
// file cannot be read or an entry lacks a field of the right type.
std::vector<CommandExample> load_command_metadata(const std::string &path);

// The metadata file of this tree.
std::string command_metadata_path();

}  // namespace korvex::test
