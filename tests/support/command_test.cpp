#include "tests/support/command_test.h"

#include <chrono>

#include "tests/support/http_client.h"

namespace korvex::test {

void CommandTest::SetUp() {
    GatewayTest::SetUp();
    sim_ = std::make_unique<SimClient>(env().bus_address());
    sim_->reset();
}

std::string CommandTest::run(const std::string &query) {
    sent_at_ = std::time(nullptr);
    const auto started = std::chrono::steady_clock::now();
    HttpResponse response = get(port(), "/network.cgi?" + query);
    elapsed_ms_ =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started).count();
    answered_at_ = std::time(nullptr);
    EXPECT_EQ(response.error, "");
    EXPECT_EQ(response.status, 200);
    return response.body;
}

std::string CommandTest::describe(const SimRecord &record) {
    std::string text = record.destination + " " + record.interface + " " + record.member + "(";
    for (size_t i = 0; i < record.args.size(); ++i) text += (i ? ", " : "") + record.args[i];
    return text + ")";
}

Calls CommandTest::calls() { return describe_all(sim_->records()); }

Calls CommandTest::calls(size_t expected) { return describe_all(sim_->wait_for_records(expected, 5000)); }

void CommandTest::normalise(SimRecord &) {}

void CommandTest::expect_stored(const std::string &key, const std::string &working, const std::string &committed) {
    EXPECT_EQ(sim_->nvram(key), working) << key;
    EXPECT_EQ(sim_->nvram_committed(key), committed) << key;
}

std::vector<std::string> CommandTest::shell_lines() {
    std::vector<std::string> lines;
    for (const SimRecord &record : sim_->records()) {
        if (record.member != "doSystem") continue;
        EXPECT_EQ(record.args.size(), 1u);
        if (record.args.size() != 1 || record.args[0].rfind("s:", 0) != 0) continue;
        lines.push_back(record.args[0].substr(2));
    }
    return lines;
}

std::string CommandTest::start_line_of(const std::string &program) {
    std::vector<std::string> lines;
    for (const std::string &line : shell_lines()) {
        if (line.rfind(program + " ", 0) == 0) lines.push_back(line);
    }
    EXPECT_EQ(lines.size(), 1u) << program;
    return lines.empty() ? "" : lines.front();
}

void CommandTest::rule(const std::string &destination, const std::string &interface, const std::string &member,
                       const std::string &mode) {
    sim_->set_rule(R"({"destination":")" + destination + R"(","interface":")" + interface + R"(","member":")" +
                   member + R"(",)" + mode + "}");
}

void CommandTest::platform_rule(const std::string &interface, const std::string &member, const std::string &mode) {
    rule("com.korvex-labs.www.platform", interface, member, mode);
}

void CommandTest::nvram_rule(const std::string &member, const std::string &mode) {
    platform_rule("com.KorvexLabs.platform.nvram", member, mode);
}

void CommandTest::take_stamp(SimRecord &record, const std::string &key) {
    if (record.member != "set" || record.args.size() != 2 || record.args[0] != "s:" + key) return;
    const std::string stamp = record.args[1].substr(2);
    EXPECT_GE(std::stol(stamp), static_cast<long>(sent_at_)) << key;
    EXPECT_LE(std::stol(stamp), static_cast<long>(answered_at_)) << key;
    stamps_.push_back(stamp);
    record.args[1] = "s:<stamp>";
}

Calls CommandTest::describe_all(std::vector<SimRecord> records) {
    stamps_.clear();
    Calls described;
    for (SimRecord &record : records) {
        EXPECT_EQ(record.type, "method_call");
        EXPECT_EQ(record.path.rfind("/com/KorvexLabs/Apache/", 0), 0u) << record.path;
        normalise(record);
        described.push_back(describe(record));
    }
    return described;
}

}  // namespace korvex::test
