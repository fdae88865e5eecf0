// The Debian packages as they ship, without installing them: extracted under a run
// directory, enabled on a copy of this machine's Apache configuration, and served by
// Debian's Apache (event MPM, as www-data) on a private bus that denies by default and
// includes the packaged bus policy. See "The package test" in docs/packaging.md.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/package/account_bus_call.h"
#include "tests/package/extracted_packages.h"
#include "tests/package/package_fixture.h"
#include "tests/package/shipped_config.h"
#include "tests/package/stock_apache_session.h"
#include "tests/support/http_client.h"
#include "tests/support/process_runner.h"
#include "tests/support/record_text.h"

namespace korvex::test::package {
namespace {

const std::string kTestAnswer = "in testAPI, value: 0<br>test done";
const std::string kGetipAnswer = "192.168.1.57<br>getip done";
// The snapshot of the seeded settings, as the end-to-end tests expect it.
const std::string kSnapshotAnswer =
    R"({"AP_SSID":"Korvex-QTR58-3457","Orbweb_UUID":"4F61A2C95DE3B07810KQ","PLATFORM_MODEL":"QTR58",)"
    R"("STA_SSID":"Vodafone-7A21","SU_PASSWORD":"su7Qx2rT","TUTK_UUID":"E7KA9ZB1XH4WTRGU111A","TZ":17,)"
    R"("WifiMode":"AP","doscenemode":2,"enableastclock":1,"enablelock":0,"eth:":"00:4f:61:12:34:56",)"
    R"("jsongetuserdata_number":1760432011,"jsonsetall_number":1760518412,"jsonsetcheckbox":3,)"
    R"("jsonsetcheckbox2":0,"language":1,"setastclock_lat":"52.5200","setastclock_lon":"13.4050",)"
    R"("swversion":"5.3.2:20261015","wifi:":"00:4f:61:12:34:57"})"
    "<br>jsongetupdate done";
// The bus's refusal of a call by another account, its variable parts blanked.
const std::string kRefusal =
    "Error org.freedesktop.DBus.Error.AccessDenied: Rejected send message, 1 matched rules; "
    "type=\"method_call\", sender=(client) interface=\"com.KorvexLabs.platform.nvram\" member=\"get\" "
    "error name=\"(unset)\" requested_reply=\"0\" destination=\"com.korvex-labs.www.platform\" (daemon)";
const std::string kStockSession = R"(== a2query -M
event
== a2enmod korvex
Enabling module korvex.
To activate the new configuration, you need to run:
  (the command that applies it)
== configtest
Syntax OK
== modules
 korvex_module (shared)
 mpm_event_module (shared)
== a2enconf korvex-auth
Enabling conf korvex-auth.
To activate the new configuration, you need to run:
  (the command that applies it)
== configtest
Syntax OK
)";
// The interface the narrowed policy no longer opens (getip is one of its calls).
const std::string kNarrowedInterface = "com.KorvexLabs.platform.net";
// Idle connections the event MPM must shrug off, and how fast it must still answer.
constexpr int kIdleConnections = 300;
constexpr auto kAnswerBound = std::chrono::seconds(5);

// --- what the packages hold -------------------------------------------------------------

using ExtractedPackageTest = PackageTest;

TEST_F(ExtractedPackageTest, BothPackagesAreExtracted) {
    const std::string arch = host_architecture("DEB_HOST_ARCH", packages().run_dir);
    EXPECT_EQ(packages().packages, expected_package_names(changelog_version(KORVEX_SOURCE_DIR), arch));
}

TEST_F(ExtractedPackageTest, ModuleFindsThePlatformLibraryThroughItsRunpath) {
    EXPECT_EQ(runpath_of(packages().path(kShippedModule), packages().run_dir), "[" + packages().platform_dir + "]");
    EXPECT_TRUE(std::filesystem::is_regular_file(packages().path(packages().platform_dir) + "/libkorvex_platform.so"));
}

TEST_F(ExtractedPackageTest, PackagedModuleHasNoTestOnlyFaultHooks) {
    const std::string module = read_file(packages().path(kShippedModule));
    ASSERT_FALSE(module.empty());
    EXPECT_EQ(module.find("X-Korvex-Fault"), std::string::npos);
}

TEST_F(ExtractedPackageTest, ConsoleItsSnippetAndTheHtmlReferenceAreInstalled) {
    std::vector<std::string> missing;
    for (const char *file : {"usr/share/korvex/console/index.html", "usr/share/korvex/console/main.js",
                             "usr/share/korvex/console/commands.json", "etc/apache2/conf-available/korvex-console.conf",
                             "usr/share/doc/libapache2-mod-korvex/korvex-api.html"})
        if (!std::filesystem::is_regular_file(packages().path(file))) missing.push_back(file);
    EXPECT_EQ(missing, std::vector<std::string>());
}

TEST_F(ExtractedPackageTest, StockApacheEnablesTheModuleAndTheAuthSnippet) {
    EXPECT_EQ(stock_apache_session(packages(), packages().run_dir), kStockSession);
}

// --- the shipped files on Debian's Apache with the shipped policy -----------------------

class PlainGatewayTest : public ShippedGatewayTest {
protected:
    static void SetUpTestSuite() {
        PackageTest::SetUpTestSuite();
        start_gateway({"plain", ready() ? packages().path(kShippedPolicy) : ""});
    }
    static void TearDownTestSuite() { stop_gateway(); }
};

TEST_F(PlainGatewayTest, AnswersByteForByteAsInTheEndToEndTests) {
    const HttpResponse test = gateway().get("/network.cgi?test=0");
    EXPECT_EQ(test.status, 200) << test.error;
    EXPECT_EQ(test.body, kTestAnswer);
    seed_snapshot_settings();
    EXPECT_EQ(gateway().get("/network.cgi?jsongetupdate=").body, kSnapshotAnswer);
}

TEST_F(PlainGatewayTest, GetipPassesThePolicyAndReachesThePlatformDaemon) {
    EXPECT_EQ(gateway().get("/network.cgi?getip=").body, kGetipAnswer);
    EXPECT_EQ(gateway().calls_of("getip").size(), 1u)
        << testing::PrintToString(record_texts(gateway().sim().records()));
}

TEST_F(PlainGatewayTest, TheServersAccountMayCallThePlatformDaemon) {
    seed_snapshot_settings();
    gateway().sim().clear_records();
    const std::string log = gateway().run_dir() + "/call-www-data.log";
    EXPECT_EQ(platform_call_as(gateway().bus_address(), "www-data", "www-data", log), "Korvex-QTR58-3457");
    const std::vector<SimRecord> calls = gateway().calls_of("get");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(record_text(calls[0]),
              "method_call com.korvex-labs.www.platform com.KorvexLabs.platform.nvram get(s:SSID1) "
              "/com/KorvexLabs/Apache/1");
}

TEST_F(PlainGatewayTest, AnotherAccountIsRefusedByTheBusAndReachesNoDaemon) {
    EXPECT_EQ(platform_call_as(gateway().bus_address(), "nobody", "nogroup", gateway().run_dir() + "/call-nobody.log"),
              kRefusal);
    EXPECT_EQ(record_texts(gateway().sim().records()), std::vector<std::string>());
}

TEST_F(PlainGatewayTest, TheRewriteEntireSignalPassesTheBus) {
    std::string answer;
    const std::vector<SimRecord> signals = gateway().reflash_signals(10000, answer);
    EXPECT_EQ(answer, "reflash done");
    EXPECT_EQ(signals.size(), 1u);
}

// Connections that send nothing (each to be cut by mod_reqtimeout) must not keep the
// event MPM from serving a real request at once.
TEST_F(PlainGatewayTest, IdleConnectionsLeaveTheEventMpmAnswering) {
    std::vector<int> idle;
    for (int i = 0; i < kIdleConnections; ++i) {
        const int fd = open_loopback_connection(port());
        if (fd < 0) break;
        idle.push_back(fd);
    }
    EXPECT_EQ(idle.size(), static_cast<size_t>(kIdleConnections));
    const auto started = std::chrono::steady_clock::now();
    const HttpResponse test = gateway().get("/network.cgi?test=0");
    const auto took = std::chrono::steady_clock::now() - started;
    for (const int fd : idle) close(fd);
    EXPECT_EQ(test.body, kTestAnswer) << test.error;
    EXPECT_LT(took, kAnswerBound);
    std::cout << "with " << idle.size() << " idle connections: answered in "
              << std::chrono::duration_cast<std::chrono::milliseconds>(took).count() << " ms\n";
}

// --- the same with the authentication snippet -------------------------------------------

class AuthGatewayTest : public ShippedGatewayTest {
protected:
    static void SetUpTestSuite() {
        PackageTest::SetUpTestSuite();
        start_gateway({"auth", ready() ? packages().path(kShippedPolicy) : "", true});
    }
    static void TearDownTestSuite() { stop_gateway(); }
    static std::string credentials() { return std::string(kAuthUser) + ":" + kAuthPassword; }
};

TEST_F(AuthGatewayTest, WithoutTheRightCredentialsEveryResourceAnswers401AndNoDaemonIsCalled) {
    const std::string wrong = std::string(kAuthUser) + ":wrong";
    for (const char *target : {"/network.cgi?test=0", "/network.cgi?getip=", "/sdk.cgi", "/update.cgi",
                                      "/send.dat", "/get.dat"}) {
        for (const std::string &sent : {std::string(), wrong}) {
            HttpResponse refused = gateway().get(target, sent);
            EXPECT_EQ(refused.status, 401) << target << " with \"" << sent << "\" " << refused.error;
            EXPECT_EQ(refused.headers["www-authenticate"], "Basic realm=\"Korvex gateway\"") << target;
        }
    }
    EXPECT_EQ(record_texts(gateway().sim().records()), std::vector<std::string>());
}

TEST_F(AuthGatewayTest, WithCredentialsTheAnswersAreAsWithoutTheSnippet) {
    const HttpResponse test = gateway().get("/network.cgi?test=0", credentials());
    EXPECT_EQ(test.status, 200) << test.error;
    EXPECT_EQ(test.body, kTestAnswer);
    seed_snapshot_settings();
    EXPECT_EQ(gateway().get("/network.cgi?jsongetupdate=", credentials()).body, kSnapshotAnswer);
}

TEST_F(AuthGatewayTest, TheStaticIndexNeedsNoCredentials) {
    const HttpResponse index = gateway().get("/");
    EXPECT_EQ(index.status, 200) << index.error;
    EXPECT_EQ(index.body, "<html><body><h1>korvex package test</h1><p>auth</p></body></html>\n");
}

// --- a policy without the platform daemon's network interface and the signal -------------

class NarrowedPolicyTest : public ShippedGatewayTest {
protected:
    static void SetUpTestSuite() {
        PackageTest::SetUpTestSuite();
        if (!ready()) return;
        const std::string shipped = read_file(packages().path(kShippedPolicy));
        std::ofstream(narrowed_file()) << narrowed_policy(shipped, kNarrowedInterface);
        start_gateway({"narrowed", narrowed_file()});
    }
    static void TearDownTestSuite() { stop_gateway(); }
    static std::string narrowed_file() { return packages().run_dir + "/narrowed-policy.conf"; }
};

TEST_F(NarrowedPolicyTest, TheCopyLacksOneMethodCallRuleAndTheSignalRule) {
    const std::string shipped = read_file(packages().path(kShippedPolicy));
    const std::string narrowed = read_file(narrowed_file());
    EXPECT_EQ(count_lines_with(shipped, "rewriteEntire"), 1);
    EXPECT_EQ(count_lines_with(narrowed, "rewriteEntire"), 0);
    EXPECT_EQ(count_lines_with(narrowed, "send_type=\"method_call\""),
              count_lines_with(shipped, "send_type=\"method_call\"") - 1);
    EXPECT_EQ(count_lines_with(narrowed, kNarrowedInterface), 0);
}

TEST_F(NarrowedPolicyTest, GetipIsRefusedByTheBusAndReachesNoDaemon) {
    EXPECT_EQ(gateway().get("/network.cgi?getip=").body, "getip failed");
    EXPECT_EQ(record_texts(gateway().calls_of("getip")), std::vector<std::string>());
}

TEST_F(NarrowedPolicyTest, TheRefusedRewriteEntireSignalReachesNoDaemon) {
    std::string answer;
    const std::vector<SimRecord> signals = gateway().reflash_signals(2000, answer);
    EXPECT_EQ(answer, "reflash done");
    EXPECT_EQ(record_texts(signals), std::vector<std::string>());
}

}  // namespace
}  // namespace korvex::test::package
