// The module's dynamic symbol table: exactly the module record, the three shared integers
// and the handler of every catalog command, unmangled; nothing else is exported.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <set>
#include <string>

namespace korvex::test {
namespace {

const std::string kModule = KORVEX_BUILD_DIR "/mod_korvex.so";

// Handler names of registry/catalog.def, in any order.
std::set<std::string> catalog_handlers() {
    std::ifstream in(KORVEX_SOURCE_DIR "/registry/catalog.def");
    const std::regex entry(R"(^KORVEX_COMMAND\("[^"]*", *([A-Za-z_][A-Za-z0-9_]*)\))");
    std::set<std::string> names;
    for (std::string line; std::getline(in, line);) {
        std::smatch match;
        if (std::regex_search(line, match, entry)) names.insert(match[1]);
    }
    return names;
}

struct Symbol {
    std::string type;
    std::string name;
    bool operator<(const Symbol &o) const { return name < o.name; }
};

// Defined dynamic symbols of the module as nm lists them ("address type name").
std::set<Symbol> exported_symbols() {
    std::set<Symbol> symbols;
    FILE *nm = popen(("nm -D --defined-only '" + kModule + "'").c_str(), "r");
    if (nm == nullptr) return symbols;
    char buffer[1024];
    const std::regex line_form(R"(^[0-9a-f]+ ([A-Za-z]) (\S+)\s*$)");
    while (fgets(buffer, sizeof buffer, nm) != nullptr) {
        std::smatch match;
        const std::string line = buffer;
        if (std::regex_match(line, match, line_form)) {
            symbols.insert({match[1], match[2]});
        } else {
            symbols.insert({"?", line});
        }
    }
    EXPECT_EQ(pclose(nm), 0) << "nm failed on " << kModule;
    return symbols;
}

TEST(ExportsTest, CatalogHasHandlers) { EXPECT_GT(catalog_handlers().size(), 0u); }

TEST(ExportsTest, ExactlyTheRecordTheIntegersAndTheHandlersAreExported) {
    std::set<std::string> expected = catalog_handlers();
    expected.insert({"korvex_module", "jsonsetall_number", "jsongetuserdata_number", "checkupdateflag"});
    std::set<std::string> exported;
    for (const Symbol &symbol : exported_symbols()) exported.insert(symbol.name);
    EXPECT_EQ(exported, expected);
}

TEST(ExportsTest, HandlersAreFunctionsAndTheOthersData) {
    const std::set<std::string> handlers = catalog_handlers();
    for (const Symbol &symbol : exported_symbols()) {
        if (handlers.count(symbol.name) != 0) {
            EXPECT_EQ(symbol.type, "T") << symbol.name;
        } else {
            EXPECT_TRUE(symbol.type == "D" || symbol.type == "B") << symbol.name << " has type " << symbol.type;
        }
    }
}

}  // namespace
}  // namespace korvex::test
