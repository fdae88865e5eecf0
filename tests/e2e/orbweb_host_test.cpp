// Where setOrbwebuuid takes the Orbweb rendezvous host from: the KorvexOrbwebHost directive,
// else KORVEX_ORBWEB_HOST of the server's environment; with neither the identifier is still
// stored and committed, but the client is not started against a host nobody configured.
#include <cstdlib>
#include <string>

#include "tests/support/command_test.h"

namespace korvex::test {
namespace {

const std::string kId = "QX3M7PZR2KD9WB4TNA5E";
const char kHostVariable[] = "KORVEX_ORBWEB_HOST";

Calls orbweb_calls(const std::string &start_line) {
    Calls calls{shell_call("killall orbwebm2m"), get_call("TUTK_USERNAME"), get_call("TUTK_PASSWORD"),
                set_call("UUID", kId), kCommit};
    if (!start_line.empty()) calls.push_back(shell_call(start_line));
    return calls;
}

class OrbwebHostTest : public CommandTest {
protected:
    // The gateway started with `site_config`, and KORVEX_ORBWEB_HOST set to `environment`
    // (or unset when empty) in the environment the server inherits.
    static void start_with(const std::string &site_config, const std::string &environment);
};

void OrbwebHostTest::start_with(const std::string &site_config, const std::string &environment) {
    if (environment.empty()) {
        unsetenv(kHostVariable);
    } else {
        setenv(kHostVariable, environment.c_str(), 1);
    }
    GatewayEnv::Options options;
    options.site_config = site_config + "# environment: " + environment + "\n";
    use_env(options);
    unsetenv(kHostVariable);
}

class NoRendezvousHostTest : public OrbwebHostTest {
protected:
    static void SetUpTestSuite() { start_with("", ""); }
};

TEST_F(NoRendezvousHostTest, StoresTheIdentifierButStartsNoClient) {
    const size_t log_from = env().error_log_size();
    EXPECT_EQ(run("setOrbwebuuid=" + kId), kId + "<br>setOrbwebuuid failed");
    EXPECT_EQ(calls(), orbweb_calls(""));
    EXPECT_EQ(sim().nvram("UUID"), kId);
    EXPECT_EQ(env().count_log_lines("orbwebm2m not started: no rendezvous host configured (KorvexOrbwebHost or "
                                    "KORVEX_ORBWEB_HOST)",
                                    log_from),
              1u);
}

TEST_F(NoRendezvousHostTest, AnEmptyIdentifierStillStopsTheClient) {
    EXPECT_EQ(run("setOrbwebuuid="), "setOrbwebuuid done");
    EXPECT_EQ(calls(), (Calls{set_call("UUID", ""), kCommit, shell_call("killall orbwebm2m")}));
}

class EnvironmentRendezvousHostTest : public OrbwebHostTest {
protected:
    static void SetUpTestSuite() { start_with("", "rv-from-environment.test"); }
};

TEST_F(EnvironmentRendezvousHostTest, TheServersEnvironmentNamesTheHost) {
    EXPECT_EQ(run("setOrbwebuuid=" + kId), kId + "<br>setOrbwebuuid done");
    EXPECT_EQ(calls(), orbweb_calls("orbwebm2m -H " + kId + " rv-from-environment.test -B -U admin -P 888888 &"));
}

class DirectiveRendezvousHostTest : public OrbwebHostTest {
protected:
    static void SetUpTestSuite() { start_with("KorvexOrbwebHost rv-directive.test\n", "rv-from-environment.test"); }
};

TEST_F(DirectiveRendezvousHostTest, TheDirectiveWinsOverTheEnvironment) {
    EXPECT_EQ(run("setOrbwebuuid=" + kId), kId + "<br>setOrbwebuuid done");
    EXPECT_EQ(calls(), orbweb_calls("orbwebm2m -H " + kId + " rv-directive.test -B -U admin -P 888888 &"));
}

// A host that is not a plain host name, or one given inside a virtual host, stops the
// server at start-up with the directive's message.
TEST(OrbwebHostDirective, RefusesWhatIsNotAServerWideHostName) {
    const std::pair<std::string, std::string> refused[] = {
        {"KorvexOrbwebHost \"rv.test;reboot\"\n", "KorvexOrbwebHost: \"rv.test;reboot\" is not a host name"},
        {"KorvexOrbwebHost rv.test:443\n", "KorvexOrbwebHost: \"rv.test:443\" is not a host name"},
        {"<VirtualHost 127.0.0.1:*>\n    KorvexOrbwebHost rv.test\n</VirtualHost>\n",
         "KorvexOrbwebHost applies to the whole server: set it outside <VirtualHost>"},
    };
    for (const auto &[config, message] : refused) {
        GatewayEnv::Options options;
        options.site_config = config;
        try {
            GatewayEnv::start(options);
            ADD_FAILURE() << "the server started with " << config;
        } catch (const std::runtime_error &e) {
            EXPECT_NE(std::string(e.what()).find(message), std::string::npos) << e.what();
        }
    }
}

}  // namespace
}  // namespace korvex::test
