// Diagnostic commands through Apache and the bus: the list queries ("listnvram",
// "listOOM", "listAllocated"), the memory-debug request ("memdbg") and the process-size
// report ("memusage").
#include <dirent.h>

#include <chrono>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/command_test.h"

namespace korvex::test {
namespace {

const std::string kPlatform = "com.korvex-labs.www.platform";
const std::string kNvramList = kPlatform + " com.KorvexLabs.platform.nvram getList";
const std::string kOomList = "com.korvex-labs.www.debuger com.KorvexLabs.watchdog.oom getList(s:getList)";
const std::string kAllocated = "com.korvex-labs.www.sdk com.KorvexLabs.memory getAllocated(s:korvex-sdk)";
const std::string kMemoryDebug = "com.korvex-labs.www.app com.KorvexLabs.debug memory_debug(s:app)";

// VmSize (kB) of a process as the kernel reports it, -1 when there is none.
long vm_size_kb(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmSize:", 0) == 0) return std::stol(line.substr(7));
    return -1;
}

// Whether some process on this machine was started under exactly this name.
bool host_runs(const std::string &name) {
    DIR *proc = opendir("/proc");
    if (proc == nullptr) return false;
    bool found = false;
    while (dirent *entry = readdir(proc)) {
        std::ifstream cmdline(std::string("/proc/") + entry->d_name + "/cmdline");
        std::string first;
        if (std::getline(cmdline, first, '\0') && first == name) found = true;
    }
    closedir(proc);
    return found;
}

class DiagnosticsTest : public CommandTest {
protected:
    void TearDown() override {
        for (pid_t pid : spawned_) env().kill_process(pid);
    }

    pid_t spawn(const std::string &name) {
        pid_t pid = env().spawn_process(name);
        spawned_.push_back(pid);
        return pid;
    }

    std::vector<pid_t> spawned_;
};

// ---- listnvram --------------------------------------------------------------------------

TEST_F(DiagnosticsTest, NvramListingOfThreeTextsPrintsThreeLinesInReplyOrder) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.platform","member":"getList","mode":"values",)"
                   R"("signature":"as","values":[["SSID1=Home","WifiMode=AP","language=1"]]})");
    EXPECT_EQ(run("listnvram=2860"), "SSID1=Home<br>WifiMode=AP<br>language=1<br>listnvram done");
    EXPECT_EQ(calls(1), Calls{kNvramList + "(s:2860)"});
}

TEST_F(DiagnosticsTest, NvramListingSendsTheValueAsItIs) {
    run("listnvram=");
    run("listnvram=a%20b");
    EXPECT_EQ(calls(2), (Calls{kNvramList + "(s:)", kNvramList + "(s:a b)"}));
}

TEST_F(DiagnosticsTest, NvramListingOfTheSimulatorsSettings) {
    // The simulated platform lists the settings whose names begin with the value.
    sim().nvram_put("SSID1", "Listed-Net", true);
    EXPECT_EQ(run("listnvram=SSID"), "SSID1=Listed-Net<br>listnvram done");
}

TEST_F(DiagnosticsTest, NvramListingFailedFetchPrintsNothingAndFails) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.platform","member":"getList","mode":"error"})");
    size_t since = env().error_log_size();
    EXPECT_EQ(run("listnvram=2860"), "listnvram failed");
    EXPECT_TRUE(env().wait_for_log("No reply", std::chrono::seconds(2), since));
}

TEST_F(DiagnosticsTest, NvramListingEmptyArrayPrintsNothing) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.platform","member":"getList","mode":"values",)"
                   R"("signature":"as","values":[[]]})");
    EXPECT_EQ(run("listnvram=2860"), "listnvram done");
}

TEST_F(DiagnosticsTest, NvramListingReplyWithoutArgumentPrintsNothing) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.platform","member":"getList","mode":"noarg"})");
    EXPECT_EQ(run("listnvram=2860"), "listnvram done");
}

// ---- listOOM ----------------------------------------------------------------------------

TEST_F(DiagnosticsTest, OomReplyWithTwoGroupsGivesTwoFormattedLines) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.debuger","member":"getList","mode":"values",)"
                   R"J("signature":"(ussiussi)","values":[[298,"platform","0",-17,31245,"app","1024",0]]})J");
    EXPECT_EQ(run("listOOM="), "   0  298 platform<br>1024 31245 app<br>listOOM done");
    EXPECT_EQ(calls(1), Calls{kOomList});
}

TEST_F(DiagnosticsTest, OomTableOfTheSimulator) {
    EXPECT_EQ(run("listOOM="),
              "   0  298 platform<br>  24  312 app<br>  11  340 korvex-sdk<br>   3  402 socket<br>listOOM done");
}

TEST_F(DiagnosticsTest, OomGroupCutShortLeavesItsMissingFieldsCleared) {
    // The last group lacks its score's follower: the score is not read.
    sim().set_rule(R"({"destination":"com.korvex-labs.www.debuger","member":"getList","mode":"values",)"
                   R"J("signature":"(ussiuss)","values":[[7,"first","5",0,8,"second","6"]]})J");
    size_t since = env().error_log_size();
    EXPECT_EQ(run("listOOM="), "   5    7 first<br>(null)    8 second<br>listOOM done");
    EXPECT_TRUE(env().wait_for_log("dbus_message_iter_has_next == FALSE", std::chrono::seconds(2), since));
}

TEST_F(DiagnosticsTest, OomFailedFetchPrintsNothingAndIsDone) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.debuger","member":"getList","mode":"error"})");
    EXPECT_EQ(run("listOOM="), "listOOM done");
}

TEST_F(DiagnosticsTest, OomWatchdogAbsentPrintsNothingAndIsDone) {
    sim().set_absent("com.korvex-labs.www.debuger", true);
    std::string body = run("listOOM=");
    sim().set_absent("com.korvex-labs.www.debuger", false);
    EXPECT_EQ(body, "listOOM done");
}

TEST_F(DiagnosticsTest, OomReplyWithoutArgumentPrintsNothing) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.debuger","member":"getList","mode":"noarg"})");
    EXPECT_EQ(run("listOOM="), "listOOM done");
}

// ---- listAllocated ----------------------------------------------------------------------

TEST_F(DiagnosticsTest, AllocatedLinesArePrintedInOrder) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.sdk","member":"getAllocated","mode":"values",)"
                   R"("signature":"as","values":[["allocated: 100 bytes","peak: 200 bytes"]]})");
    EXPECT_EQ(run("listAllocated="), "allocated: 100 bytes<br>peak: 200 bytes<br>listAllocated done");
    EXPECT_EQ(calls(1), Calls{kAllocated});
}

TEST_F(DiagnosticsTest, AllocatedFailedFetchPrintsNothingAndIsDone) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.sdk","member":"getAllocated","mode":"error"})");
    size_t since = env().error_log_size();
    EXPECT_EQ(run("listAllocated="), "listAllocated done");
    EXPECT_TRUE(env().wait_for_log("No reply, dest: com.korvex-labs.www.sdk, ifac: com.KorvexLabs.memory, "
                                   "cmd: getAllocated, process: korvex-sdk",
                                   std::chrono::seconds(2), since));
}

TEST_F(DiagnosticsTest, AllocatedEmptyArrayPrintsNothing) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.sdk","member":"getAllocated","mode":"values",)"
                   R"("signature":"as","values":[[]]})");
    EXPECT_EQ(run("listAllocated="), "listAllocated done");
}

// ---- memdbg -----------------------------------------------------------------------------

TEST_F(DiagnosticsTest, MemoryDebugPrintsHeaderLinesAndClosingBreak) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.app","member":"memory_debug","mode":"values",)"
                   R"("signature":"as","values":[["heap: 10 kB","blocks: 3"]]})");
    EXPECT_EQ(run("memdbg=ignored"), "***** app *****<br>heap: 10 kB<br>blocks: 3<br><br>memdbg done");
    EXPECT_EQ(calls(1), Calls{kMemoryDebug});
}

TEST_F(DiagnosticsTest, MemoryDebugOfTheSimulator) {
    EXPECT_EQ(run("memdbg="),
              "***** app *****<br>heap: 1843 kB in use, 212 kB free<br>blocks: 5221<br>"
              "largest free block: 96 kB<br><br>memdbg done");
}

TEST_F(DiagnosticsTest, MemoryDebugEmptyArrayPrintsHeaderAndBreakOnly) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.app","member":"memory_debug","mode":"values",)"
                   R"("signature":"as","values":[[]]})");
    EXPECT_EQ(run("memdbg="), "***** app *****<br><br>memdbg done");
}

TEST_F(DiagnosticsTest, MemoryDebugWithSilentApplicationPrintsNothingAndFails) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.app","member":"memory_debug","mode":"silent"})");
    size_t since = env().error_log_size();
    EXPECT_EQ(run("memdbg="), "memdbg failed");
    EXPECT_GE(elapsed_ms(), 2800);
    EXPECT_LT(elapsed_ms(), 4500);
    // The line names the memory interface, not the one the call used.
    EXPECT_TRUE(env().wait_for_log("No reply, dest: com.korvex-labs.www.app, ifac: com.KorvexLabs.memory, "
                                   "cmd: memory_debug, process: app",
                                   std::chrono::seconds(2), since));
}

TEST_F(DiagnosticsTest, MemoryDebugWithApplicationAbsentFails) {
    sim().set_absent("com.korvex-labs.www.app", true);
    std::string body = run("memdbg=");
    sim().set_absent("com.korvex-labs.www.app", false);
    EXPECT_EQ(body, "memdbg failed");
}

// ---- memusage ---------------------------------------------------------------------------

TEST_F(DiagnosticsTest, MemoryUsageWithNoneOfTheFourRunningIsAnEmptyObject) {
    if (!env().has_isolation()) {
        for (const char *name : {"app", "platform", "httpd", "korvex-sdk"})
            if (host_runs(name)) GTEST_SKIP() << "a process named " << name << " runs on this machine";
    }
    EXPECT_EQ(run("memusage="), "{}<br>memusage done");
    EXPECT_TRUE(calls(0).empty()) << "no bus traffic";
}

TEST_F(DiagnosticsTest, MemoryUsageReportsTheRunningProcessesSorted) {
    pid_t sdk = spawn("korvex-sdk");
    pid_t platform = spawn("platform");
    pid_t app = spawn("app");
    pid_t httpd = spawn("httpd");
    std::string expected = "{\"app\":{\"VmSize\":" + std::to_string(vm_size_kb(app)) +
                           "},\"httpd\":{\"VmSize\":" + std::to_string(vm_size_kb(httpd)) +
                           "},\"korvex-sdk\":{\"VmSize\":" + std::to_string(vm_size_kb(sdk)) +
                           "},\"platform\":{\"VmSize\":" + std::to_string(vm_size_kb(platform)) +
                           "}}<br>memusage done";
    EXPECT_GT(vm_size_kb(app), 0);
    EXPECT_EQ(run("memusage="), expected);
}

TEST_F(DiagnosticsTest, MemoryUsageLeavesOutWhatDoesNotRun) {
    if (!env().has_isolation() && (host_runs("platform") || host_runs("httpd")))
        GTEST_SKIP() << "the machine runs a process of a reported name";
    pid_t app = spawn("app");
    pid_t sdk = spawn("korvex-sdk");
    EXPECT_EQ(run("memusage=x"), "{\"app\":{\"VmSize\":" + std::to_string(vm_size_kb(app)) +
                                     "},\"korvex-sdk\":{\"VmSize\":" + std::to_string(vm_size_kb(sdk)) +
                                     "}}<br>memusage done");
}

TEST_F(DiagnosticsTest, MemoryUsageNeedsTheExactName) {
    if (!env().has_isolation() && host_runs("app")) GTEST_SKIP() << "the machine runs a process named app";
    spawn("/usr/bin/app");
    spawn("apps");
    std::string body = run("memusage=");
    EXPECT_EQ(body.find("\"app\""), std::string::npos) << body;
}

// ---- no bus -----------------------------------------------------------------------------

TEST_F(DiagnosticsTest, WithoutBusListReadersPrintNothing) {
    close_sim();
    env().bus_stop();
    std::string oom = run("listOOM=");
    std::string allocated = run("listAllocated=");
    std::string nvram = run("listnvram=2860");
    std::string memdbg = run("memdbg=");
    env().bus_start();
    EXPECT_EQ(oom, "listOOM done");
    EXPECT_EQ(allocated, "listAllocated done");
    EXPECT_EQ(nvram, "listnvram failed");
    EXPECT_EQ(memdbg, "memdbg failed");
}

}  // namespace
}  // namespace korvex::test
