// Keeps a fault that repeats with every request from filling the log: a record is written
// at most once per interval for its key (where it was written and which daemon it is about),
// and what was held back meanwhile is counted and reported in one line. A record that keeps
// coming back waits twice as long each time, up to a minute, so a lasting fault costs a
// few lines a minute; after a quiet interval it starts again at one second.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace korvex {

class RecordThinner {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::seconds kFirstInterval{1};
    static constexpr std::chrono::seconds kLongestInterval{60};
    static constexpr std::size_t kKeys = 16;
    static constexpr std::size_t kSampleBytes = 160;

    // Receives what is to be written: the record itself, or a count of records held back
    // with the start of the last one written under their key.
    struct Output {
        virtual ~Output() = default;
        virtual void record(int level, const char *text, std::size_t length) = 0;
        virtual void left_out(int level, unsigned count, const char *sample) = 0;
    };

    void submit(std::uint64_t key, int level, const char *text, std::size_t length, Clock::time_point now,
                Output &out);

private:
    struct Slot {
        bool used = false;
        std::uint64_t key = 0;
        int level = 0;
        Clock::time_point last{};   // when a line of this key was last written
        Clock::duration interval{};
        unsigned held = 0;          // not written yet, nor counted in a line
        bool came_back = false;     // held back since this key's record was last written
        char sample[kSampleBytes] = {};
    };

    Slot &slot_for(std::uint64_t key, Output &out);
    void sweep(const Slot &except, Clock::time_point now, Output &out);
    static void report(Slot &slot, Output &out);

    std::mutex lock_;
    Slot slots_[kKeys];
};

}  // namespace korvex
