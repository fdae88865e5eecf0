// A daemon that is busy or looks hung still gets every call that changes state: the calls
// wait on the bus and run, in the order they were sent, once it is free. Only reads fail
// fast, and only a read that waited a long time makes a daemon look hung.
#include <chrono>
#include <future>
#include <string>
#include <thread>

#include "tests/support/call_texts.h"
#include "tests/support/command_test.h"
#include "tests/support/http_client.h"

namespace korvex::test {
namespace {

const std::string kAdmin = "com.KorvexLabs.platform.admin";

class QueuedWritesTest : public CommandTest {
  protected:
    size_t declarations_since(size_t offset) { return env().count_log_lines("stopped answering", offset); }
};

// "ntp.sh" outlasts its 3 s: the command's own later steps and another client's setting,
// sent while the platform daemon still runs the script, reach it in order once it is done.
TEST_F(QueuedWritesTest, ForegroundScriptPastItsTimeOutNeverDropsLaterSteps) {
    sim().nvram_put("NTPDisable", "1", true);
    // The first shell line ("killall ntpclient") keeps the daemon busy for 4.5 s.
    platform_rule(kAdmin, "doSystem", R"("mode":"busy","delay_ms":4500,"times":1)");
    const size_t since = env().error_log_size();
    auto other_client = std::async(std::launch::async, [] {
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        return get(port(), "/network.cgi?setapssid=QueuedNet", 15000);
    });
    EXPECT_EQ(run("disablentpclient=0"), "disablentpclient done");
    EXPECT_EQ(other_client.get().status, 200);

    EXPECT_EQ(calls(5), (Calls{shell_call("killall ntpclient"), set_call("SSID1", "QueuedNet"),
                               set_call("NTPDisable", "0"), shell_call("ntp.sh"), kCommit}));
    expect_stored("NTPDisable", "0", "0");
    expect_stored("SSID1", "QueuedNet", "QueuedNet");
    EXPECT_EQ(declarations_since(since), 0u) << "a write that outlasts its time-out is the daemon working";
}

// Once a read has made the platform daemon look hung, writes to it are still sent (without
// waiting for their answer) and stored; the read that follows fails at once.
TEST_F(QueuedWritesTest, WritesDuringASilentWindowAreSentAndStored) {
    const std::string unanswered_read = [&] {
        nvram_rule("get", R"("mode":"silent","times":1)");
        return run("getdoscenemode=");
    }();
    EXPECT_GE(elapsed_ms(), 900);
    ASSERT_TRUE(env().wait_for_log("stopped answering", std::chrono::seconds(5), 0));
    sim().clear_records();

    EXPECT_EQ(run("setntpserver=queued.example.org"), "setntpserver done");
    EXPECT_LT(elapsed_ms(), 500) << "a write in the window does not wait for its answer";
    EXPECT_EQ(calls(1), Calls{set_call("NTPServerIP", "queued.example.org")});
    EXPECT_EQ(sim().nvram("NTPServerIP"), "queued.example.org");

    EXPECT_EQ(run("getdoscenemode="), unanswered_read) << "a read in the window fails fast";
    EXPECT_LT(elapsed_ms(), 500);
    EXPECT_EQ(calls(), Calls{set_call("NTPServerIP", "queued.example.org")});
}

// The network-name refresh waits 500 ms by design; its time-out says nothing about the
// platform daemon, whose settings keep being stored and read.
TEST_F(QueuedWritesTest, ShortWifiRefreshTimeOutOpensNoWindow) {
    platform_rule("com.KorvexLabs.platform.wifi.ssid", "refresh", R"("mode":"silent","times":1)");
    const size_t since = env().error_log_size();
    EXPECT_EQ(run("getssidlist="), "getssidlist done");
    EXPECT_GE(elapsed_ms(), 450);
    sim().clear_records();

    EXPECT_EQ(run("setntpserver=after.example.org"), "setntpserver done");
    EXPECT_EQ(calls(), Calls{set_call("NTPServerIP", "after.example.org")});
    EXPECT_EQ(sim().nvram("NTPServerIP"), "after.example.org");
    EXPECT_EQ(declarations_since(since), 0u);
}

}  // namespace
}  // namespace korvex::test
