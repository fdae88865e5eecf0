// What the server knows about one destination that may have stopped answering, and the
// rules that turn call outcomes into that knowledge.
//
// A destination whose call ran out its whole time-out without a reply is "silent": for a
// back-off window every call to it fails at once, as a call without reply fails. When the
// window is over, one call at a time (the probe) is sent with its full time-out; the next
// window doubles while the probe too goes unanswered (up to kMaxWindowMs). Any answer from
// the destination, to a probe or to a call already under way, ends the silence for all.
//
// The record lives in memory shared by every process and thread of the server, so it holds
// only lock-free 32-bit atomics: no lock that a crashed child could leave taken. Times are
// milliseconds of the system-wide monotonic clock, kept modulo 2^32 and compared by their
// signed difference (windows are far shorter than the 24 days that allows).
#pragma once

#include <atomic>
#include <cstdint>

#include "dbus/peer_catalog.h"

namespace korvex::dbus::silence {

inline constexpr std::uint32_t kFirstWindowMs = 1000;
inline constexpr std::uint32_t kMaxWindowMs = 30000;
// A probe whose caller vanished (a child killed mid-call) is given up this long after its
// own time-out, so that another caller may probe.
inline constexpr std::uint32_t kProbeGraceMs = 1000;
// The time-out libdbus applies when a caller asks for its default.
inline constexpr std::uint32_t kDefaultTimeoutMs = 25000;
// A read that asks for less than this (the Wi-Fi refresh's 500 ms) is a quick look of its
// own: its running out says nothing about the whole daemon.
inline constexpr std::uint32_t kShortestTellingTimeoutMs = 1000;

// A call's time-out in ms (negative: libdbus's default).
constexpr std::uint32_t timeout_or_default(int timeout_ms) {
    return timeout_ms < 0 ? kDefaultTimeoutMs : static_cast<std::uint32_t>(timeout_ms);
}

using peer::Effect;

// Whether a call that ran out its whole time-out makes its destination silent. Only an
// ordinary read does: a write that outlasts its time-out (a foreground script, a flash
// copy) is the daemon doing what it was asked, and a quick look is allowed to miss.
constexpr bool timeout_tells(Effect effect, int timeout_ms) {
    return effect == Effect::kRead && timeout_or_default(timeout_ms) >= kShortestTellingTimeoutMs;
}

static_assert(std::atomic<std::uint32_t>::is_always_lock_free,
              "the shared record needs lock-free 32-bit atomics");

struct Record {
    std::atomic<std::uint32_t> window_end;    // 0: answering; else when the next probe may go
    std::atomic<std::uint32_t> window_ms;     // length of the current window
    std::atomic<std::uint32_t> silent_since;  // when the first unanswered call was sent
    std::atomic<std::uint32_t> probe_until;   // 0: no probe under way; else when it is given up
    std::atomic<std::uint32_t> answered_at;   // 0, or when the last silence ended
    std::atomic<std::uint32_t> owner;         // 0, or who owned the name when it went silent
                                              // (a hash of the owner's unique bus name)
};

enum class Admission {
    kSend,        // the destination answers: send as usual
    kProbe,       // silent, window over: send this one call with its full time-out
    kFailFast,    // silent: fail at once, as a call without reply (reads only)
    kSendNoWait,  // silent: a write goes out all the same, without waiting for its reply
};

struct Ticket {
    Admission admission;
    std::uint32_t sent_at;
    std::uint32_t probe_token;  // the probe's claim on probe_until (probes only)
    bool timeout_tells;         // see timeout_tells()
};

enum class Outcome {
    kAnswered,  // a reply or an error reply: the destination is not hung
    kTimedOut,  // the whole time-out went by without a reply
    kNotSent,   // the call never reached the bus (lost connection): says nothing
};

enum class Transition { kNone, kDeclared, kGrown, kRecovered };

struct Settled {
    Transition transition;
    std::uint32_t silent_ms;  // how long the destination had been silent
    std::uint32_t window_ms;  // the new window (declared or grown)
};

// True when time a comes before time b.
inline bool before(std::uint32_t a, std::uint32_t b) { return static_cast<std::int32_t>(a - b) < 0; }

// Decides how a call at `now` with the given time-out (ms, negative: libdbus's default) goes.
Ticket admit(Record &record, std::uint32_t now, int timeout_ms, Effect effect = Effect::kRead);

// True while calls to the destination do not wait for it (its window, or a probe under way).
inline bool is_silent(const Ticket &ticket) {
    return ticket.admission == Admission::kFailFast || ticket.admission == Admission::kSendNoWait;
}

// Records how an admitted (sent or probing) call ended; returns the transition it caused,
// which exactly one caller sees.
Settled settle(Record &record, const Ticket &ticket, Outcome outcome, std::uint32_t now);

// Back to "answering", with no probe under way.
void forget(Record &record);

// Remembers who owned the name when the silence was declared (0: not known).
void note_owner(Record &record, std::uint32_t owner);

// Ends the silence when the name has another owner than the one noted (the daemon was
// restarted: the new process answers from its first moment). kRecovered, seen by exactly
// one caller, when it ended it; kNone when the owner is the same, not known, or absent (0).
Settled settle_owner(Record &record, std::uint32_t owner, std::uint32_t now);

// A non-zero 32-bit digest of a unique bus name such as ":1.42".
std::uint32_t owner_digest(const char *unique_name);

}  // namespace korvex::dbus::silence
