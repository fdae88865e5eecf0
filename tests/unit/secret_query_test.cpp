#include "module/secret_query.h"

#include <gtest/gtest.h>

#include <string>

namespace korvex {
namespace {

std::string masked_or_same(const std::string &query) {
    std::string masked;
    return mask_secret_values(query, &masked) ? masked : query;
}

TEST(SecretQuery, EverySecretCarryingCommandIsMasked) {
    EXPECT_EQ(masked_or_same("setappwd=Sunny%20Day1&setstapwd=x&setpppoepassword=p&setp2ppwd=q&setSUpwd=r&"
                             "setTelldusSecret=0123456789"),
              "setappwd=********&setstapwd=********&setpppoepassword=********&setp2ppwd=********&"
              "setSUpwd=********&setTelldusSecret=********");
}

TEST(SecretQuery, OtherArgumentsStayAsSent) {
    EXPECT_EQ(masked_or_same("getappwd=&setstassid=My%20Net&setappwd=s3cret&test=1"),
              "getappwd=&setstassid=My%20Net&setappwd=********&test=1");
}

TEST(SecretQuery, NothingSecretIsNoChange) {
    std::string masked = "untouched";
    EXPECT_FALSE(mask_secret_values("setstassid=abc&test=3", &masked));
    EXPECT_FALSE(mask_secret_values("", &masked));
    // A bare name runs with "1", and an empty value shows nothing.
    EXPECT_FALSE(mask_secret_values("setappwd&setstapwd=", &masked));
    EXPECT_EQ(masked, "untouched");
}

TEST(SecretQuery, NamesCountAsTheServerDecodesThem) {
    EXPECT_EQ(masked_or_same("set%61ppwd=x&%73etSUpwd=y"), "set%61ppwd=********&%73etSUpwd=********");
    // Names are exact, as in the command table.
    EXPECT_EQ(masked_or_same("SETAPPWD=x&setappwd2=y"), "SETAPPWD=x&setappwd2=y");
    // A broken escape stays as it is.
    EXPECT_EQ(masked_or_same("set%6=x&setappwd%=y"), "set%6=x&setappwd%=y");
}

TEST(SecretQuery, EveryEqualsSignOfTheValueGoes) {
    EXPECT_EQ(masked_or_same("setp2ppwd=a=b=c&&setSUpwd==x"), "setp2ppwd=********&&setSUpwd=********");
}

}  // namespace
}  // namespace korvex
