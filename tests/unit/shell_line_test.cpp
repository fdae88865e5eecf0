// Shell lines: ordinary values give the documented line; no value can add a command.
#include <gtest/gtest.h>

#include <string>

#include "commands/shell_line.h"
#include "tests/support/apr_pool_fixture.h"

namespace {

class ShellLine : public korvex::test::AprPoolTest {
protected:
    std::string line(const char *tmpl, std::initializer_list<const char *> values) {
        const char *out = korvex::shell_line(pool_, tmpl, values);
        return out == nullptr ? std::string("<null>") : std::string(out);
    }
};

TEST_F(ShellLine, OrdinaryValuesStandAsTheyAre) {
    EXPECT_EQ(line("update -k %s -m %s -r 3 &", {"/tmp/uImage", "QTR58"}), "update -k /tmp/uImage -m QTR58 -r 3 &");
    EXPECT_EQ(line("setmac -l %s", {"00:4f:61:12:34:56"}), "setmac -l 00:4f:61:12:34:56");
    EXPECT_EQ(line("checkupdate -r %s", {"user@host.example:8080/a,b+c=d%e-f_g"}),
              "checkupdate -r user@host.example:8080/a,b+c=d%e-f_g");
}

TEST_F(ShellLine, OtherValuesAreSingleQuoted) {
    EXPECT_EQ(line("p2pproxyserver %s &", {"a b"}), "p2pproxyserver 'a b' &");
    EXPECT_EQ(line("x %s", {"a;reboot"}), "x 'a;reboot'");
    EXPECT_EQ(line("x %s", {"$(reboot)"}), "x '$(reboot)'");
    EXPECT_EQ(line("x %s", {"`id`"}), "x '`id`'");
    EXPECT_EQ(line("x %s", {"a\nreboot"}), "x 'a\nreboot'");
    EXPECT_EQ(line("x %s", {"caf\xC3\xA9"}), "x 'caf\xC3\xA9'");
}

TEST_F(ShellLine, QuotesInsideValuesCannotCloseTheWord) {
    EXPECT_EQ(line("x %s", {"it's"}), "x 'it'\\''s'");
    EXPECT_EQ(line("x %s", {"'; reboot; '"}), "x ''\\''; reboot; '\\'''");
}

TEST_F(ShellLine, EmptyAndMissingValuesKeepTheirPlace) {
    EXPECT_EQ(line("pppoecd -u %s -p %s", {"", "pw"}), "pppoecd -u '' -p pw");
    EXPECT_EQ(line("checkupdate -m %s", {nullptr}), "checkupdate -m '(null)'");
}

TEST_F(ShellLine, TemplateShapeIsChecked) {
    EXPECT_EQ(line("killall ntpclient", {}), "killall ntpclient");
    EXPECT_EQ(line("echo 100%%", {}), "echo 100%");
    EXPECT_EQ(line("a %s %s", {"1"}), "<null>");
    EXPECT_EQ(line("a %s", {"1", "2"}), "<null>");
    EXPECT_EQ(line("a %d", {"1"}), "<null>");
}

TEST_F(ShellLine, PlainWordCharacterSet) {
    EXPECT_TRUE(korvex::shell_word_is_plain("AZaz09._:/@%+=,-"));
    for (const char *bad : {"", " ", "!", "\"", "#", "$", "&", "'", "(", ")", "*", ";", "<", ">", "?", "[", "\\",
                            "]", "^", "`", "{", "|", "}", "~", "\t"}) {
        EXPECT_FALSE(korvex::shell_word_is_plain(bad)) << bad;
    }
}

}  // namespace
