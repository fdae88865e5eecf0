// The server-wide table of destinations that stopped answering (see silence_state.h for
// the rules). One record per gateway bus name, in memory that the parent maps before it
// forks the children, so every child and thread of this server generation shares it.
#pragma once

#include "base/apache_shim.h"
#include "dbus/silence_state.h"

namespace korvex::dbus::silent_peers {

// Maps a fresh table, unmapped again with `pool` (the configuration pool: a restart gets a
// new, empty table while children of the old generation keep theirs). Without a table
// (tools and tests that run no server) every call is simply sent. False when mapping failed.
bool create(apr_pool_t *pool);

// Every destination back to "answering" (test hook).
void forget_all();

// One call's place in the table: record -1 for a destination the table does not track.
struct Call {
    int record;
    silence::Ticket ticket;
};

// Asks whether a call to `dest` may go now, and whether it waits for its reply.
Call admit(const char *dest, int timeout_ms, peer::Effect effect);
inline bool is_silent(const Call &call) { return silence::is_silent(call.ticket); }

// Records how a sent call ended; a silence declared, grown or ended is logged here.
// Returns the transition (kDeclared: the caller notes the name's owner of now).
silence::Transition settle(const Call &call, silence::Outcome outcome);

// Notes who owns the name of a destination that was just declared silent (0: unknown).
void note_owner(const Call &call, std::uint32_t owner);
// For a silent destination whose name has `owner` now: ends the silence (logged) when that
// is another process than the one that went silent. True when the silence is over.
bool settle_owner(const Call &call, std::uint32_t owner);


// The system-wide monotonic clock in milliseconds, modulo 2^32.
std::uint32_t now_ms();

}  // namespace korvex::dbus::silent_peers
