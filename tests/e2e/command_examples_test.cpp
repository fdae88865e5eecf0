// The example of every command in registry/commands.json, run against the simulated gateway
// with its factory settings (simulator reset before each): the answer must be the example's
// answer byte for byte. Examples whose answer depends on the moment or on the host say why
// in the file ("checked": false) and are listed, not run.
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "tests/support/command_metadata.h"
#include "tests/support/command_test.h"
#include "tests/support/shell_words.h"

namespace korvex::test {
namespace {

// An unreadable file gives no examples here; UncheckedExamplesSayWhy then fails on it.
std::vector<CommandExample> checked_examples() {
    std::vector<CommandExample> out;
    try {
        for (CommandExample &c : load_command_metadata(command_metadata_path())) {
            if (c.checked) out.push_back(std::move(c));
        }
    } catch (const std::exception &) {
        out.clear();
    }
    return out;
}

// Commands that set the system host name: only in a server with a host name of its own.
bool sets_host_name(const std::string &command) { return command == "sethostname" || command == "setlanguage"; }

class CommandExampleTest : public CommandTest, public ::testing::WithParamInterface<CommandExample> {};

TEST_P(CommandExampleTest, AnswersAsDocumented) {
    const CommandExample &c = GetParam();
    if (sets_host_name(c.command) && !env().has_isolation()) {
        GTEST_SKIP() << c.command << " would set this machine's host name (no isolation)";
    }
    const std::string body = run(c.command + "=" + query_escape(c.value));
    EXPECT_EQ(body, c.answer) << c.command << "=" << c.value;
}

INSTANTIATE_TEST_SUITE_P(Catalog, CommandExampleTest, ::testing::ValuesIn(checked_examples()), CommandName());

TEST(CommandExamplesListed, UncheckedExamplesSayWhy) {
    const std::vector<CommandExample> all = load_command_metadata(command_metadata_path());
    size_t unchecked = 0;
    for (const CommandExample &c : all) {
        if (c.checked) continue;
        ++unchecked;
        EXPECT_FALSE(c.why.empty()) << c.command;
        std::printf("[not checked] %s: %s\n", c.command.c_str(), c.why.c_str());
    }
    std::printf("[examples] %zu of %zu checked against the simulator\n", all.size() - unchecked, all.size());
    // Most examples are deterministic with the simulator's factory settings.
    EXPECT_LE(unchecked, 12u);
}

}  // namespace
}  // namespace korvex::test
