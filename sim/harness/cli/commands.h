// The subcommands of korvex-gateway that do more than call the library once.
#pragma once

#include <string>
#include <vector>

namespace korvex::harness::cli {

// "run [options]": one gateway in the foreground, in RUN_ROOT/make-run, until SIGINT or
// SIGTERM or until the server dies; prints where it serves and a curl line to try.
int run_command(const std::vector<std::string> &options);
// "status RUN_DIR": the facts of RUN_DIR/env and which recorded processes run.
int status_command(const std::string &run_dir);
// "logs RUN_DIR": the last lines of every log of RUN_DIR.
int logs_command(const std::string &run_dir);

}  // namespace korvex::harness::cli
