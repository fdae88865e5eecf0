#include "dbus/silence_state.h"

#include <algorithm>

namespace korvex::dbus::silence {

namespace {

// Zero means "none" in the record's fields; a time that happens to be zero becomes one.
std::uint32_t nonzero(std::uint32_t t) { return t == 0 ? 1 : t; }

void release_probe(Record &record, const Ticket &ticket) {
    if (ticket.admission != Admission::kProbe) return;
    // Only our own claim: one given up as lost may have been taken over meanwhile.
    std::uint32_t mine = ticket.probe_token;
    record.probe_until.compare_exchange_strong(mine, 0, std::memory_order_acq_rel);
}

Settled nothing() { return {Transition::kNone, 0, 0}; }

}  // namespace

Ticket admit(Record &record, std::uint32_t now, int timeout_ms, Effect effect) {
    const bool tells = timeout_tells(effect, timeout_ms);
    const std::uint32_t end = record.window_end.load(std::memory_order_acquire);
    if (end == 0) return {Admission::kSend, now, 0, tells};
    if (effect == Effect::kWrite) return {Admission::kSendNoWait, now, 0, tells};
    if (before(now, end)) return {Admission::kFailFast, now, 0, tells};

    std::uint32_t probe = record.probe_until.load(std::memory_order_acquire);
    if (probe != 0 && before(now, probe)) return {Admission::kFailFast, now, 0, tells};
    const std::uint32_t token = nonzero(now + timeout_or_default(timeout_ms) + kProbeGraceMs);
    if (!record.probe_until.compare_exchange_strong(probe, token, std::memory_order_acq_rel)) {
        return {Admission::kFailFast, now, 0, tells};  // another caller became the probe first
    }
    return {Admission::kProbe, now, token, tells};
}

Settled settle(Record &record, const Ticket &ticket, Outcome outcome, std::uint32_t now) {
    if (ticket.admission == Admission::kFailFast || ticket.admission == Admission::kSendNoWait) return nothing();
    // A time-out that says nothing about the daemon is taken as a call that never went.
    if (outcome == Outcome::kTimedOut && !ticket.timeout_tells) outcome = Outcome::kNotSent;

    if (outcome == Outcome::kNotSent) {
        release_probe(record, ticket);
        return nothing();
    }

    if (outcome == Outcome::kAnswered) {
        release_probe(record, ticket);
        if (record.window_end.exchange(0, std::memory_order_acq_rel) == 0) return nothing();
        record.answered_at.store(nonzero(now), std::memory_order_release);
        return {Transition::kRecovered, now - record.silent_since.load(std::memory_order_acquire), 0};
    }

    // Timed out.
    if (ticket.admission == Admission::kProbe) {
        Settled settled = nothing();
        if (record.window_end.load(std::memory_order_acquire) != 0) {
            const std::uint32_t grown =
                std::min(kMaxWindowMs, 2 * std::max(kFirstWindowMs, record.window_ms.load(std::memory_order_acquire)));
            record.window_ms.store(grown, std::memory_order_release);
            record.window_end.store(nonzero(now + grown), std::memory_order_release);
            settled = {Transition::kGrown, now - record.silent_since.load(std::memory_order_acquire), grown};
        }
        // Otherwise an answer to another call ended the silence meanwhile: nothing to grow.
        release_probe(record, ticket);
        return settled;
    }

    // An ordinary call. Already silent: it was under way before that was noticed. Sent
    // before the last silence ended: the answer that ended it came later, so it says nothing.
    const std::uint32_t answered_at = record.answered_at.load(std::memory_order_acquire);
    if (answered_at != 0 && before(ticket.sent_at, answered_at)) return nothing();
    std::uint32_t answering = 0;
    if (!record.window_end.compare_exchange_strong(answering, nonzero(now + kFirstWindowMs),
                                                   std::memory_order_acq_rel)) {
        return nothing();
    }
    record.window_ms.store(kFirstWindowMs, std::memory_order_release);
    record.silent_since.store(ticket.sent_at, std::memory_order_release);
    record.owner.store(0, std::memory_order_release);  // the caller notes the owner of now
    return {Transition::kDeclared, now - ticket.sent_at, kFirstWindowMs};
}

void forget(Record &record) {
    record.window_end.store(0, std::memory_order_release);
    record.window_ms.store(0, std::memory_order_release);
    record.probe_until.store(0, std::memory_order_release);
    record.answered_at.store(0, std::memory_order_release);
    record.silent_since.store(0, std::memory_order_release);
    record.owner.store(0, std::memory_order_release);
}

void note_owner(Record &record, std::uint32_t owner) { record.owner.store(owner, std::memory_order_release); }

Settled settle_owner(Record &record, std::uint32_t owner, std::uint32_t now) {
    const std::uint32_t noted = record.owner.load(std::memory_order_acquire);
    if (owner == 0 || noted == 0 || owner == noted) return nothing();
    std::uint32_t end = record.window_end.load(std::memory_order_acquire);
    if (end == 0 || !record.window_end.compare_exchange_strong(end, 0, std::memory_order_acq_rel)) return nothing();
    record.probe_until.store(0, std::memory_order_release);
    record.answered_at.store(nonzero(now), std::memory_order_release);
    return {Transition::kRecovered, now - record.silent_since.load(std::memory_order_acquire), 0};
}

std::uint32_t owner_digest(const char *unique_name) {
    if (unique_name == nullptr) return 0;
    std::uint32_t hash = 2166136261u;  // FNV-1a
    for (const char *c = unique_name; *c != '\0'; ++c) {
        hash = (hash ^ static_cast<unsigned char>(*c)) * 16777619u;
    }
    return nonzero(hash);
}

}  // namespace korvex::dbus::silence
