// When a child ends, its pool's clean-up closes its bus connection, once: the connection's
// unique name leaves the bus and nothing is closed twice.
#include <gtest/gtest.h>

#include <dbus/dbus.h>

#include <chrono>
#include <string>
#include <thread>

#include "dbus/dbus_ptr.h"
#include "dbus/peer_catalog.h"
#include "dbus/primitives.h"
#include "tests/bus/fake_server.h"
#include "tests/support/bus_env.h"

namespace {

using korvex::test::BusEnv;
using korvex::test::FakeServer;

// Asks the bus whether `name` has an owner, on a connection of the test's own.
bool name_on_bus(const std::string &address, const std::string &name) {
    korvex::dbus::Error error;
    DBusConnection *conn = dbus_connection_open_private(address.c_str(), error.get());
    if (conn == nullptr || !dbus_bus_register(conn, error.get())) throw std::runtime_error("cannot reach the bus");
    const dbus_bool_t owned = dbus_bus_name_has_owner(conn, name.c_str(), error.get());
    dbus_connection_close(conn);
    dbus_connection_unref(conn);
    return owned != 0;
}

TEST(ChildShutdown, ClosesTheConnectionOnce) {
    apr_initialize();
    BusEnv bus;
    std::string unique_name;
    {
        FakeServer server;
        request_rec *r = server.new_request();
        ASSERT_EQ(apache_dbus_send_str_ret_int(r, "true", &korvex::peer::kDoSystem3s), 0);
        DbusData *data = korvex::dbus::lookup(r, "test");
        ASSERT_NE(data, nullptr);
        unique_name = dbus_bus_get_unique_name(data->conn);
        EXPECT_TRUE(name_on_bus(bus.address(), unique_name));
        server.end_child();
    }
    // The bus drops the name once it has seen the socket close.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (name_on_bus(bus.address(), unique_name) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_FALSE(name_on_bus(bus.address(), unique_name));
    apr_terminate();
}

}  // namespace
