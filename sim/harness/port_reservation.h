// Ports of private gateways. A port belongs to one gateway from the moment it is chosen
// until the gateway's last process is gone: an flock on PORT_LOCK_DIR/PORT.lock, taken
// before the port is looked at and inherited by the server, so that two gateways never
// choose the same port and a killed gateway frees its port with its last process.
#pragma once

#include <string>

namespace korvex::harness {

// $KORVEX_PORT_LOCK_DIR or /var/tmp/korvex-ports.
std::string port_lock_dir();
// PORT_LOCK_DIR/PORT.lock.
std::string port_lock_file(int port);

// One port's reservation: held while this object (or a process that inherited its
// descriptor, see descriptor()) lives.
class PortReservation {
public:
    PortReservation() = default;
    ~PortReservation() { release(); }
    PortReservation(PortReservation &&other) noexcept;
    PortReservation &operator=(PortReservation &&other) noexcept;
    PortReservation(const PortReservation &) = delete;
    PortReservation &operator=(const PortReservation &) = delete;

    // Takes the lock of port; false when another reservation holds it.
    bool try_reserve(int port);
    // Closes this process's descriptor; a process that inherited it keeps the port.
    void release();

    bool held() const { return fd_ >= 0; }
    int port() const { return port_; }
    // The locked descriptor (close-on-exec): hand it to a child process to make the
    // reservation last as long as that child.
    int descriptor() const { return fd_; }

private:
    int fd_ = -1;
    int port_ = 0;
};

// True when a socket can bind 127.0.0.1:port with SO_REUSEADDR, as Apache binds: nothing
// listens on the port, on that address or on all of them.
bool port_is_free(int port);

// The range of automatic ports: $KORVEX_PORT_RANGE ("LOW-HIGH") or 20000-32767, below
// Linux's ephemeral ports so that no client connection's local port takes a server's.
struct PortRange {
    int low = 20000;
    int high = 32767;
};
PortRange port_range();

// Reserves a free port of the range: first `first` if not 0 (reserved but not checked for
// listeners), then random ports that no gateway holds and that bind. False when 500
// candidates failed.
bool reserve_free_port(PortReservation &reservation, int first = 0);

}  // namespace korvex::harness
