// Sends the platform log library's records to Apache's error log under this module's name,
// so that "LogLevel korvex:<level>" filters them like any module's records.
#pragma once

namespace korvex::apache_log {

// Adds the hooks that attach the sink: the first post-configuration hook of every
// configuration pass and the first child-initialisation hook. Until the first one has run
// (and after the configuration pool is cleared), records go to standard error.
void register_hooks();

// Whether repeated records are thinned (KorvexLogThinning, on by default): set while the
// configuration is read, back to on at the start of each pass.
void set_thinning(bool on);

}  // namespace korvex::apache_log
