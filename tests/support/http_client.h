// HTTP client for end-to-end tests: talks to the private server on 127.0.0.1.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace korvex::test {

struct HttpResponse {
    long status = 0;        // 0 when no response arrived (see error)
    std::string body;
    std::map<std::string, std::string> headers;  // lower-cased names; repeats joined by ", "
    std::string error;      // transport error text, empty on success

    bool has_header(const std::string &lower_name) const { return headers.count(lower_name) != 0; }
};

enum class BodyMode {
    kContentLength,  // Content-Length from the body's size (unless a header overrides it)
    kChunked,        // Transfer-Encoding: chunked, no Content-Length
    kNone,           // no body and no body headers at all
};

struct HttpRequest {
    std::string method = "GET";
    std::string target = "/";           // path and query, sent as given
    std::string body;                   // exact bytes
    BodyMode body_mode = BodyMode::kContentLength;
    std::vector<std::string> headers;   // "Name: value"; replaces a header the client would send
    std::string basic_auth;             // "user:password" sent in the Basic scheme; empty: none
    long timeout_ms = 60000;
};

constexpr long kDefaultTimeoutMs = 60000;

HttpResponse send(int port, const HttpRequest &request);

HttpResponse get(int port, const std::string &path_and_query, long timeout_ms = kDefaultTimeoutMs);

// POST with the exact body; content_type empty sends no Content-Type.
HttpResponse post(int port, const std::string &path, const std::string &body,
                  const std::string &content_type = "application/x-www-form-urlencoded",
                  const std::vector<std::string> &extra_headers = {},
                  long timeout_ms = kDefaultTimeoutMs);

// POST with Transfer-Encoding: chunked and no Content-Length.
HttpResponse post_chunked(int port, const std::string &path, const std::string &body,
                          const std::string &content_type = "application/x-www-form-urlencoded",
                          const std::vector<std::string> &extra_headers = {},
                          long timeout_ms = kDefaultTimeoutMs);

// Any method (PUT, DELETE, HEAD, ...); a non-empty body is sent with Content-Length.
HttpResponse request(const std::string &method, int port, const std::string &path,
                     const std::string &body = "", const std::vector<std::string> &headers = {},
                     long timeout_ms = kDefaultTimeoutMs);

// multipart/form-data POST of one file part, streamed from disk.
HttpResponse upload_multipart_file(int port, const std::string &path, const std::string &field_name,
                                   const std::string &file_path,
                                   const std::vector<std::string> &extra_headers = {},
                                   long timeout_ms = kDefaultTimeoutMs);

// GET of target asking the development build for one of its test faults
// ("X-Korvex-Fault: <fault>", see module/fault_hooks.h).
HttpResponse get_with_fault(int port, const std::string &target, const std::string &fault,
                            long timeout_ms = kDefaultTimeoutMs);

// Writes raw bytes to the server and reads until the response is complete, the server
// closes, or the time-out passes. For requests a well-behaved client cannot send.
// The answer is parsed as far as it goes (status 0 if no status line arrived).
// `half_close`: once the request is sent, shut down the sending side (shutdown(SHUT_WR)),
// as a client does that has nothing more to say but still reads.
HttpResponse send_raw(int port, const std::string &raw_request, long timeout_ms = 10000, bool half_close = false);

// An answer as received on a raw connection, parsed as far as it goes (status 0 and an
// error if no status line arrived).
HttpResponse parse_raw_response(const std::string &received);

// A plain TCP connection to 127.0.0.1:port, for clients that send a request in parts or
// go away mid-request; the file descriptor, or -1.
int open_loopback_connection(int port);

}  // namespace korvex::test
