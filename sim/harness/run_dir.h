// The files of a run directory: what the server, the bus and the simulator read, the
// recording stand-ins, and RUN_DIR/env, the facts of the running gateway.
#pragma once

#include <map>
#include <string>

#include "sim/harness/gateway.h"

namespace korvex::harness {

// The account the isolated server runs as.
inline constexpr const char *kServerAccount = "www-data";

// True when the server can get its own namespaces and account (see Isolation).
bool isolation_available();
bool use_isolation(Isolation wanted);

// text with every @KEY@ of values replaced.
std::string fill_template(std::string text, const std::map<std::string, std::string> &values);
std::string read_text(const std::string &path);
void write_text(const std::string &path, const std::string &text, unsigned mode = 0644);

// Makes RUN_DIR's folders and the files the parts read (configurations, copies of the
// module and platform library, index page, stand-ins, console); throws on a missing input.
void prepare_run_dir(const GatewaySpec &spec, bool isolated);
std::string default_index_page(const std::string &run_dir);
// The server's configuration from conf/httpd.conf.in for port.
std::string default_server_config(const GatewaySpec &spec, int port);

// RUN_DIR/env: KEY=VALUE lines, replaced atomically.
void write_env_file(const std::string &run_dir, const std::map<std::string, std::string> &values);
std::map<std::string, std::string> read_env_file(const std::string &run_dir);

}  // namespace korvex::harness
