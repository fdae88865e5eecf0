// Hostile input sweep: a few hundred malformed, oversized or malicious requests against all
// five resources, generated from a fixed seed. Whatever comes in, every answer must be a
// well-formed HTTP response (or, where the client itself gives up, none), no server child
// may die, and the children serving at the start must still be the ones serving at the end.
#include <sys/types.h>

#include <cctype>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/mpm_fixture.h"
#include "tests/support/gateway_env.h"
#include "tests/support/http_client.h"
#include "tests/support/multipart.h"
#include "tests/support/process_runner.h"

namespace korvex::test {
namespace {

constexpr std::uint32_t kSeed = 0x6b6f7276;  // fixed: every run sends the same requests
constexpr char kHtml[] = "text/html;charset=utf-8";
constexpr long kGiveUpMs = 400;  // how long a client that lies about its body waits

// Text in the server's logs that only a dying or misbehaving child writes.
const char *const kCrashMarkers[] = {
    "exit signal",    "Segmentation fault", "AddressSanitizer", "LeakSanitizer", "runtime error:",
    "Aborted",        "double free",        "free(): ",         "malloc(): ",    "corrupted",
    "stack smashing", "D-Bus library",      "arguments to dbus_",
};

// Commands that hand their value to a daemon over the bus.
const char *const kForwarding[] = {
    "json",          "easycmd",       "jsongettitles",   "jsongetgroup",     "jsongetall",
    "jsongetevent",  "jsongetmacroevent", "doscene",     "jsonsetall",       "jsondel",
    "jsonrename",    "doscenemode",   "setDST",          "getDST",           "p2preconnect",
    "jsonsetuserdata", "jsonsetcheckbox", "jsonsetcheckbox2", "setsavingtime", "enableastclock",
    "enableswitchall", "enabletimer", "enablelock",      "listnvram",
};

// Commands that ignore their value (or only read settings); "test" is left out on purpose:
// its value is a repeat count.
const char *const kOthers[] = {
    "jsongetupdate", "getdoscenemode", "jsongetuserdata", "jsongetcheckbox", "getp2preconnect",
    "getsavingtime", "getenablelock",  "listOOM",         "listAllocated",   "memusage",
    "authcode",      "sysinfo",        "proctable",       "removeappconfig", "backupappconfig",
};

// Pieces of values and names, already as they appear in a query string.
const char *const kPieces[] = {
    "%FF%FE",       "%C0%80",      "%ED%A0%80",  "%F4%90%80%80", "%80",     "%FE%FF%00",
    "%00",          "%",           "%z",         "%zz",          "%2",      "%25",
    "%2525",        "%2500",       "%25FF",      "+",            "%0A",     "%0D%0A",
    "%27",          "'",           "%22",        "%3Cb%3E",      "<i>",     "%7B%22cmd%22%3A%22x%22%7D",
    "{\"control\":", "%5C",        "..%2F..%2F", "$(reboot)",    "%24%28id%29", "`id`",
    ";",            "|",           "%26",        "%3D",          "%C3%A9",  "%E2%82%AC",
    "%F0%9F%98%80", "-1",          "99999999999999999999", "0x7fffffff", "%09", "%7F",
    "null",         "[[[[[[[[",    "\\u0000",    "%u0041",       "%%%",     "%%41",
};

class Random {
public:
    explicit Random(std::uint32_t seed) : engine_(seed) {}
    // Uniform enough for a sweep, and the same on every standard library.
    std::size_t below(std::size_t n) { return static_cast<std::size_t>(engine_() % n); }
    bool chance(unsigned percent) { return below(100) < percent; }
    template <std::size_t N>
    const char *pick(const char *const (&list)[N]) {
        return list[below(N)];
    }

private:
    std::mt19937 engine_;
};

std::string percent_byte(unsigned byte) {
    static const char kHex[] = "0123456789ABCDEF";
    return std::string("%") + kHex[byte >> 4] + kHex[byte & 15];
}

// A value: pieces, random escaped bytes and plain letters.
std::string random_value(Random &random) {
    std::string value;
    const std::size_t parts = random.below(7);
    for (std::size_t i = 0; i < parts; ++i) {
        switch (random.below(4)) {
            case 0:
            case 1:
                value += random.pick(kPieces);
                break;
            case 2:
                value += percent_byte(static_cast<unsigned>(random.below(256)));
                break;
            default:
                value += std::string(1 + random.below(12), static_cast<char>('a' + random.below(26)));
                break;
        }
    }
    if (random.chance(3)) value += std::string(1000 + random.below(2000), 'V');
    return value;
}

std::string random_name(Random &random) {
    const std::size_t kind = random.below(10);
    if (kind < 6) return random.pick(kForwarding);
    if (kind < 7) return random.pick(kOthers);
    if (kind < 8) return std::string(random.pick(kForwarding)) + random.pick(kPieces);
    return random_value(random);
}

// name=value pairs joined by '&', with the odd missing '=' or doubled separator.
std::string random_query(Random &random, std::size_t count) {
    std::string query;
    for (std::size_t i = 0; i < count; ++i) {
        if (i != 0) query += random.chance(10) ? "&&" : "&";
        query += random_name(random);
        if (!random.chance(10)) query += (random.chance(5) ? "==" : "=") + random_value(random);
    }
    return query;
}

// A POST body with one malformed escape anywhere is refused as a whole before it is split,
// so most bodies get their lone '%' signs escaped and reach the commands.
std::string repair_escapes(const std::string &text) {
    auto hex = [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; };
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool escape = text[i] == '%' && i + 2 < text.size() && hex(text[i + 1]) && hex(text[i + 2]);
        out += text[i] == '%' && !escape ? std::string("%25") : std::string(1, text[i]);
    }
    return out;
}

// Escapes the bytes the server refuses in a request line (blanks, controls, high bytes,
// quotes, braces...), so the query reaches the module; '%' signs stay as they are.
std::string line_safe(const std::string &text) {
    std::string out;
    for (char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte <= 0x20 || byte >= 0x7f || std::strchr("\"<>\\^`{|}", c) != nullptr) {
            out += percent_byte(byte);
        } else {
            out += c;
        }
    }
    return out;
}

std::string raw_get(const std::string &target) {
    return "GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n";
}

// A POST with the given header lines (Content-Length and Transfer-Encoding are the
// caller's) and body, sent byte for byte.
std::string raw_post(const std::string &target, const std::vector<std::string> &headers, const std::string &body) {
    std::string request = "POST " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n";
    for (const std::string &header : headers) request += header + "\r\n";
    return request + "\r\n" + body;
}

std::string with_length(const std::string &target, const std::string &body) {
    return raw_post(target, {"Content-Type: application/x-www-form-urlencoded",
                             "Content-Length: " + std::to_string(body.size())},
                    body);
}

std::string chunk(const std::string &data) {
    std::ostringstream out;
    out << std::hex << data.size() << "\r\n" << data << "\r\n";
    return out.str();
}

std::size_t file_size(const std::string &path) { return read_file(path, 0).size(); }

bool alive(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    std::getline(stat, text);
    const std::size_t close = text.rfind(')');
    return close != std::string::npos && close + 2 < text.size() && text[close + 2] != 'Z';
}

bool ends_with(const std::string &text, const std::string &suffix) {
    return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// What a well-formed answer of a resource looks like.
enum class Shape {
    kNetwork,  // command outputs: empty, or ending with a command's verdict
    kText,     // any text of the module (sdk.cgi, get.dat)
    kEmpty,    // send.dat: nothing
    kUpdate,   // update.cgi: the status page
    kAny,      // not the module's (server's own error pages)
};

class HostileInputTest : public GatewayTest {
protected:
    // Every record the module writes: hostile values also pass through the trace lines.
    static void SetUpTestSuite() { use_log_level(KORVEX_LOG_CHILD); }

    void SetUp() override {
        GatewayTest::SetUp();
        children_ = env().server_child_pids();
        log_before_ = env().error_log_size();
        stderr_before_ = file_size(stderr_path());
        started_ = std::chrono::steady_clock::now();
        sent_ = 0;
    }

    void TearDown() override {
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started_).count();
        RecordProperty("requests", static_cast<int>(sent_));
        std::printf("[hostile] %zu requests in %.1f s\n", sent_, seconds);
        expect_no_casualties();
    }

    std::string stderr_path() const { return env().run_dir() + "/logs/httpd.stderr"; }

    // No crash traces, no sanitizer reports, every child of the start still alive, and the
    // server still gives an exact, ordinary answer.
    void expect_no_casualties() {
        const std::string log = env().error_log_since(log_before_) + read_file(stderr_path(), stderr_before_);
        for (const char *marker : kCrashMarkers) {
            const std::size_t at = log.find(marker);
            EXPECT_EQ(at, std::string::npos) << "\"" << marker << "\" in the server's logs:\n"
                                             << log.substr(at > 2000 ? at - 2000 : 0, 4000);
        }
        EXPECT_TRUE(env().sanitizer_reports().empty()) << env().sanitizer_reports().front();
        // Under prefork and one client at a time nothing retires a child: each one of the start
        // must still be there. (Threaded servers retire idle children by design.)
        if (env().options().mpm == "prefork") {
            for (pid_t child : children_) EXPECT_TRUE(alive(child)) << "server child " << child << " is gone";
        }
        EXPECT_TRUE(alive(env().server_pid()));
        HttpResponse canary = get(port(), "/network.cgi?nosuch=1&getdoscenemode");
        EXPECT_EQ(canary.status, 200) << canary.error;
        EXPECT_TRUE(canary.body.rfind("nosuch doesn't exist", 0) == 0 && ends_with(canary.body, "getdoscenemode done"))
            << canary.body;
    }

    // Sends one raw request and checks the answer. may_drop: the client gives up (or the
    // server refuses early and closes), so no answer at all is acceptable too.
    HttpResponse exchange(const std::string &what, const std::string &raw, Shape shape,
                          std::initializer_list<long> statuses, bool may_drop = false,
                          long timeout_ms = 15000) {
        ++sent_;
        HttpResponse response = send_raw(port(), raw, timeout_ms);
        check(what, response, shape, statuses, may_drop);
        return response;
    }

    void check(const std::string &what, const HttpResponse &response, Shape shape,
               std::initializer_list<long> statuses, bool may_drop) {
        const std::string label = what.size() > 300 ? what.substr(0, 300) + "..." : what;
        if (response.status == 0) {
            EXPECT_TRUE(may_drop) << label << ": no answer (" << response.error << ")";
            return;
        }
        EXPECT_TRUE(response.error.empty() || may_drop) << label << ": " << response.error;
        bool expected = false;
        for (long status : statuses) expected = expected || status == response.status;
        EXPECT_TRUE(expected) << label << ": status " << response.status;
        if (response.status != 200 || shape == Shape::kAny) return;
        auto type = response.headers.find("content-type");
        if (shape != Shape::kUpdate) {
            EXPECT_TRUE(type != response.headers.end() && type->second == kHtml) << label;
        }
        switch (shape) {
            case Shape::kNetwork:
                EXPECT_TRUE(response.body.empty() || ends_with(response.body, " done") ||
                            ends_with(response.body, " failed") || ends_with(response.body, " doesn't exist"))
                    << label << ": " << response.body.substr(0, 500);
                break;
            case Shape::kEmpty:
                EXPECT_EQ(response.body, "") << label;
                break;
            case Shape::kUpdate:
                EXPECT_TRUE(response.body == kUpdateRefresh || response.body == "updating") << label << ": "
                                                                                       << response.body;
                break;
            case Shape::kText:
            case Shape::kAny:
                break;
        }
    }

    std::vector<pid_t> children_;
    std::size_t log_before_ = 0;
    std::size_t stderr_before_ = 0;
    std::size_t sent_ = 0;
    std::chrono::steady_clock::time_point started_;
};

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

// ---- request bodies that lie ----------------------------------------------------------

TEST_F(HostileInputTest, LyingContentLength) {
    for (const char *target : {"/network.cgi", "/sdk.cgi", "/send.dat"}) {
        const Shape shape = std::string(target) == "/network.cgi" ? Shape::kNetwork
                            : std::string(target) == "/send.dat"  ? Shape::kEmpty
                                                                  : Shape::kText;
        // Declares more than it sends, then gives up: the read fails, nothing hangs.
        exchange(std::string(target) + " short body",
                 raw_post(target, {"Content-Length: 100000"}, "json=%FF%FE&test=1"), shape, {200}, true, kGiveUpMs);
        exchange(std::string(target) + " huge declared length",
                 raw_post(target, {"Content-Length: 9223372036854775807"}, "json=x"), shape, {200, 400, 413}, true,
                 kGiveUpMs);
        // Declares less than it sends: the rest is a (broken) next request.
        exchange(std::string(target) + " long body", raw_post(target, {"Content-Length: 4"}, "json=%FF%FE&json=abc"),
                 shape, {200, 400});
        for (const char *length : {"-1", "abc", "1 2", "+5", "0x10", "99999999999999999999999", "", " 5"}) {
            exchange(std::string(target) + " Content-Length '" + length + "'",
                     raw_post(target, {std::string("Content-Length: ") + length}, "json=x"), Shape::kAny,
                     {200, 400, 413}, true, kGiveUpMs);
        }
        exchange(std::string(target) + " two lengths",
                 raw_post(target, {"Content-Length: 6", "Content-Length: 7"}, "json=xy"), Shape::kAny, {200, 400});
        exchange(std::string(target) + " length and chunked",
                 raw_post(target, {"Content-Length: 3", "Transfer-Encoding: chunked"}, chunk("json=x") + "0\r\n\r\n"),
                 Shape::kAny, {200, 400}, true);
        exchange(std::string(target) + " unknown coding",
                 raw_post(target, {"Transfer-Encoding: gzip, chunked"}, chunk("json=x") + "0\r\n\r\n"), Shape::kAny,
                 {200, 400, 501}, true);
    }
}

TEST_F(HostileInputTest, BrokenChunkedBodies) {
    const std::vector<std::pair<std::string, std::string>> bodies = {
        {"bad size", "zz\r\njson=x\r\n0\r\n\r\n"},
        {"overflowing size", "ffffffffffffffffff\r\njson=x\r\n0\r\n\r\n"},
        {"size beyond data", "100\r\njson=x\r\n0\r\n\r\n"},
        {"no last chunk", chunk("json=x")},
        {"extension and trailer", "6;name=value\r\njson=x\r\n0\r\nX-Trailer: 1\r\n\r\n"},
        {"negative size", "-6\r\njson=x\r\n0\r\n\r\n"},
        {"bare LF", "6\njson=x\n0\n\n"},
        {"invalid UTF-8", chunk("json=\xff\xfe&easycmd=%C0%80") + "0\r\n\r\n"},
        {"NUL in chunk", chunk(std::string("json=a\0b", 8)) + "0\r\n\r\n"},
    };
    for (const char *target : {"/network.cgi", "/sdk.cgi", "/send.dat"}) {
        for (const auto &body : bodies) {
            exchange(std::string(target) + " chunked: " + body.first,
                     raw_post(target, {"Transfer-Encoding: chunked"}, body.second), Shape::kAny, {200, 400, 413}, true,
                     kGiveUpMs);
        }
    }
}

// ---- sdk.cgi, send.dat, get.dat --------------------------------------------------------

TEST_F(HostileInputTest, JsonValuesForSdkAndSendDat) {
    Random random(kSeed + 2);
    const std::vector<std::string> fixed = {"%FF%FE",   "%C0%80", "%ED%A0%80",  "%00",     "%",  "%zz",
                                            "%F4%90%80%80", "",   "%7B%22a%22%3A%FF%7D", "[[[[[[[[[["};
    std::vector<std::string> values = fixed;
    for (int i = 0; i < 20; ++i) values.push_back(random_value(random));
    for (const std::string &value : values) {
        HttpResponse sdk_get = exchange("sdk.cgi GET json=" + value, raw_get("/sdk.cgi?json=" + value), Shape::kText,
                                        {200, 400});
        exchange("sdk.cgi POST json=" + value, with_length("/sdk.cgi", "json=" + value), Shape::kText, {200});
        exchange("send.dat POST json=" + value, with_length("/send.dat", "json=" + value), Shape::kEmpty, {200});
        (void)sdk_get;
    }
    // Raw invalid bytes, unescaped, in bodies.
    for (const std::string &raw : {std::string("json=\xff\xfe"), std::string("json=\xc0\x80"),
                                   std::string("json=\xed\xa0\x80"), std::string("json=a\0b", 8)}) {
        HttpResponse sdk = exchange("sdk.cgi raw bytes", with_length("/sdk.cgi", raw), Shape::kText, {200});
        if (raw.find('\0') == std::string::npos) {
            EXPECT_EQ(sdk.body, "");
        }
        exchange("send.dat raw bytes", with_length("/send.dat", raw), Shape::kEmpty, {200});
    }
    exchange("get.dat with query", raw_get("/get.dat?json=%FF%FE&" + std::string(3000, '&')), Shape::kText, {200});
}

TEST_F(HostileInputTest, OtherMethods) {
    for (const char *target : {"/network.cgi?json=1", "/sdk.cgi?json=%FF", "/send.dat", "/get.dat", "/update.cgi"}) {
        for (const char *method : {"PUT", "DELETE", "OPTIONS", "PATCH", "BREW", "HEAD"}) {
            const std::string raw = std::string(method) + " " + target +
                                    " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\nContent-Length: 6\r\n\r\n"
                                    "json=x";
            // HEAD gets headers only; the client then reads until the server closes. A HEAD
            // of update.cgi is a GET without an image: 400.
            exchange(std::string(method) + " " + target, raw, Shape::kAny, {200, 400, 405, 501}, true, 3000);
        }
    }
    exchange("HTTP/0.9", "GET /network.cgi?json=%FF\r\n", Shape::kAny, {400}, true, 3000);
    exchange("bad version", "GET /network.cgi?json=1 HTTP/9.9\r\nHost: 127.0.0.1\r\n\r\n", Shape::kAny, {200, 400, 505},
             true, 3000);
}

// ---- update.cgi: broken multipart (each costs a second of the server's time) -----------

// Each is refused as malformed (400) and starts no updater.
TEST_F(HostileInputTest, BrokenMultipartUploads) {
    const std::string boundary = "--hostile";
    const std::vector<std::pair<std::string, std::string>> bodies = {
        {"no CR LF", "garbage without any line break; Content-Type: application/octet-stream"},
        {"header longer than a piece",
         boundary + "\r\nX-Padding: " + std::string(9000, 'p') + "\r\nContent-Type: application/octet-stream\r\n\r\n" +
             "image\r\n" + boundary + "--\r\n"},
        {"only the boundary", boundary + "\r\n"},
        {"empty body", ""},
        {"header cut short", boundary + "\r\nContent-Type: x\r\n"},
    };
    for (const auto &body : bodies) {
        exchange("update.cgi " + body.first,
                 raw_post("/update.cgi",
                          {"Content-Type: multipart/form-data; boundary=hostile",
                           "Content-Length: " + std::to_string(body.second.size())},
                          body.second),
                 Shape::kAny, {400});
    }
    // Chunked, a boundary line longer than the first piece, no end.
    exchange("update.cgi chunked long boundary",
             raw_post("/update.cgi", {"Transfer-Encoding: chunked"},
                      chunk(std::string(8190, '-') + "\r\nContent-Type: x\r\n\r\nimage") + "0\r\n\r\n"),
             Shape::kAny, {400});
}

// ---- several clients at once on a threaded server ---------------------------------------

using HostileInputWorkerTest = OnMpm<HostileInputTest, kWorkerMpm, KORVEX_LOG_CHILD>;

TEST_F(HostileInputWorkerTest, ConcurrentRandomRequests) {
    // Serving threads open their bus connections while others look up the module's record.
    constexpr int kClients = 4;
    constexpr int kEach = 25;
    std::vector<std::vector<std::pair<std::string, HttpResponse>>> answers(kClients);
    std::vector<std::thread> clients;
    for (int c = 0; c < kClients; ++c) {
        clients.emplace_back([c, &answers] {
            Random random(kSeed + 100 + static_cast<std::uint32_t>(c));
            for (int i = 0; i < kEach; ++i) {
                const std::string query = line_safe(random_query(random, 1 + random.below(8)));
                const std::string raw = random.chance(50) ? raw_get("/network.cgi?" + query)
                                                          : with_length("/network.cgi", repair_escapes(query));
                answers[c].emplace_back(query, send_raw(port(), raw, 15000));
            }
        });
    }
    for (std::thread &client : clients) client.join();
    for (const auto &list : answers) {
        for (const auto &[query, response] : list) {
            ++sent_;
            check("concurrent " + query, response, Shape::kNetwork, {200, 400, 414}, false);
        }
    }
}

}  // namespace
}  // namespace korvex::test
