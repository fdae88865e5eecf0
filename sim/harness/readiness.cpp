#include "sim/harness/readiness.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <fcntl.h>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

namespace korvex::harness {
namespace {

std::string read_from(const std::string &path, size_t offset) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return "";
    in.seekg(static_cast<std::streamoff>(offset));
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

size_t file_size(const std::string &path) {
    struct stat st{};
    return stat(path.c_str(), &st) == 0 ? static_cast<size_t>(st.st_size) : 0;
}

bool wait_fd(int fd, short events, int timeout_ms) {
    pollfd one{fd, events, 0};
    return poll(&one, 1, timeout_ms) == 1;
}

}  // namespace

WaitResult wait_until(const std::function<bool()> &ready, const std::function<bool()> &still_alive,
                      std::chrono::milliseconds timeout, std::chrono::milliseconds step) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        if (ready()) return WaitResult::ready;
        if (still_alive && !still_alive()) return ready() ? WaitResult::ready : WaitResult::gave_up;
        if (std::chrono::steady_clock::now() >= deadline) return WaitResult::timed_out;
        std::this_thread::sleep_for(step);
    }
}

bool http_get_body(int port, const std::string &path, std::string &body, int timeout_ms) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return false;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string answer;
    bool complete = false;
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 || errno == EINPROGRESS) {
        int error = 0;
        socklen_t length = sizeof error;
        if (wait_fd(fd, POLLOUT, timeout_ms) && getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 &&
            error == 0) {
            const std::string request = "GET " + path + " HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n";
            if (send(fd, request.data(), request.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(request.size())) {
                char buffer[4096];
                while (wait_fd(fd, POLLIN, timeout_ms)) {
                    const ssize_t got = recv(fd, buffer, sizeof buffer, 0);
                    if (got == 0) complete = true;
                    if (got <= 0) break;
                    answer.append(buffer, static_cast<size_t>(got));
                }
            }
        }
    }
    close(fd);
    const size_t head_end = answer.find("\r\n\r\n");
    const bool http = answer.compare(0, 9, "HTTP/1.1 ") == 0 || answer.compare(0, 9, "HTTP/1.0 ") == 0;
    if (!complete || head_end == std::string::npos || !http) return false;
    if (answer.compare(9, 3, "200") != 0) return false;
    body = answer.substr(head_end + 4);
    return true;
}

std::string log_tail(const std::string &path, size_t lines) {
    const std::string text = read_from(path, 0);
    if (text.empty()) return "";
    size_t start = text.size();
    if (text.back() == '\n') --start;
    for (size_t count = 0; count < lines && start > 0; ++count) {
        const size_t newline = text.rfind('\n', start - 1);
        if (newline == std::string::npos) {
            start = 0;
            break;
        }
        start = newline;
    }
    const std::string tail = text.substr(start == 0 ? 0 : start + 1);
    return "--- last lines of " + path + ":\n" + tail + (tail.empty() || tail.back() == '\n' ? "" : "\n");
}

bool unix_socket_accepts(const std::string &path) {
    sockaddr_un address{};
    if (path.size() >= sizeof(address.sun_path)) return false;
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    const bool accepted = connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
    close(fd);
    return accepted;
}

bool says_address_in_use(const std::string &log_text) {
    static const std::regex in_use(R"(Address already in use|\(98\)|could not bind)");
    return std::regex_search(log_text, in_use);
}

LogMarks::LogMarks(std::vector<std::string> paths) : paths_(std::move(paths)) {
    for (const std::string &path : paths_) offsets_.push_back(file_size(path));
}

std::string LogMarks::since() const {
    std::string text;
    for (size_t i = 0; i < paths_.size(); ++i) {
        // A file that shrank was truncated: everything in it is new.
        const size_t offset = file_size(paths_[i]) < offsets_[i] ? 0 : offsets_[i];
        text += read_from(paths_[i], offset);
    }
    return text;
}

}  // namespace korvex::harness
