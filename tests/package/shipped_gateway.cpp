#include "tests/package/shipped_gateway.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "tests/package/shipped_config.h"
#include "tests/support/process_runner.h"

namespace fs = std::filesystem;

namespace korvex::test::package {
namespace {

void write_file(const std::string &path, const std::string &text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out) throw std::runtime_error("cannot write " + path);
    chmod(path.c_str(), 0644);
}

std::vector<SimRecord> matching(const std::vector<SimRecord> &records, const std::string &type,
                                const std::string &member) {
    std::vector<SimRecord> found;
    for (const SimRecord &record : records)
        if ((type.empty() || record.type == type) && record.member == member) found.push_back(record);
    return found;
}

// Writes the moved copies the server includes into RUN_DIR/apache; the files it names.
ServerFiles write_server_files(const ExtractedPackages &packages, const ShippedGatewayPlan &plan,
                               const std::string &run_dir) {
    ServerFiles files;
    files.run_dir = run_dir;
    fs::create_directories(run_dir + "/apache");
    chmod((run_dir + "/apache").c_str(), 0755);
    const std::string modules = kApacheModules;
    files.load_file = run_dir + "/apache/korvex.load";
    write_file(files.load_file, moved_copy(read_file(packages.path(kShippedLoad)),
                                           "LoadModule korvex_module " + modules + "/mod_korvex.so", modules + "/",
                                           packages.path(modules) + "/"));
    files.module_conf = packages.path(kShippedConf);
    if (plan.with_auth) {
        const std::string htpasswd = run_dir + "/korvex.htpasswd";
        files.auth_conf = run_dir + "/apache/korvex-auth.conf";
        write_file(files.auth_conf, moved_copy(read_file(packages.path(kShippedAuth)),
                                               std::string("        AuthUserFile ") + kShippedHtpasswd,
                                               kShippedHtpasswd, htpasswd));
        const CommandResult made = run_command({"htpasswd", "-cbB", htpasswd, kAuthUser, kAuthPassword},
                                               run_dir + "/htpasswd.log");
        if (made.status != 0) throw std::runtime_error("htpasswd failed: " + made.output);
        chmod(htpasswd.c_str(), 0644);
    }
    return files;
}

}  // namespace

ShippedGateway::ShippedGateway(const ExtractedPackages &packages, const ShippedGatewayPlan &plan) {
    const std::string run_dir = packages.run_dir + "/" + plan.name;
    fs::remove_all(run_dir);
    fs::create_directories(run_dir);
    chmod(run_dir.c_str(), 0755);
    const ServerFiles files = write_server_files(packages, plan, run_dir);

    harness::GatewaySpec spec = harness::GatewaySpec::defaults(run_dir, KORVEX_SOURCE_DIR, KORVEX_BUILD_DIR);
    spec.mpm = "event";
    spec.isolation = harness::Isolation::namespaces;
    spec.owner_pid = getpid();
    // The server finds the packaged platform library where the package put it.
    spec.library_dir = packages.path(packages.platform_dir);
    spec.server_config = [files](int port) { return server_config(files, port); };
    spec.bus_config = bus_config(run_dir, plan.module_policy);
    spec.index_page = "<html><body><h1>korvex package test</h1><p>" + plan.name + "</p></body></html>\n";
    gateway_ = harness::Gateway::up(spec);
    sim_ = std::make_unique<SimClient>(gateway_->facts().bus_address);
}

ShippedGateway::~ShippedGateway() {
    sim_.reset();
    gateway_.reset();
}

HttpResponse ShippedGateway::get(const std::string &target, const std::string &credentials) const {
    HttpRequest request;
    request.target = target;
    request.timeout_ms = 30000;
    request.basic_auth = credentials;
    return send(port(), request);
}

std::vector<SimRecord> ShippedGateway::calls_of(const std::string &member) {
    return matching(sim_->records(), "", member);
}

std::vector<SimRecord> ShippedGateway::reflash_signals(int timeout_ms, std::string &answer) {
    answer = get("/network.cgi?reflash=all").body;
    // A broadcast has no reply to wait for.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    for (;;) {
        std::vector<SimRecord> signals = matching(sim_->records(), "signal", "rewriteEntire");
        if (!signals.empty() || std::chrono::steady_clock::now() >= deadline) return signals;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

}  // namespace korvex::test::package
