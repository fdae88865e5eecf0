// registry/commands.json, the metadata behind the API reference and the console, against
// registry/catalog.def: every command exactly once, same names, same order, and each entry
// complete enough to document it.
#include <gtest/gtest.h>
#include <jansson.h>

#include <fstream>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace korvex::test {
namespace {

using JsonPtr = std::unique_ptr<json_t, decltype(&json_decref)>;

JsonPtr load_metadata() {
    json_error_t error;
    JsonPtr root(json_load_file(KORVEX_SOURCE_DIR "/registry/commands.json", 0, &error), json_decref);
    EXPECT_TRUE(root) << "registry/commands.json:" << error.line << ": " << error.text;
    return root;
}

std::vector<std::string> catalog_names() {
    std::ifstream in(KORVEX_SOURCE_DIR "/registry/catalog.def");
    const std::regex entry("^KORVEX_COMMAND\\(\"([^\"]*)\", *[A-Za-z0-9_]+\\)");
    std::vector<std::string> names;
    for (std::string line; std::getline(in, line);) {
        std::smatch match;
        if (std::regex_search(line, match, entry)) names.push_back(match[1]);
    }
    return names;
}

std::string text(json_t *object, const char *key) {
    json_t *value = json_object_get(object, key);
    return json_is_string(value) ? json_string_value(value) : "";
}

bool ends_with(const std::string &s, const std::string &tail) {
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

TEST(CommandMetadata, ListsTheCatalogInRegistrationOrder) {
    JsonPtr root = load_metadata();
    ASSERT_TRUE(root);
    json_t *commands = json_object_get(root.get(), "commands");
    ASSERT_TRUE(json_is_array(commands));
    std::vector<std::string> names;
    for (size_t i = 0; i < json_array_size(commands); ++i) names.push_back(text(json_array_get(commands, i), "name"));
    const std::vector<std::string> catalog = catalog_names();
    ASSERT_EQ(catalog.size(), 152u);
    EXPECT_EQ(names, catalog);
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), names.size()) << "a name twice";
}

TEST(CommandMetadata, EveryEntryIsComplete) {
    JsonPtr root = load_metadata();
    ASSERT_TRUE(root);
    const std::set<std::string> bus_names = {
        "com.korvex-labs.www.platform", "com.korvex-labs.www.sdk",    "com.korvex-labs.www.app",
        "com.korvex-labs.www.socket",   "com.korvex-labs.www.debuger", "com.korvex-labs.www.checkupdate",
        "com.korvex-labs.www.update",   "com.korvex-labs.www.Telldus", ""};
    json_t *commands = json_object_get(root.get(), "commands");
    for (size_t i = 0; i < json_array_size(commands); ++i) {
        json_t *c = json_array_get(commands, i);
        const std::string name = text(c, "name");
        SCOPED_TRACE(name);
        EXPECT_EQ(text(c, "resource"), "network.cgi");
        for (const char *key : {"family", "summary", "value", "answer", "outcome"}) {
            EXPECT_FALSE(text(c, key).empty()) << key;
        }
        json_t *calls = json_object_get(c, "calls");
        ASSERT_TRUE(json_is_array(calls));
        for (size_t k = 0; k < json_array_size(calls); ++k) {
            json_t *call = json_array_get(calls, k);
            EXPECT_EQ(bus_names.count(text(call, "bus_name")), 1u) << text(call, "bus_name");
            EXPECT_FALSE(text(call, "interface").empty());
            EXPECT_FALSE(text(call, "member").empty());
        }
        json_t *effects = json_object_get(c, "effects");
        ASSERT_TRUE(json_is_object(effects));
        EXPECT_TRUE(json_is_array(json_object_get(effects, "stores")));
        EXPECT_TRUE(json_is_boolean(json_object_get(effects, "commits")));
        json_t *restarts = json_object_get(effects, "restarts");
        ASSERT_TRUE(json_is_array(restarts));
        json_t *reboots = json_object_get(effects, "reboots");
        ASSERT_TRUE(json_is_boolean(reboots));
        json_t *confirm = json_object_get(c, "confirm");
        ASSERT_TRUE(json_is_boolean(confirm));
        // Whatever reboots the gateway or restarts a service asks before it is sent.
        if (json_is_true(reboots) || json_array_size(restarts) > 0) {
            EXPECT_TRUE(json_is_true(confirm));
        }
        json_t *example = json_object_get(c, "example");
        ASSERT_TRUE(json_is_object(example));
        EXPECT_TRUE(json_is_string(json_object_get(example, "value")));
        const std::string answer = text(example, "answer");
        EXPECT_TRUE(ends_with(answer, name + " done") || ends_with(answer, name + " failed")) << answer;
        if (!json_is_true(json_object_get(example, "checked"))) {
            EXPECT_FALSE(text(example, "why").empty());
        }
    }
}

TEST(CommandMetadata, DescribesTheFiveResources) {
    JsonPtr root = load_metadata();
    ASSERT_TRUE(root);
    json_t *resources = json_object_get(root.get(), "resources");
    std::set<std::string> names;
    for (size_t i = 0; i < json_array_size(resources); ++i) names.insert(text(json_array_get(resources, i), "name"));
    EXPECT_EQ(names, (std::set<std::string>{"sdk.cgi", "update.cgi", "network.cgi", "send.dat", "get.dat"}));
}

}  // namespace
}  // namespace korvex::test
