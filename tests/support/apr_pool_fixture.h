// Fixture giving every test a fresh APR pool, with APR initialised around it.
#pragma once

#include <apr_general.h>
#include <apr_pools.h>
#include <gtest/gtest.h>

namespace korvex::test {

class AprPoolTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(apr_initialize(), APR_SUCCESS);
        ASSERT_EQ(apr_pool_create(&pool_, nullptr), APR_SUCCESS);
    }
    void TearDown() override {
        if (pool_ != nullptr) apr_pool_destroy(pool_);
        apr_terminate();
    }

    apr_pool_t *pool_ = nullptr;
};

}  // namespace korvex::test
