// The module's records in Apache's error log: each of its levels under "korvex:<Apache
// level>" with Apache's time stamp and pid, filtered by "LogLevel korvex:<level>", the
// message text unchanged. A test-only fault hook writes one record at every level.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/gateway_env.h"
#include "tests/support/http_client.h"
#include "tests/support/log_lines.h"

namespace korvex::test {
namespace {

const std::string kEveryLevelText = "apache: record at level ";

// "[Mon Nov 23 16:07:07.123456 2026] [korvex:LEVEL] [pid P] ..." or "[pid P:tid T]".
const std::regex kApacheLine(R"(^\[(Mon|Tue|Wed|Thu|Fri|Sat|Sun) (Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) )"
                             R"([ 0-9][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2}\.[0-9]{6} [0-9]{4}\] )"
                             R"(\[korvex:([a-z0-9]+)\] \[pid ([0-9]+)(:tid [0-9]+)?\] (.*)$)");

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

class ApacheLogTest : public GatewayTest {
protected:
    // Asks for one record at each of levels 1 to 6 and one error record with characters
    // Apache escapes; returns the error log written meanwhile.
    std::string log_every_level() {
        const size_t before = env().error_log_size();
        const HttpResponse response = get_with_fault(port(), "/network.cgi?test=0", "log-every-level");
        EXPECT_EQ(response.status, 200);
        EXPECT_EQ(response.body, "in testAPI, value: 0<br>test done");
        // The last record, an error: written at every level there is.
        EXPECT_TRUE(env().wait_for_log("record with a backslash", std::chrono::seconds(5), before));
        return env().error_log_since(before);
    }

    static std::string record(const std::string &apache_level, int level) {
        return "[korvex:" + apache_level + "] [pid N] log_every_level:L " + kEveryLevelText + std::to_string(level);
    }

    std::string httpd_conf() const {
        std::ifstream in(env().run_dir() + "/httpd.conf");
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }
};

// ---- Every record the module writes ----

class ApacheLogAllLevelsTest : public ApacheLogTest {
protected:
    static void SetUpTestSuite() { use_log_level(1); }
};

TEST_F(ApacheLogAllLevelsTest, EachLevelHasItsApacheLevel) {
    EXPECT_NE(httpd_conf().find("\nLogLevel warn korvex:trace2\n"), std::string::npos);
    EXPECT_EQ(module_log_lines(log_every_level(), kEveryLevelText),
              (std::vector<std::string>{record("trace2", 1), record("trace1", 2), record("debug", 3),
                                        record("info", 4), record("notice", 5), record("error", 6)}));
}

TEST_F(ApacheLogAllLevelsTest, RecordsCarryApacheTimeStampAndTheChildsPid) {
    std::set<std::string> children;
    for (pid_t child : env().server_child_pids()) children.insert(std::to_string(GatewayEnv::namespace_pid(child)));
    const std::vector<std::string> lines = lines_of(log_every_level());
    std::vector<std::string> levels;
    for (const std::string &line : lines) {
        if (line.find("record at level ") == std::string::npos) continue;
        std::smatch match;
        ASSERT_TRUE(std::regex_match(line, match, kApacheLine)) << line;
        EXPECT_EQ(children.count(match[4]), 1u) << line << ": no child of the server";
        levels.push_back(match[3]);
    }
    EXPECT_EQ(levels, (std::vector<std::string>{"trace2", "trace1", "debug", "info", "notice", "error"}));
}

TEST_F(ApacheLogAllLevelsTest, ErrorTextIsWrittenAsItIs) {
    const size_t before = env().error_log_size();
    EXPECT_EQ(get(port(), "/network.cgi?test=10001").body, "test failed");
    ASSERT_TRUE(env().wait_for_log("is over 10000", std::chrono::seconds(5), before));
    std::vector<std::string> texts;
    for (const std::string &line : lines_of(env().error_log_since(before))) {
        std::smatch match;
        if (line.find("is over 10000") != std::string::npos && std::regex_match(line, match, kApacheLine)) {
            EXPECT_EQ(match[3], "error");
            texts.push_back(std::regex_replace(match[6].str(), std::regex("^testAPI:[0-9]+ "), "testAPI:L "));
        }
    }
    // The text between Apache's prefix and the end of the line, byte for byte.
    EXPECT_EQ(texts, std::vector<std::string>{"testAPI:L apache: test count 10001 is over 10000"});
}

TEST_F(ApacheLogAllLevelsTest, ApacheEscapesBackslashesAndUnprintableBytes) {
    const std::vector<std::string> lines = module_log_lines(log_every_level(), "record with");
    EXPECT_EQ(lines, std::vector<std::string>{"[korvex:error] [pid N] log_every_level:L apache: "
                                              "record with a backslash \\\\, a tab \\t and a byte \\xe9"});
}

TEST_F(ApacheLogAllLevelsTest, NoRecordBypassesApache) {
    // Records written to standard error instead (before the module knew its server, or
    // after it let go of it) would start with "[korvex:" in the error log.
    log_every_level();
    for (const std::string &line : lines_of(env().error_log())) EXPECT_NE(line.rfind("[korvex:", 0), 0u) << line;
    EXPECT_GT(module_log_lines(env().error_log(), "enter shm_counter_post_config").size(), 0u);
}

// ---- A production server: notable state and errors ----

class ApacheLogNoticeTest : public ApacheLogTest {};

TEST_F(ApacheLogNoticeTest, KeepsNotableStateAndErrorsOnly) {
    EXPECT_EQ(env().options().log_level, KORVEX_LOG_STATE);  // the default
    EXPECT_NE(httpd_conf().find("\nLogLevel warn korvex:notice\n"), std::string::npos);
    EXPECT_EQ(module_log_lines(log_every_level(), kEveryLevelText),
              (std::vector<std::string>{record("notice", 5), record("error", 6)}));
}

TEST_F(ApacheLogNoticeTest, NoTraceOfTheStart) {
    EXPECT_EQ(module_log_lines(env().error_log(), "enter "), std::vector<std::string>{});
}

// ---- Errors only ----

class ApacheLogErrorTest : public ApacheLogTest {
protected:
    static void SetUpTestSuite() { use_log_level(KORVEX_LOG_ERROR); }
};

TEST_F(ApacheLogErrorTest, DropsNotableState) {
    EXPECT_NE(httpd_conf().find("\nLogLevel warn korvex:error\n"), std::string::npos);
    EXPECT_EQ(module_log_lines(log_every_level(), kEveryLevelText), std::vector<std::string>{record("error", 6)});
}

}  // namespace
}  // namespace korvex::test
