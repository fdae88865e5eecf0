#include "tests/support/http_client.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstring>
#include <memory>
#include <mutex>

namespace korvex::test {
namespace {

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string trim(const std::string &text) {
    size_t begin = text.find_first_not_of(" \t\r\n");
    if (begin == std::string::npos) return "";
    size_t end = text.find_last_not_of(" \t\r\n");
    return text.substr(begin, end - begin + 1);
}

bool has_header(const std::vector<std::string> &headers, const char *name) {
    std::string wanted = lower(name) + ":";
    return std::any_of(headers.begin(), headers.end(), [&](const std::string &h) {
        return lower(h).compare(0, wanted.size(), wanted) == 0;
    });
}

// Adds "Name: value" to the map; a status line starts a new header block (after 1xx).
void add_header_line(const std::string &raw_line, HttpResponse &response) {
    std::string line = trim(raw_line);
    if (line.compare(0, 5, "HTTP/") == 0) {
        response.headers.clear();
        return;
    }
    size_t colon = line.find(':');
    if (colon == std::string::npos) return;
    std::string name = lower(trim(line.substr(0, colon)));
    std::string value = trim(line.substr(colon + 1));
    auto [it, inserted] = response.headers.emplace(name, value);
    if (!inserted) it->second += ", " + value;
}

size_t on_body(char *data, size_t size, size_t count, void *user) {
    static_cast<HttpResponse *>(user)->body.append(data, size * count);
    return size * count;
}

size_t on_header(char *data, size_t size, size_t count, void *user) {
    add_header_line(std::string(data, size * count), *static_cast<HttpResponse *>(user));
    return size * count;
}

struct ReadSource {
    const std::string *data;
    size_t offset = 0;
};

size_t on_read(char *buffer, size_t size, size_t count, void *user) {
    auto *source = static_cast<ReadSource *>(user);
    size_t n = std::min(size * count, source->data->size() - source->offset);
    std::memcpy(buffer, source->data->data() + source->offset, n);
    source->offset += n;
    return n;
}

void global_init() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

using CurlPtr = std::unique_ptr<CURL, decltype(&curl_easy_cleanup)>;
using SlistPtr = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;
using MimePtr = std::unique_ptr<curl_mime, decltype(&curl_mime_free)>;

CurlPtr new_handle(int port, const std::string &target, long timeout_ms, HttpResponse &response) {
    global_init();
    CurlPtr curl(curl_easy_init(), curl_easy_cleanup);
    std::string url = "http://127.0.0.1:" + std::to_string(port) + target;
    curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_PATH_AS_IS, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_PROXY, "");
    curl_easy_setopt(curl.get(), CURLOPT_NOPROXY, "*");
    curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_CONNECTTIMEOUT_MS, 5000L);
    curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT_MS, timeout_ms);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, on_body);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &response);
    curl_easy_setopt(curl.get(), CURLOPT_HEADERFUNCTION, on_header);
    curl_easy_setopt(curl.get(), CURLOPT_HEADERDATA, &response);
    return curl;
}

SlistPtr header_list(const std::vector<std::string> &headers) {
    curl_slist *list = nullptr;
    for (const auto &h : headers) list = curl_slist_append(list, h.c_str());
    // No "Expect: 100-continue" unless asked for: requests go out exactly as written.
    if (!has_header(headers, "Expect")) list = curl_slist_append(list, "Expect:");
    return SlistPtr(list, curl_slist_free_all);
}

void perform(CURL *curl, HttpResponse &response) {
    CURLcode rc = curl_easy_perform(curl);
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &response.status);
    if (rc != CURLE_OK) response.error = curl_easy_strerror(rc);
}

std::vector<std::string> with_content_type(std::vector<std::string> headers,
                                           const std::string &content_type) {
    if (!content_type.empty() && !has_header(headers, "Content-Type"))
        headers.push_back("Content-Type: " + content_type);
    return headers;
}

}  // namespace

HttpResponse send(int port, const HttpRequest &request) {
    HttpResponse response;
    CurlPtr curl = new_handle(port, request.target, request.timeout_ms, response);
    std::vector<std::string> headers = request.headers;
    ReadSource source{&request.body};
    const bool is_post = request.method == "POST";

    if (request.method == "HEAD") {
        curl_easy_setopt(curl.get(), CURLOPT_NOBODY, 1L);
    } else if (request.body_mode == BodyMode::kChunked) {
        if (!has_header(headers, "Transfer-Encoding")) headers.push_back("Transfer-Encoding: chunked");
        curl_easy_setopt(curl.get(), CURLOPT_POST, 1L);
        curl_easy_setopt(curl.get(), CURLOPT_READFUNCTION, on_read);
        curl_easy_setopt(curl.get(), CURLOPT_READDATA, &source);
        if (!is_post) curl_easy_setopt(curl.get(), CURLOPT_CUSTOMREQUEST, request.method.c_str());
    } else if (request.body_mode == BodyMode::kContentLength && (is_post || !request.body.empty())) {
        curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(request.body.size()));
        curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, request.body.data());
        if (!is_post) curl_easy_setopt(curl.get(), CURLOPT_CUSTOMREQUEST, request.method.c_str());
    } else if (request.method != "GET") {
        curl_easy_setopt(curl.get(), CURLOPT_CUSTOMREQUEST, request.method.c_str());
    }
    if (!request.basic_auth.empty()) {
        curl_easy_setopt(curl.get(), CURLOPT_HTTPAUTH, CURLAUTH_BASIC);
        curl_easy_setopt(curl.get(), CURLOPT_USERPWD, request.basic_auth.c_str());
    }
    SlistPtr list = header_list(headers);
    curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, list.get());
    perform(curl.get(), response);
    return response;
}

HttpResponse get(int port, const std::string &path_and_query, long timeout_ms) {
    HttpRequest request;
    request.target = path_and_query;
    request.timeout_ms = timeout_ms;
    return send(port, request);
}

HttpResponse post(int port, const std::string &path, const std::string &body,
                  const std::string &content_type, const std::vector<std::string> &extra_headers,
                  long timeout_ms) {
    HttpRequest request;
    request.method = "POST";
    request.target = path;
    request.body = body;
    request.headers = with_content_type(extra_headers, content_type);
    request.timeout_ms = timeout_ms;
    return send(port, request);
}

HttpResponse post_chunked(int port, const std::string &path, const std::string &body,
                          const std::string &content_type,
                          const std::vector<std::string> &extra_headers, long timeout_ms) {
    HttpRequest request;
    request.method = "POST";
    request.target = path;
    request.body = body;
    request.body_mode = BodyMode::kChunked;
    request.headers = with_content_type(extra_headers, content_type);
    request.timeout_ms = timeout_ms;
    return send(port, request);
}

HttpResponse request(const std::string &method, int port, const std::string &path,
                     const std::string &body, const std::vector<std::string> &headers,
                     long timeout_ms) {
    HttpRequest request;
    request.method = method;
    request.target = path;
    request.body = body;
    request.headers = headers;
    request.timeout_ms = timeout_ms;
    return send(port, request);
}

HttpResponse upload_multipart_file(int port, const std::string &path, const std::string &field_name,
                                   const std::string &file_path,
                                   const std::vector<std::string> &extra_headers, long timeout_ms) {
    HttpResponse response;
    CurlPtr curl = new_handle(port, path, timeout_ms, response);
    MimePtr mime(curl_mime_init(curl.get()), curl_mime_free);
    curl_mimepart *part = curl_mime_addpart(mime.get());
    curl_mime_name(part, field_name.c_str());
    // Read from disk while sending; the file is never loaded whole.
    if (curl_mime_filedata(part, file_path.c_str()) != CURLE_OK) {
        response.error = "cannot read " + file_path;
        return response;
    }
    curl_easy_setopt(curl.get(), CURLOPT_MIMEPOST, mime.get());
    SlistPtr list = header_list(extra_headers);
    curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, list.get());
    perform(curl.get(), response);
    return response;
}

// --- raw exchange ------------------------------------------------------------------------

namespace {

using Clock = std::chrono::steady_clock;

int remaining_ms(Clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

// Decodes a complete chunked body; false while more input is needed.
bool decode_chunked(const std::string &data, std::string &body) {
    body.clear();
    size_t pos = 0;
    for (;;) {
        size_t eol = data.find("\r\n", pos);
        if (eol == std::string::npos) return false;
        size_t size = std::strtoul(data.substr(pos, eol - pos).c_str(), nullptr, 16);
        pos = eol + 2;
        if (size == 0) return data.find("\r\n", pos) != std::string::npos;
        if (data.size() < pos + size + 2) return false;
        body.append(data, pos, size);
        pos += size + 2;
    }
}

// Parses what arrived so far; true once the response is complete by its own framing.
bool parse_raw(const std::string &raw, HttpResponse &response) {
    size_t start = 0;
    for (;;) {
        size_t end = raw.find("\r\n\r\n", start);
        if (end == std::string::npos) {
            response.status = 0;
            return false;
        }
        response = HttpResponse{};
        std::string head = raw.substr(start, end - start);
        size_t eol = head.find("\r\n");
        std::string status_line = head.substr(0, eol);
        size_t space = status_line.find(' ');
        if (space != std::string::npos) response.status = std::atol(status_line.c_str() + space + 1);
        for (size_t pos = eol; pos != std::string::npos && pos < head.size();) {
            size_t next = head.find("\r\n", pos + 2);
            add_header_line(head.substr(pos + 2, next == std::string::npos ? std::string::npos
                                                                           : next - pos - 2),
                            response);
            pos = next;
        }
        start = end + 4;
        if (response.status >= 100 && response.status < 200) continue;  // interim answer
        std::string rest = raw.substr(start);
        if (lower(response.headers["transfer-encoding"]) == "chunked") {
            return decode_chunked(rest, response.body);
        }
        if (response.headers.count("content-length")) {
            size_t length = std::strtoul(response.headers["content-length"].c_str(), nullptr, 10);
            response.body = rest.substr(0, length);
            return rest.size() >= length;
        }
        response.headers.erase("transfer-encoding");
        response.body = rest;
        return false;  // delimited by the end of the connection
    }
}

}  // namespace

HttpResponse get_with_fault(int port, const std::string &target, const std::string &fault, long timeout_ms) {
    HttpRequest request;
    request.target = target;
    request.headers = {"X-Korvex-Fault: " + fault};
    request.timeout_ms = timeout_ms;
    return send(port, request);
}

HttpResponse parse_raw_response(const std::string &received) {
    HttpResponse response;
    parse_raw(received, response);
    if (response.status == 0) response.error = "no response";
    return response;
}

HttpResponse send_raw(int port, const std::string &raw_request, long timeout_ms, bool half_close) {
    HttpResponse response;
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
    const int fd = open_loopback_connection(port);
    if (fd < 0) {
        response.error = std::string("connect failed: ") + std::strerror(errno);
        return response;
    }
    std::string received;
    size_t sent = 0;
    bool complete = false;
    while (!complete) {
        int wait = remaining_ms(deadline);
        if (wait == 0) {
            response.error = "timed out";
            break;
        }
        pollfd p{fd, static_cast<short>(POLLIN | (sent < raw_request.size() ? POLLOUT : 0)), 0};
        if (poll(&p, 1, wait) <= 0) continue;
        if (p.revents & POLLIN) {
            char buffer[65536];
            ssize_t n = recv(fd, buffer, sizeof buffer, 0);
            if (n <= 0) break;  // closed (or reset) by the server
            received.append(buffer, static_cast<size_t>(n));
            complete = parse_raw(received, response);
        } else if (p.revents & POLLOUT) {
            ssize_t n = ::send(fd, raw_request.data() + sent, raw_request.size() - sent, MSG_NOSIGNAL);
            if (n < 0) break;
            sent += static_cast<size_t>(n);
            if (half_close && sent == raw_request.size()) shutdown(fd, SHUT_WR);
        } else if (p.revents & (POLLERR | POLLHUP)) {
            break;
        }
    }
    close(fd);
    std::string error = response.error;
    parse_raw(received, response);
    response.error = error;
    if (response.status == 0 && error.empty()) response.error = "no response";
    return response;
}

int open_loopback_connection(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

}  // namespace korvex::test
