// Fixture of the firmware commands' tests: the bus names they call, the shell lines that start
// the updater programs, a stand-in for a running updater program, and the module's log lines
// of the test.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <exception>
#include <string>
#include <vector>

#include "tests/support/command_test.h"
#include "tests/support/log_lines.h"

namespace korvex::test {

namespace firmware {

inline const std::string kPlatform = "com.korvex-labs.www.platform";
inline const std::string kIfAdmin = "com.KorvexLabs.platform.admin";
inline const std::string kAdmin = kPlatform + " " + kIfAdmin + " ";
inline const std::string kGetModel = kAdmin + "getModel(s:getModel)";
inline const std::string kDebuger = "com.korvex-labs.www.debuger";
inline const std::string kIfWatchdog = "com.KorvexLabs.watchdog";
inline const std::string kGetFirmwareVersion = kDebuger + " " + kIfWatchdog + " getfwver(i:1)";
inline const std::string kCheckUpdateBus = "com.korvex-labs.www.checkupdate";
inline const std::string kIfCheckUpdate = "com.KorvexLabs.checkupdate";
inline const std::string kUpdateBus = "com.korvex-labs.www.update";
inline const std::string kIfUpdate = "com.KorvexLabs.update";
inline const std::string kCheckStatus = kCheckUpdateBus + " " + kIfCheckUpdate + " getupdatestatus(i:1)";
inline const std::string kUpdateStatus = kUpdateBus + " " + kIfUpdate + " getupdatestatus(i:1)";

// The background download of a newer firmware, from the default server or from `server`.
inline std::string download_line(const std::string &version, const std::string &model = "QTR58") {
    return "checkupdate -v " + version + " -d /tmp/uImage -m " + model + "&";
}
inline std::string download_from_line(const std::string &version, const std::string &server) {
    return "checkupdate -v " + version + " -d /tmp/uImage -s " + server + " -m QTR58&";
}

}  // namespace firmware

// A sleeping process under one of the updater programs' names, seen by the server's process
// scan for as long as the object lives. Every test that starts one ends it, so no other test
// finds an updater running.
class RunningProgram {
  public:
    RunningProgram(GatewayEnv &env, const std::string &name) : env_(env), pid_(env.spawn_process(name)) {}
    ~RunningProgram() {
        try {
            env_.kill_process(pid_);
        } catch (const std::exception &e) {
            ADD_FAILURE() << "could not stop process " << pid_ << ": " << e.what();
        }
    }
    RunningProgram(const RunningProgram &) = delete;
    RunningProgram &operator=(const RunningProgram &) = delete;

  private:
    GatewayEnv &env_;
    pid_t pid_;
};

class FirmwareTest : public CommandTest {
  protected:
    void SetUp() override {
        CommandTest::SetUp();
        log_before_ = env().error_log_size();
    }

    void shell_rule(const std::string &mode) { rule(firmware::kPlatform, firmware::kIfAdmin, "doSystem", mode); }
    void model_rule(const std::string &mode) { rule(firmware::kPlatform, firmware::kIfAdmin, "getModel", mode); }
    void watchdog_rule(const std::string &mode) { rule(firmware::kDebuger, firmware::kIfWatchdog, "getfwver", mode); }

    // The module's log lines written since the test began that contain `containing`, once
    // `awaited` (when given) has shown up.
    std::vector<std::string> log_lines(const std::string &containing, const std::string &awaited = "") {
        if (!awaited.empty()) {
            EXPECT_TRUE(env().wait_for_log(awaited, std::chrono::seconds(5), log_before_)) << awaited;
        }
        return module_log_lines(env().error_log_since(log_before_), containing);
    }

    size_t log_before_ = 0;
};

}  // namespace korvex::test
