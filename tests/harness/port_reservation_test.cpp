// Port reservations of the gateway harness: one holder per port, freed with its holder.
#include "sim/harness/port_reservation.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

namespace korvex::harness {
namespace {

// Every test gets a lock directory of its own, so that no real gateway is disturbed.
class PortReservationTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/var/tmp/korvex-port-locks-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
        setenv("KORVEX_PORT_LOCK_DIR", dir_.c_str(), 1);
    }
    void TearDown() override {
        unsetenv("KORVEX_PORT_LOCK_DIR");
        std::filesystem::remove_all(dir_);
    }
    std::string dir_;
};

TEST_F(PortReservationTest, LockFileIsNamedAfterThePortInTheLockDirectory) {
    EXPECT_EQ(port_lock_dir(), dir_);
    EXPECT_EQ(port_lock_file(23456), dir_ + "/23456.lock");
}

TEST_F(PortReservationTest, TwoReservationsOfOnePortExcludeEachOther) {
    PortReservation first, second;
    ASSERT_TRUE(first.try_reserve(24001));
    EXPECT_TRUE(first.held());
    EXPECT_EQ(first.port(), 24001);
    EXPECT_FALSE(second.try_reserve(24001));
    EXPECT_FALSE(second.held());
    EXPECT_TRUE(second.try_reserve(24002));
    first.release();
    EXPECT_TRUE(second.try_reserve(24001));
}

TEST_F(PortReservationTest, AMovedReservationStaysHeld) {
    PortReservation first;
    ASSERT_TRUE(first.try_reserve(24003));
    PortReservation moved = std::move(first);
    EXPECT_FALSE(first.held());
    PortReservation other;
    EXPECT_FALSE(other.try_reserve(24003));
}

TEST_F(PortReservationTest, ADeadHolderFreesItsPort) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t holder = fork();
    ASSERT_GE(holder, 0);
    if (holder == 0) {
        PortReservation held;
        const char ok = held.try_reserve(24004) ? 'y' : 'n';
        if (write(ready[1], &ok, 1) != 1) _exit(1);
        pause();
        _exit(0);
    }
    char ok = 0;
    ASSERT_EQ(read(ready[0], &ok, 1), 1);
    ASSERT_EQ(ok, 'y');
    PortReservation mine;
    EXPECT_FALSE(mine.try_reserve(24004));
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    EXPECT_TRUE(mine.try_reserve(24004));
    close(ready[0]);
    close(ready[1]);
}

TEST_F(PortReservationTest, AListeningPortIsNotFreeAndIsPassedOver) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(fd, 1), 0);
    ASSERT_EQ(getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length), 0);
    const int taken = ntohs(address.sin_port);
    EXPECT_FALSE(port_is_free(taken));
    // A range of exactly that port: nothing to choose.
    const std::string range = std::to_string(taken) + "-" + std::to_string(taken);
    setenv("KORVEX_PORT_RANGE", range.c_str(), 1);
    PortReservation reservation;
    EXPECT_FALSE(reserve_free_port(reservation));
    EXPECT_FALSE(reservation.held());
    // The first port is taken without the check, as the test hook wants.
    EXPECT_TRUE(reserve_free_port(reservation, taken));
    EXPECT_EQ(reservation.port(), taken);
    unsetenv("KORVEX_PORT_RANGE");
    close(fd);
    EXPECT_TRUE(port_is_free(taken));
}

TEST_F(PortReservationTest, AutomaticPortsComeFromTheRange) {
    setenv("KORVEX_PORT_RANGE", "24100-24110", 1);
    EXPECT_EQ(port_range().low, 24100);
    EXPECT_EQ(port_range().high, 24110);
    PortReservation one, two;
    ASSERT_TRUE(reserve_free_port(one));
    ASSERT_TRUE(reserve_free_port(two));
    EXPECT_NE(one.port(), two.port());
    EXPECT_GE(one.port(), 24100);
    EXPECT_LE(two.port(), 24110);
    setenv("KORVEX_PORT_RANGE", "nonsense", 1);
    EXPECT_EQ(port_range().low, 20000);
    EXPECT_EQ(port_range().high, 32767);
    unsetenv("KORVEX_PORT_RANGE");
}

}  // namespace
}  // namespace korvex::harness
