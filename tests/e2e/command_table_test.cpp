// "network.cgi" and the command table end to end: the test command and its bus calls,
// unknown names, the order of several commands and how values reach their handler.
#include <chrono>
#include <string>
#include <vector>

#include "tests/support/access_log.h"
#include "tests/support/command_test.h"
#include "tests/support/gateway_env.h"
#include "tests/support/http_client.h"
#include "tests/support/log_lines.h"
#include "tests/support/record_text.h"

namespace korvex::test {
namespace {

const std::string kGetDevice = "s:{\"control\":{\"cmd\":\"getdevice\",\"uid\":256}}";
const std::string kGetDeviceCall =
    "method_call com.korvex-labs.www.sdk com.KorvexLabs.json.command command(" + kGetDevice + ")";

std::string test_output(const std::string &value) { return "in testAPI, value: " + value + "<br>test done"; }

class CommandTableTest : public CommandTest {
protected:
    // Look-ups are asserted through their trace lines.
    static void SetUpTestSuite() { use_log_level(KORVEX_LOG_TRACE); }
};

TEST_F(CommandTableTest, AnswersAreHtmlWithStatus200) {
    for (const char *query : {"test=0", "nosuch=1", ""}) {
        HttpResponse response = get(port(), std::string("/network.cgi?") + query);
        EXPECT_EQ(response.status, 200) << query;
        EXPECT_EQ(response.headers["content-type"], "text/html;charset=utf-8") << query;
    }
}

TEST_F(CommandTableTest, TestZeroPrintsItsLineAndSendsNothing) {
    EXPECT_EQ(run("test=0"), "in testAPI, value: 0<br>test done");
    EXPECT_EQ(record_texts(sim().records()), std::vector<std::string>{});
}

TEST_F(CommandTableTest, TestTwoSendsTwoDeviceRequestsOnTheServingChildsPath) {
    const size_t access_before = access_log_size(env());
    EXPECT_EQ(run("test=2"), test_output("2"));

    const std::vector<std::string> lines = wait_for_access_lines(env(), access_before, 1);
    ASSERT_EQ(lines.size(), 1u);
    const long child = served_pid(lines[0]);
    ASSERT_GT(child, 0) << lines[0];
    // Under prefork the serving thread is the child's only thread: its id is the pid.
    const std::string call = kGetDeviceCall + " " + module_path(child);
    EXPECT_EQ(record_texts(sim().records()), (std::vector<std::string>{call, call}));
}

TEST_F(CommandTableTest, TestTraceLines) {
    const size_t before = env().error_log_size();
    EXPECT_EQ(run("test=0"), test_output("0"));
    ASSERT_TRUE(env().wait_for_log("leave testAPI", std::chrono::seconds(5), before));
    EXPECT_EQ(module_log_lines(env().error_log_since(before)),
              (std::vector<std::string>{
                  "[korvex:debug] [pid N] findItem:L apache: find hash item: 0x?, name: test,  key: 6018388, "
                  "index: 128, prev: 0x?, next: 0x?",
                  "[korvex:debug] [pid N] findItem:L apache: leave findItem",
                  "[korvex:debug] [pid N] testAPI:L apache: enter testAPI",
                  "[korvex:debug] [pid N] testAPI:L apache: leave testAPI",
              }));
}

TEST_F(CommandTableTest, UnknownNameLeavesNoTrace) {
    const size_t before = env().error_log_size();
    EXPECT_EQ(run("nosuch=1&test=0"), "nosuch doesn't exist" + test_output("0"));
    ASSERT_TRUE(env().wait_for_log("leave testAPI", std::chrono::seconds(5), before));
    EXPECT_EQ(module_log_lines(env().error_log_since(before), "nosuch"), std::vector<std::string>{});
}

TEST_F(CommandTableTest, UnknownNameDoesNotExist) {
    EXPECT_EQ(run("nosuch=1"), "nosuch doesn't exist");
    EXPECT_EQ(record_texts(sim().records()), std::vector<std::string>{});
}

TEST_F(CommandTableTest, EmptyNameDoesNotExist) {
    EXPECT_EQ(run("=1"), " doesn't exist");
}

TEST_F(CommandTableTest, NamesAreCaseSensitive) {
    EXPECT_EQ(run("setmac=00:11:22:33:44:55"), "setmac doesn't exist");
    EXPECT_EQ(run("TEST=0"), "TEST doesn't exist");
    EXPECT_EQ(run("Test=0"), "Test doesn't exist");
    EXPECT_EQ(record_texts(sim().records()), std::vector<std::string>{});
}

TEST_F(CommandTableTest, NameLongerThanTheTableFindsNothing) {
    // A known name followed by enough text to pass the 1024-byte name field.
    const std::string name = "test" + std::string(1100, 'x');
    EXPECT_EQ(run(name + "=0"), name + " doesn't exist");
    const std::string exact(1024, 't');
    EXPECT_EQ(run(exact + "=0"), exact + " doesn't exist");
}

TEST_F(CommandTableTest, NameWithBytesAbove127FindsNothing) {
    // "t\xc3\xa9st" and a lone 0xff: bytes above 127 hash as signed chars and match nothing.
    EXPECT_EQ(run("t%C3%A9st=0"), "t\xc3\xa9st doesn't exist");
    EXPECT_EQ(run("%FF=0"), "\xff doesn't exist");
    EXPECT_EQ(run("test%E9=0"), "test\xe9 doesn't exist");
}

TEST_F(CommandTableTest, UnknownNamesAreEchoedHtmlEscaped) {
    EXPECT_EQ(run("%3Cscript%3Ealert(1)%3C/script%3E=1"),
              "&lt;script&gt;alert(1)&lt;/script&gt; doesn't exist");
    EXPECT_EQ(run("a%26b%22c=1"), "a&amp;b&quot;c doesn't exist");
}

TEST_F(CommandTableTest, CommandsRunInQueryOrderWithOutputsRunTogether) {
    EXPECT_EQ(run("test=0&nosuch=1"), test_output("0") + "nosuch doesn't exist");
    EXPECT_EQ(run("nosuch=1&test=0"), "nosuch doesn't exist" + test_output("0"));
    EXPECT_EQ(run("first=1&test=0&second=2&third"),
              "first doesn't exist" + test_output("0") + "second doesn't existthird doesn't exist");
}

TEST_F(CommandTableTest, RepeatedNameRunsOnceWithItsLastValueAtItsFirstPlace) {
    // The argument table keeps one entry per name: a later value replaces the earlier one.
    EXPECT_EQ(run("test=2&nosuch=1&test=0"), test_output("0") + "nosuch doesn't exist");
    EXPECT_EQ(record_texts(sim().records()), std::vector<std::string>{});
}

TEST_F(CommandTableTest, EmptyValueReachesTheHandlerAsEmptyText) {
    EXPECT_EQ(run("test="), test_output(""));
    EXPECT_EQ(record_texts(sim().records()), std::vector<std::string>{});
}

TEST_F(CommandTableTest, NameWithoutEqualsSignGetsTheValueOne) {
    EXPECT_EQ(run("test"), test_output("1"));
    EXPECT_EQ(sim().records().size(), 1u);
}

TEST_F(CommandTableTest, EscapedBlankBecomesABlankWhilePlusStays) {
    EXPECT_EQ(run("test=a%20b+c"), test_output("a b+c"));
    EXPECT_EQ(run("test=+"), test_output("+"));
    EXPECT_EQ(run("test=%2B"), test_output("+"));
    EXPECT_EQ(record_texts(sim().records()), std::vector<std::string>{});
}

TEST_F(CommandTableTest, ValueIsReadAsANumberForTheCount) {
    EXPECT_EQ(run("test=1%20and%20more"), test_output("1 and more"));
    EXPECT_EQ(sim().records().size(), 1u);
}

TEST_F(CommandTableTest, ValuesAreUnescapedTwiceOnBothPaths) {
    // GET: the server's argument parser, then the command driver. POST: the whole body, then
    // the argument parser. Either way "%2520" arrives as a blank and "%252520" as "%20".
    EXPECT_EQ(run("test=%2520"), test_output(" "));
    EXPECT_EQ(run("test=%252520"), test_output("%20"));
    HttpResponse response = post(port(), "/network.cgi", "test=%2520&nosuch=");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, test_output(" ") + "nosuch doesn't exist");
    response = post(port(), "/network.cgi", "test=%252520");
    EXPECT_EQ(response.body, test_output("%20"));
}

TEST_F(CommandTableTest, MalformedEscapeIsPassedAsItStands) {
    EXPECT_EQ(run("test=%zz"), test_output("%zz"));
    EXPECT_EQ(run("test=50%"), test_output("50%"));
}

TEST_F(CommandTableTest, EmptyQueryRunsNothing) {
    EXPECT_EQ(run(""), "");
    EXPECT_EQ(run("&&"), "");
    HttpResponse response = get(port(), "/network.cgi");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "");
}

}  // namespace
}  // namespace korvex::test
