// Hostile request bodies and resources: bodies whose length lies, broken chunked codings,
// broken multipart uploads, invalid JSON values for "sdk.cgi" and "send.dat", and methods the
// resources do not serve. Every answer is well-formed and no server child dies
// (tests/support/hostile_input_fixture.h).
#include <string>
#include <vector>

#include "tests/support/hostile_input_fixture.h"
#include "tests/support/hostile_requests.h"

namespace korvex::test {
namespace {

using namespace hostile;

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
                                    " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n" + kNoPurgePauseHeader +
                                    "\r\nContent-Length: 6\r\n\r\njson=x";
            // HEAD gets headers only; the client then reads until the server closes. A HEAD
            // of update.cgi is a GET without an image: 400 (without the pause after the
            // memory purge, which the tests' build of the module skips when asked).
            exchange(std::string(method) + " " + target, raw, Shape::kAny, {200, 400, 405, 501}, true, 3000);
        }
    }
    exchange("HTTP/0.9", "GET /network.cgi?json=%FF\r\n", Shape::kAny, {400}, true, 3000);
    exchange("bad version", "GET /network.cgi?json=1 HTTP/9.9\r\nHost: 127.0.0.1\r\n\r\n", Shape::kAny, {200, 400, 505},
             true, 3000);
}

// ---- update.cgi: broken multipart --------------------------------------------------------

// Each is refused as malformed (400) and starts no updater. They ask the tests' build of
// the module to skip the pause after its memory purge.
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
                           "Content-Length: " + std::to_string(body.second.size()), kNoPurgePauseHeader},
                          body.second),
                 Shape::kAny, {400});
    }
    // Chunked, a boundary line longer than the first piece, no end.
    exchange("update.cgi chunked long boundary",
             raw_post("/update.cgi", {"Transfer-Encoding: chunked", kNoPurgePauseHeader},
                      chunk(std::string(8190, '-') + "\r\nContent-Type: x\r\n\r\nimage") + "0\r\n\r\n"),
             Shape::kAny, {400});
}

}  // namespace
}  // namespace korvex::test
