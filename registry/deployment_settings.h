// Settings of one gateway's deployment that the commands need and that are not nvram: given
// by the server's configuration (directives, see module/deployment_directives.cpp), with the
// server's environment as the fallback that development runs use. Server-wide: set while the
// configuration is read, before any child starts, and read by every request.
#pragma once

namespace korvex::deployment {

inline constexpr char kOrbwebHostVariable[] = "KORVEX_ORBWEB_HOST";

// Forgets what the previous configuration pass set (a restart may drop the directive).
void reset();

// `host` must live as long as the configuration (the configuration pool).
void set_orbweb_host(const char *host);

// The Orbweb rendezvous host: the KorvexOrbwebHost directive, else KORVEX_ORBWEB_HOST of
// the server's environment, else null (nobody configured one).
const char *orbweb_host();

}  // namespace korvex::deployment
