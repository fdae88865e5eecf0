// korvex-gateway-sim: stands in for the gateway daemons on the system bus.
//
//   korvex-gateway-sim --nvram-file PATH --nvram-defaults PATH [--ready-file PATH]
//
// The bus is the one DBUS_SYSTEM_BUS_ADDRESS names. Once every name is owned the ready
// file is written and "READY" printed. SIGTERM or SIGINT ends it with status 0; losing
// the bus with status 1; bad arguments or a failed start with status 2.
#include <dbus/dbus.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>

#include "sim/gateway_simulator.h"
#include "sim/nvram_store.h"

namespace {

volatile std::sig_atomic_t g_stop_requested = 0;

void request_stop(int) { g_stop_requested = 1; }

struct Options {
    std::string nvram_file;
    std::string nvram_defaults;
    std::string ready_file;
};

bool parse_options(int argc, char **argv, Options *options) {
    for (int i = 1; i < argc; ++i) {
        std::string flag = argv[i];
        if (i + 1 >= argc)
            return false;
        std::string value = argv[++i];
        if (flag == "--nvram-file")
            options->nvram_file = value;
        else if (flag == "--nvram-defaults")
            options->nvram_defaults = value;
        else if (flag == "--ready-file")
            options->ready_file = value;
        else
            return false;
    }
    return !options->nvram_file.empty() && !options->nvram_defaults.empty();
}

bool write_ready_file(const std::string &path) {
    const std::string temporary = path + ".tmp";
    {
        std::ofstream out(temporary, std::ios::trunc);
        out << "READY " << ::getpid() << '\n';
        if (!out.flush())
            return false;
    }
    return std::rename(temporary.c_str(), path.c_str()) == 0;
}

void install_signal_handlers() {
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = request_stop;
    sigemptyset(&action.sa_mask);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

int fail_start(const std::string &reason) {
    std::fprintf(stderr, "korvex-gateway-sim: %s\n", reason.c_str());
    return 2;
}

}  // namespace

int main(int argc, char **argv) {
    Options options;
    if (!parse_options(argc, argv, &options)) {
        std::fprintf(stderr,
                     "usage: korvex-gateway-sim --nvram-file PATH --nvram-defaults PATH [--ready-file PATH]\n");
        return 2;
    }
    install_signal_handlers();

    korvex::sim::NvramStore nvram(options.nvram_file, options.nvram_defaults);
    try {
        nvram.load();
    } catch (const std::runtime_error &failure) {
        return fail_start(failure.what());
    }

    DBusError error;
    dbus_error_init(&error);
    DBusConnection *connection = dbus_bus_get_private(DBUS_BUS_SYSTEM, &error);
    if (connection == nullptr) {
        std::string reason = std::string("cannot connect to the system bus: ") + error.message;
        dbus_error_free(&error);
        return fail_start(reason);
    }
    dbus_connection_set_exit_on_disconnect(connection, FALSE);

    int status;
    {
        korvex::sim::GatewaySimulator simulator(connection, nvram);
        std::string reason;
        if (!simulator.start(&reason)) {
            status = fail_start(reason);
        } else if (!options.ready_file.empty() && !write_ready_file(options.ready_file)) {
            status = fail_start("cannot write " + options.ready_file);
        } else {
            std::printf("READY\n");
            std::fflush(stdout);
            status = simulator.run(g_stop_requested);
        }
    }
    dbus_connection_close(connection);
    dbus_connection_unref(connection);
    return status;
}
