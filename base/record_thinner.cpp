#include "base/record_thinner.h"

#include <algorithm>
#include <cstring>

namespace korvex {

void RecordThinner::report(Slot &slot, Output &out) {
    if (slot.held == 0) return;
    out.left_out(slot.level, slot.held, slot.sample);
    slot.held = 0;
}

// The slot of `key`; a new key takes a free slot or the one written longest ago, whose
// count is reported first.
RecordThinner::Slot &RecordThinner::slot_for(std::uint64_t key, Output &out) {
    Slot *oldest = &slots_[0];
    for (Slot &slot : slots_) {
        if (slot.used && slot.key == key) return slot;
        if (!slot.used) {
            oldest = &slot;
            break;
        }
        if (slot.last < oldest->last) oldest = &slot;
    }
    if (oldest->used) report(*oldest, out);
    *oldest = Slot{};
    oldest->key = key;
    return *oldest;
}

// Counts whose interval is over are written even when their record does not come again.
void RecordThinner::sweep(const Slot &except, Clock::time_point now, Output &out) {
    for (Slot &slot : slots_) {
        if (&slot != &except && slot.used && slot.held > 0 && now - slot.last >= slot.interval) report(slot, out);
    }
}

void RecordThinner::submit(std::uint64_t key, int level, const char *text, std::size_t length,
                           Clock::time_point now, Output &out) {
    std::lock_guard<std::mutex> hold(lock_);
    Slot &slot = slot_for(key, out);
    if (slot.used && now - slot.last < slot.interval) {
        ++slot.held;
        slot.came_back = true;
    } else {
        if (!slot.used) {
            slot.interval = kFirstInterval;
        } else if (slot.came_back) {
            // It kept coming back through the interval: wait longer next time.
            report(slot, out);
            slot.interval = std::min<Clock::duration>(slot.interval * 2, kLongestInterval);
        } else {
            slot.interval = kFirstInterval;
        }
        slot.came_back = false;
        slot.used = true;
        slot.level = level;
        slot.last = now;
        const std::size_t sample = std::min(length, kSampleBytes - 1);
        std::memcpy(slot.sample, text, sample);
        slot.sample[sample] = '\0';
        out.record(level, text, length);
    }
    sweep(slot, now, out);
}

}  // namespace korvex
