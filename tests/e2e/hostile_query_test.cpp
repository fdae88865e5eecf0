// Hostile "network.cgi" queries: random query strings and bodies from a fixed seed, separator
// storms, broken escapes, texts the bus cannot carry, thousands of arguments and huge names.
// Every answer is well-formed and no server child dies (tests/support/hostile_input_fixture.h).
#include <string>
#include <vector>

#include "tests/support/hostile_input_fixture.h"
#include "tests/support/hostile_requests.h"

namespace korvex::test {
namespace {

using namespace hostile;

// ---- network.cgi: random queries -----------------------------------------------------

TEST_F(HostileInputTest, RandomQueryStrings) {
    Random random(kSeed);
    for (int i = 0; i < 160; ++i) {
        std::string query = random_query(random, 1 + random.below(12));
        if (random.chance(85)) query = line_safe(query);
        // Longer request lines than the server takes get 414; the rest reach the module.
        exchange("GET ?" + query, raw_get("/network.cgi?" + query), Shape::kNetwork, {200, 400, 414});
    }
}

TEST_F(HostileInputTest, RandomPostBodies) {
    Random random(kSeed + 1);
    for (int i = 0; i < 80; ++i) {
        std::string body = random_query(random, 1 + random.below(20));
        if (random.chance(75)) body = repair_escapes(body);
        if (random.chance(20)) {
            // Raw bytes, not escaped: high bytes, NULs and control characters in the body.
            for (std::size_t n = random.below(64); n > 0; --n) body += static_cast<char>(random.below(256));
        }
        if (random.chance(50)) {
            exchange("POST " + body, with_length("/network.cgi", body), Shape::kNetwork, {200});
        } else {
            const std::string chunks =
                chunk(body.substr(0, body.size() / 2)) + chunk(body.substr(body.size() / 2)) + "0\r\n\r\n";
            exchange("chunked POST " + body, raw_post("/network.cgi", {"Transfer-Encoding: chunked"}, chunks),
                     Shape::kNetwork, {200});
        }
    }
}

// ---- network.cgi: pathological argument strings ----------------------------------------

TEST_F(HostileInputTest, SeparatorStormsAndBrokenEscapes) {
    const std::vector<std::string> queries = {
        "",          "&",          "=",         "&&&&",     "====",      "=&=&=&",   "&=&",
        "%",         "%%",         "%%%%",      "%zz",      "%zz=%zz",   "a=%",      "a=%2",
        "%00",       "%00=%00",    "json%00=1", "=json",    "json",      "json&json=&json==",
        "%26%3D",    "json=%00",   "json=%",    "json=%FF%FE", "easycmd=%FF%FE",
        "doscenemode=%FF%FE",      "listnvram=%FF%FE",      "listnvram=%",  "listnvram=%00",
        "jsonsetall=%C0%80",       "enablelock=%ED%A0%80", "p2preconnect=%F4%90%80%80",
        "getDST=%FE",              "jsonsetuserdata=%FF",   "JSON=1",       "json=%2525FF",
        std::string(4000, '&'),    std::string(4000, '='), std::string(2000, '%'),
        [] {
            std::string q;
            for (int i = 0; i < 1300; ++i) q += "a=&";
            return q;
        }(),
    };
    for (const std::string &query : queries) {
        exchange("GET ?" + query, raw_get("/network.cgi?" + query), Shape::kNetwork, {200, 400});
        exchange("POST " + query, with_length("/network.cgi", query), Shape::kNetwork, {200});
    }
}

TEST_F(HostileInputTest, TextsTheBusCannotCarryAreRefusedNotSent) {
    // Each of these reaches its handler as invalid UTF-8: the call is never made.
    const size_t before = env().error_log_size();
    struct Case {
        std::string query;
        std::string body;
    };
    const std::vector<Case> cases = {
        {"json=%FF%FE", "json done"},
        {"easycmd=%FF%FE", "easycmd failed"},
        {"doscenemode=%FF%FE", "doscenemode failed"},
        {"listnvram=%FF%FE", "listnvram failed"},
        {"jsonsetall=%C0%80", "jsonsetall done"},
        {"jsongetall=%ED%A0%80", "jsongetall failed"},
    };
    for (const Case &c : cases) {
        HttpResponse response = exchange("GET ?" + c.query, raw_get("/network.cgi?" + c.query), Shape::kNetwork, {200});
        EXPECT_EQ(response.body, c.body) << c.query;
    }
    EXPECT_GE(env().count_log_lines("dbus_message_append_args fail", before), cases.size());
}

TEST_F(HostileInputTest, ThousandsOfArgumentsAndHugeNames) {
    // Thousands of distinct unknown names run in order, each echoed once.
    std::string body, expected;
    for (int i = 0; i < 4000; ++i) {
        body += (i ? "&x" : "x") + std::to_string(i) + "=%FF";
        expected += "x" + std::to_string(i) + " doesn't exist";
    }
    HttpResponse many = exchange("4000 arguments", with_length("/network.cgi", body), Shape::kNetwork, {200});
    EXPECT_TRUE(many.body == expected) << many.body.size() << " bytes";

    std::string get_query, get_expected;
    for (int i = 0; get_query.size() < 7000; ++i) {
        get_query += (i ? "&y" : "y") + std::to_string(i);
        get_expected += "y" + std::to_string(i) + " doesn't exist";
    }
    HttpResponse many_get = exchange("GET many", raw_get("/network.cgi?" + get_query), Shape::kNetwork, {200});
    EXPECT_TRUE(many_get.body == get_expected) << many_get.body.size() << " bytes";

    const std::string huge(200000, 'N');
    HttpResponse huge_name = exchange("huge name", with_length("/network.cgi", huge + "=1"), Shape::kNetwork, {200});
    EXPECT_TRUE(huge_name.body == huge + " doesn't exist") << huge_name.body.size() << " bytes";

    const std::string markup = "%3Cscript%3E" + std::string(100000, 'M');
    HttpResponse escaped = exchange("huge markup name", with_length("/network.cgi", markup), Shape::kNetwork, {200});
    EXPECT_TRUE(escaped.body == "&lt;script&gt;" + std::string(100000, 'M') + " doesn't exist")
        << escaped.body.substr(0, 200);

    // A name just under and one over the server's request-line limit.
    exchange("long GET name", raw_get("/network.cgi?" + std::string(8100, 'L')), Shape::kNetwork, {200});
    exchange("too long GET name", raw_get("/network.cgi?" + std::string(9000, 'L')), Shape::kAny, {414});

    // Values just under the body limit for commands that forward them to the bus (a stored
    // one only when it cannot be carried, so the settings stay small); over it, refused.
    const size_t room = (1 << 20) - 16;
    for (const char *name : {"json", "easycmd", "doscenemode", "listnvram", "jsonsetall"}) {
        const std::string value = std::string(name) + "=" + std::string(room, 'v') + "%FF";
        exchange(std::string("huge invalid ") + name, with_length("/network.cgi", value), Shape::kNetwork, {200});
    }
    for (const char *name : {"json", "easycmd", "listnvram", "jsonsetall"}) {
        const std::string valid = std::string(name) + "=" + std::string(room, 'w');
        exchange(std::string("huge ") + name, with_length("/network.cgi", valid), Shape::kNetwork, {200});
        const std::string over = std::string(name) + "=" + std::string(1 << 20, 'w');
        exchange(std::string("over the limit ") + name, with_length("/network.cgi", over), Shape::kAny, {413});
    }
}

}  // namespace
}  // namespace korvex::test
