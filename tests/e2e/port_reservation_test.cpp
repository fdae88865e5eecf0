// Ports of private gateways (sim/harness/port_reservation.h): a port stays reserved for its
// gateway for as long as the server lives, a port reserved by another gateway is never
// chosen, and a server that finds its port taken by some other program starts on another.
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>

#include "tests/support/gateway_env.h"
#include "tests/support/http_client.h"

namespace korvex::test {
namespace {

// A socket bound to 127.0.0.1 on a port the kernel chose, listening or not.
class Socket {
public:
    explicit Socket(bool listening) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (fd_ < 0 || bind(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
            getsockname(fd_, reinterpret_cast<sockaddr *>(&address), &length) != 0 ||
            (listening && listen(fd_, 4) != 0)) {
            throw std::runtime_error("cannot bind a socket");
        }
        port_ = ntohs(address.sin_port);
    }
    ~Socket() { close(fd_); }
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;
    int port() const { return port_; }

private:
    int fd_;
    int port_ = 0;
};

// A port nothing listens on now.
int unused_port() { return Socket(false).port(); }

// The lock of a port's reservation, as a gateway holds it.
class PortLock {
public:
    explicit PortLock(int port) {
        const std::string path = GatewayEnv::port_lock_file(port);
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        fd_ = open(path.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0666);
        if (fd_ < 0) throw std::runtime_error("cannot open " + path);
    }
    ~PortLock() { close(fd_); }
    PortLock(const PortLock &) = delete;
    PortLock &operator=(const PortLock &) = delete;
    // Takes the lock unless somebody else holds it.
    bool try_take() { return flock(fd_, LOCK_EX | LOCK_NB) == 0; }

private:
    int fd_;
};

GatewayEnv::Options server_only(int first_port) {
    GatewayEnv::Options options;
    options.with_bus = false;
    options.first_port = first_port;
    return options;
}

// The server answers on its port with its own index page.
void expect_serving(const GatewayEnv &env) {
    const HttpResponse response = get(env.port(), "/");
    EXPECT_EQ(response.status, 200) << response.error;
    EXPECT_NE(response.body.find("korvex gateway"), std::string::npos) << response.body;
}

TEST(PortReservationTest, AServerThatFindsItsPortTakenStartsOnAnother) {
    // Something outside the harness listens on the port; the hook hands it to the server
    // unchecked, as when that program took it between the check and the server's bind.
    Socket taken(true);
    std::unique_ptr<GatewayEnv> env = GatewayEnv::start(server_only(taken.port()));
    EXPECT_NE(env->port(), taken.port());
    EXPECT_NE(env->harness_log().find("port " + std::to_string(taken.port()) + " is in use"), std::string::npos)
        << env->harness_log();
    EXPECT_EQ(env->env_value("PORT"), std::to_string(env->port()));
    expect_serving(*env);
}

TEST(PortReservationTest, APortReservedByAnotherGatewayIsNeverChosen) {
    const int port = unused_port();
    PortLock other_gateway(port);
    ASSERT_TRUE(other_gateway.try_take());
    std::unique_ptr<GatewayEnv> env = GatewayEnv::start(server_only(port));
    EXPECT_NE(env->port(), port);
    // Passed over before any server tried it.
    EXPECT_EQ(env->harness_log().find("is in use"), std::string::npos) << env->harness_log();
    expect_serving(*env);
}

TEST(PortReservationTest, TheReservationLastsAsLongAsTheServer) {
    std::unique_ptr<GatewayEnv> env = GatewayEnv::start(server_only(0));
    const int port = env->port();
    EXPECT_EQ(env->env_value("PORT_LOCK"), GatewayEnv::port_lock_file(port));
    // The start has returned: the running server holds the lock.
    PortLock lock(port);
    EXPECT_FALSE(lock.try_take());
    env.reset();
    EXPECT_TRUE(lock.try_take());
}

TEST(PortReservationTest, TwoGatewaysStartedAtOnceGetTwoPorts) {
    // Both try the same port first; one of them gets it, the other another one.
    const int port = unused_port();
    auto first = std::async(std::launch::async, [port] { return GatewayEnv::start(server_only(port)); });
    auto second = std::async(std::launch::async, [port] { return GatewayEnv::start(server_only(port)); });
    std::unique_ptr<GatewayEnv> one = first.get();
    std::unique_ptr<GatewayEnv> other = second.get();
    EXPECT_NE(one->port(), other->port());
    EXPECT_TRUE(one->port() == port || other->port() == port) << one->port() << " " << other->port();
    expect_serving(*one);
    expect_serving(*other);
}

}  // namespace
}  // namespace korvex::test
