// Every name of the catalog answers: one request per command, each ending in its own
// outcome line, none unknown to the table.
#include <string>

#include "tests/support/command_test.h"
#include "tests/unit/full_catalog.h"

namespace korvex::test {
namespace {

class CatalogCoverageTest : public CommandTest {};

bool ends_with(const std::string &text, const std::string &tail) {
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

TEST_F(CatalogCoverageTest, EveryCommandOfTheCatalogAnswersWithItsOutcome) {
    ASSERT_EQ(kFullCatalog.size(), 152u);
    int answered = 0;
    for (const std::string &name : kFullCatalog) {
        const std::string body = run(name + "=0");
        EXPECT_EQ(body.find("doesn't exist"), std::string::npos) << name << ": " << body;
        EXPECT_TRUE(ends_with(body, name + " done") || ends_with(body, name + " failed")) << name << ": " << body;
        ++answered;
    }
    EXPECT_EQ(answered, 152);
    // The table is case-sensitive and knows nothing else.
    EXPECT_EQ(run("setmac=0"), "setmac doesn't exist");
}

}  // namespace
}  // namespace korvex::test
