// The process-wide record is found through the process pool of the request's server.
#include <gtest/gtest.h>

#include "registry/module_config.h"
#include "tests/support/apr_pool_fixture.h"

namespace {

class ModuleConfigLookup : public korvex::test::AprPoolTest {
protected:
    void SetUp() override {
        AprPoolTest::SetUp();
        process_.pool = pool_;
        server_.process = &process_;
        request_.pool = pool_;
        request_.server = &server_;
    }
    process_rec process_{};
    server_rec server_{};
    request_rec request_{};
};

TEST_F(ModuleConfigLookup, IsNullBeforePostConfiguration) { EXPECT_EQ(getKorvexData(&request_), nullptr); }

TEST_F(ModuleConfigLookup, FindsTheRecordKeptOnTheProcessPool) {
    ModuleConfig config{};
    apr_pool_userdata_set(&config, kModuleConfigKey, apr_pool_cleanup_null, pool_);
    EXPECT_EQ(getKorvexData(&request_), &config);
}

}  // namespace
