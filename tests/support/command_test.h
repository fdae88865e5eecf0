// Fixture for end-to-end tests of "network.cgi" commands: the shared gateway, a simulator
// client reset before every test, one query at a time with its timing, and the calls the
// daemons received as comparable texts.
#pragma once

#include <gtest/gtest.h>

#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/call_texts.h"
#include "tests/support/gateway_env.h"
#include "tests/support/sim_client.h"

namespace korvex::test {

using Calls = std::vector<std::string>;

// Names each instance of a parameterised command test after its parameter's `command`.
struct CommandName {
    template <typename Param>
    std::string operator()(const ::testing::TestParamInfo<Param> &info) const {
        return info.param.command;
    }
};

class CommandTest : public GatewayTest {
protected:
    void SetUp() override;

    SimClient &sim() { return *sim_; }
    // Closes the simulator client, for tests that stop the bus (a new one comes with SetUp).
    void close_sim() { sim_.reset(); }

    // GET /network.cgi?query; expects a 200 answer and returns its body.
    std::string run(const std::string &query);
    // Of the last run(): how long it took, and the wall-clock seconds it was sent and answered.
    long elapsed_ms() const { return elapsed_ms_; }
    std::time_t sent_at() const { return sent_at_; }
    std::time_t answered_at() const { return answered_at_; }

    // "destination interface member(arg, ...)"
    static std::string describe(const SimRecord &record);
    // The calls the daemons have received so far, described after normalise(); each is
    // expected to be a method call from the module's object path.
    Calls calls();
    // The same once `expected` calls arrived, or whatever arrived within 5 seconds.
    Calls calls(size_t expected);

    // Behaviour rules (docs/simulator.md): `mode` is the rest of the rule's JSON object,
    // e.g. R"("mode":"error")" or R"("mode":"values","signature":"i","values":[2])".
    void rule(const std::string &destination, const std::string &interface, const std::string &member,
              const std::string &mode);
    // The same for the platform daemon, and for its settings store.
    void platform_rule(const std::string &interface, const std::string &member, const std::string &mode);
    void nvram_rule(const std::string &member, const std::string &mode);

    // The working and the committed copy of an nvram key.
    void expect_stored(const std::string &key, const std::string &working, const std::string &committed);
    // The shell lines the platform daemon was asked to run so far, in order.
    std::vector<std::string> shell_lines();
    // The one shell line so far that starts `program` ("" and a test failure unless exactly one).
    std::string start_line_of(const std::string &program);

    // Rewrites a record before calls() describes it; the default leaves it as it is.
    virtual void normalise(SimRecord &record);
    // For a record setting nvram `key`: checks that the value is a time between sent_at()
    // and answered_at(), shows it as "<stamp>" and adds it to stamps().
    void take_stamp(SimRecord &record, const std::string &key);
    // Values take_stamp() replaced during the last calls(), in order.
    const std::vector<std::string> &stamps() const { return stamps_; }

private:
    Calls describe_all(std::vector<SimRecord> records);

    std::unique_ptr<SimClient> sim_;
    std::time_t sent_at_ = 0;
    std::time_t answered_at_ = 0;
    long elapsed_ms_ = 0;
    std::vector<std::string> stamps_;
};

}  // namespace korvex::test
