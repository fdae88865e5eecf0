// execAPI and runQuery: the outcome line after each handler, whatever it returned, and the
// value a handler receives. The server's output calls are replaced by a recorder
// (server_output.h).
#include <gtest/gtest.h>

#include <string>

#include "registry/module_config.h"
#include "registry/command_table.h"
#include "tests/support/apr_pool_fixture.h"
#include "tests/unit/server_output.h"

namespace {

std::string &g_output = korvex::test::server_output();
std::string g_received_value;

}  // namespace

namespace {

int returns_one(request_rec *, char *value) { g_received_value = value; return 1; }
int returns_zero(request_rec *, char *) { return 0; }
int returns_minus_one(request_rec *, char *) { return -1; }
int returns_two(request_rec *, char *) { return 2; }
int prints_first(request_rec *r, char *) { ap_rprintf(r, "%s<br>", "out"); return 1; }

const CatalogEntry kEntries[] = {
    {"one", returns_one}, {"zero", returns_zero}, {"minus", returns_minus_one},
    {"two", returns_two}, {"printer", prints_first},
};

class CommandOutcome : public korvex::test::AprPoolTest {
protected:
    void SetUp() override {
        AprPoolTest::SetUp();
        config_.table = hash_build(pool_, kEntries, static_cast<int>(sizeof kEntries / sizeof kEntries[0]));
        config_.pool = pool_;
        apr_pool_userdata_set(&config_, kModuleConfigKey, apr_pool_cleanup_null, pool_);
        process_.pool = pool_;
        server_.process = &process_;
        request_.pool = pool_;
        request_.server = &server_;
        request_.method_number = M_GET;
        g_output.clear();
        g_received_value.clear();
    }
    std::string run(const char *name, const char *value) {
        runQuery(&request_, name, value);
        return g_output;
    }
    ModuleConfig config_{};
    process_rec process_{};
    server_rec server_{};
    request_rec request_{};
};

TEST_F(CommandOutcome, OnlyOneIsDone) {
    EXPECT_EQ(execAPI(&request_, "one", apr_pstrdup(pool_, "")), 1);
    EXPECT_EQ(g_output, "one done");
}

TEST_F(CommandOutcome, ZeroMinusOneAndTwoAreFailed) {
    EXPECT_EQ(execAPI(&request_, "zero", apr_pstrdup(pool_, "")), 0);
    EXPECT_EQ(execAPI(&request_, "minus", apr_pstrdup(pool_, "")), -1);
    EXPECT_EQ(execAPI(&request_, "two", apr_pstrdup(pool_, "")), 2);
    EXPECT_EQ(g_output, "zero failedminus failedtwo failed");
}

TEST_F(CommandOutcome, OutcomeFollowsTheHandlersOwnOutput) {
    execAPI(&request_, "printer", apr_pstrdup(pool_, ""));
    EXPECT_EQ(g_output, "out<br>printer done");
}

TEST_F(CommandOutcome, UnknownNamesDoNotExist) {
    EXPECT_EQ(execAPI(&request_, "ONE", apr_pstrdup(pool_, "")), -1);
    EXPECT_EQ(execAPI(&request_, "", apr_pstrdup(pool_, "")), -1);
    EXPECT_EQ(execAPI(&request_, "<b>", apr_pstrdup(pool_, "")), -1);
    EXPECT_EQ(g_output, "ONE doesn't exist doesn't exist&lt;b&gt; doesn't exist");
}

TEST_F(CommandOutcome, WithoutTheTableNothingExists) {
    apr_pool_userdata_set(nullptr, kModuleConfigKey, apr_pool_cleanup_null, pool_);
    EXPECT_EQ(execAPI(&request_, "one", apr_pstrdup(pool_, "")), -1);
    EXPECT_EQ(g_output, "one doesn't exist");
}

TEST_F(CommandOutcome, GetValuesAreUnescapedOnceMoreButPlusStays) {
    EXPECT_EQ(run("one", "a%20b+c"), "one done");
    EXPECT_EQ(g_received_value, "a b+c");
}

TEST_F(CommandOutcome, MalformedEscapeLeavesTheValueAsItStands) {
    run("one", "50%zz");
    EXPECT_EQ(g_received_value, "50%zz");
}

TEST_F(CommandOutcome, PostValuesArePassedAsTheyAre) {
    request_.method_number = M_POST;
    run("one", "a%20b");
    EXPECT_EQ(g_received_value, "a%20b");
}

TEST_F(CommandOutcome, EmptyValueIsEmptyTextAndTheWalkGoesOn) {
    EXPECT_EQ(runQuery(&request_, "one", ""), 1);
    EXPECT_EQ(g_received_value, "");
    EXPECT_EQ(runQuery(&request_, "missing", "x"), 1);
}

}  // namespace
