// Each call primitive against the simulator: its value without a reply (an error reply, as
// a time-out gives the same) with its exact "No reply" record, and for a reply without a
// usable first argument.
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "tests/bus/primitive_rows.h"
#include "tests/bus/simulator_bus.h"

namespace korvex::test {
namespace {

// The "No reply" messages that `func` wrote to `log`, without level, pid and source line.
std::vector<std::string> no_reply_records(const std::string &log, const std::string &func) {
    std::vector<std::string> found;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        const size_t text = line.find(" apache: No reply");
        if (text != std::string::npos && line.find("] " + func + ":") != std::string::npos)
            found.push_back(line.substr(text + 9));
    }
    return found;
}

class PrimitiveRowTest : public WithSimulatorBus<::testing::TestWithParam<PrimitiveRow>> {
protected:
    void SetUp() override { sim_->reset(); }

    void rule(const std::string &mode) {
        sim_->set_rule(std::string(R"({"destination":")") + GetParam().destination + R"(","member":")" +
                       GetParam().member + R"(","mode":")" + mode + R"("})");
    }
};

TEST_P(PrimitiveRowTest, WithoutReplyGivesItsFailureValueAndRecord) {
    rule("error");
    StderrCapture log;
    EXPECT_EQ(GetParam().call(server_->new_request()), GetParam().without_reply);
    EXPECT_EQ(no_reply_records(log.text(), GetParam().name), std::vector<std::string>{GetParam().no_reply_text});
    EXPECT_EQ(sim_->records().size(), 1u) << "sent once";
}

TEST_P(PrimitiveRowTest, ReplyWithoutArgumentGivesItsEmptyValue) {
    rule("noarg");
    StderrCapture log;
    EXPECT_EQ(GetParam().call(server_->new_request()), GetParam().empty_reply);
    EXPECT_NE(log.text().find("Message has no arguments!"), std::string::npos);
    EXPECT_EQ(log.text().find("No reply"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Rows, PrimitiveRowTest, ::testing::ValuesIn(primitive_rows()),
                         [](const auto &info) { return std::string(info.param.name); });

}  // namespace
}  // namespace korvex::test
