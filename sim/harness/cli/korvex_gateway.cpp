// korvex-gateway: starts, inspects and stops private gateways (docs/running.md).
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "sim/harness/cli/commands.h"
#include "sim/harness/cli/up_options.h"
#include "sim/harness/gateway.h"
#include "sim/harness/owner_watch.h"

using namespace korvex::harness;

namespace {

const char kUsage[] = R"(usage: korvex-gateway COMMAND [RUN_DIR] [ARGS]
  up RUN_DIR [--port N|auto] [--first-port N] [--mpm prefork|worker|event] [--no-bus]
             [--log-level LEVEL] [--owner-pid PID] [--build-dir DIR] [--module FILE]
             [--tmp-dir NAME]... [--sanitize]
                        start bus, simulator and server; return once the server answers
                        (exit status 3: the requested port was taken)
  run [up options]      "make run": a gateway in RUN_ROOT/make-run on $PORT (default 8080,
                        "auto" for a free one) until Ctrl-C or until the server dies
  down RUN_DIR          stop everything started for RUN_DIR
  status RUN_DIR        the facts of the gateway and which of its processes run
  logs RUN_DIR          the last lines of its logs
  bus-stop RUN_DIR      stop simulator and bus (the server keeps running)
  bus-start RUN_DIR     start bus and simulator again on the same socket
  sim-stop RUN_DIR      stop the simulator alone (the bus and the server keep running)
  sim-start RUN_DIR     start the simulator again on the running bus
  sim-restart RUN_DIR   both, for healing a fault injected into the simulator
  spawn RUN_DIR NAME    start a sleeping process whose argv[0] is NAME; prints its id
  unspawn RUN_DIR ID    stop a process started by spawn
  hostname RUN_DIR      print the host name the server sees
  watch RUN_DIR         (internal) stop the gateway once its owner is gone
)";

int up(const std::string &run_dir, const std::vector<std::string> &options) {
    try {
        std::unique_ptr<Gateway> gateway = Gateway::up(cli::spec_from_options(run_dir, options, 8080));
        std::cerr << gateway->notes();
        gateway->release();
        return 0;
    } catch (const StartError &e) {
        std::cerr << "korvex-gateway: " << e.what() << "\n";
        return e.kind() == StartError::Kind::port_taken ? 3 : 1;
    }
}

int on_gateway(const std::string &command, const std::string &run_dir, const std::vector<std::string> &args) {
    std::unique_ptr<Gateway> gateway = Gateway::attach(run_dir);
    if (command == "down") gateway->down();
    else if (command == "bus-stop") gateway->bus_stop();
    else if (command == "bus-start") gateway->bus_start();
    else if (command == "sim-stop") gateway->sim_stop();
    else if (command == "sim-start") gateway->sim_start();
    else if (command == "sim-restart") {
        gateway->sim_stop();
        gateway->sim_start();
    } else if (command == "spawn" && args.size() == 1) std::cout << gateway->spawn(args[0]) << "\n";
    else if (command == "unspawn" && args.size() == 1) gateway->unspawn(static_cast<pid_t>(std::stol(args[0])));
    else if (command == "hostname") std::cout << gateway->server_hostname() << "\n";
    else throw cli::UsageError("unknown command " + command);
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty()) {
        std::cerr << kUsage;
        return 2;
    }
    const std::string command = args[0];
    try {
        if (command == "run") return cli::run_command({args.begin() + 1, args.end()});
        if (args.size() < 2) throw cli::UsageError(command + " needs a run directory");
        const std::string run_dir = cli::absolute_run_dir(args[1]);
        const std::vector<std::string> rest(args.begin() + 2, args.end());
        if (command == "up") return up(run_dir, rest);
        if (command == "status") return cli::status_command(run_dir);
        if (command == "logs") return cli::logs_command(run_dir);
        if (command == "watch") return watch_owner(run_dir) >= 0 ? 0 : 1;
        if (command == "down" && !std::filesystem::exists(run_dir + "/env")) return 0;
        return on_gateway(command, run_dir, rest);
    } catch (const cli::UsageError &e) {
        std::cerr << "korvex-gateway: " << e.what() << "\n" << kUsage;
        return 2;
    } catch (const std::exception &e) {
        std::cerr << "korvex-gateway: " << e.what() << "\n";
        return 1;
    }
}
