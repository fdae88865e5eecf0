#include "sim/harness/port_reservation.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <random>
#include <utility>

namespace korvex::harness {

std::string port_lock_dir() {
    const char *dir = std::getenv("KORVEX_PORT_LOCK_DIR");
    return dir && *dir ? dir : "/var/tmp/korvex-ports";
}

std::string port_lock_file(int port) { return port_lock_dir() + "/" + std::to_string(port) + ".lock"; }

PortReservation::PortReservation(PortReservation &&other) noexcept
    : fd_(std::exchange(other.fd_, -1)), port_(std::exchange(other.port_, 0)) {}

PortReservation &PortReservation::operator=(PortReservation &&other) noexcept {
    if (this != &other) {
        release();
        fd_ = std::exchange(other.fd_, -1);
        port_ = std::exchange(other.port_, 0);
    }
    return *this;
}

bool PortReservation::try_reserve(int port) {
    release();
    const std::string dir = port_lock_dir();
    if (mkdir(dir.c_str(), 01777) == 0) chmod(dir.c_str(), 01777);  // shared by every account
    const std::string file = port_lock_file(port);
    int fd = open(file.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);  // another account's file
    if (fd < 0) return false;
    fchmod(fd, 0666);
    // Each open() is a lock of its own, so two reservations in one process exclude each other.
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        close(fd);
        return false;
    }
    fd_ = fd;
    port_ = port;
    return true;
}

void PortReservation::release() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
    port_ = 0;
}

bool port_is_free(int port) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    int one = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    const bool bound = bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    close(fd);
    return bound;
}

PortRange port_range() {
    PortRange range;
    const char *text = std::getenv("KORVEX_PORT_RANGE");
    if (!text || !*text) return range;
    char *end = nullptr;
    const long low = std::strtol(text, &end, 10);
    if (*end != '-') return range;
    const long high = std::strtol(end + 1, nullptr, 10);
    if (low > 0 && high >= low && high < 65536) {
        range.low = static_cast<int>(low);
        range.high = static_cast<int>(high);
    }
    return range;
}

bool reserve_free_port(PortReservation &reservation, int first) {
    if (first != 0 && reservation.try_reserve(first)) return true;
    const PortRange range = port_range();
    std::random_device seed;
    std::mt19937 random(seed());
    std::uniform_int_distribution<int> pick(range.low, range.high);
    for (int tries = 0; tries < 500; ++tries) {
        const int candidate = pick(random);
        if (!reservation.try_reserve(candidate)) continue;
        if (port_is_free(candidate)) return true;
        reservation.release();
    }
    return false;
}

}  // namespace korvex::harness
