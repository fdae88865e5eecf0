// The back-off rules for a destination that stopped answering, on a clock the test moves.
#include "dbus/silence_state.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace korvex::dbus::silence {
namespace {

constexpr int kTimeout = 5000;

class SilenceStateTest : public ::testing::Test {
protected:
    Record record{};
    std::uint32_t now = 100000;

    Ticket admit_now(int timeout = kTimeout) { return admit(record, now, timeout); }

    // A call that goes out now and ends `after` ms later the given way.
    Settled call(Outcome outcome, std::uint32_t after = kTimeout) {
        const Ticket ticket = admit_now();
        EXPECT_NE(ticket.admission, Admission::kFailFast);
        now += after;
        return settle(record, ticket, outcome, now);
    }
};

TEST_F(SilenceStateTest, AnsweringDestinationIsSentTo) {
    EXPECT_EQ(admit_now().admission, Admission::kSend);
    EXPECT_EQ(call(Outcome::kAnswered, 10).transition, Transition::kNone);
    EXPECT_EQ(admit_now().admission, Admission::kSend);
}

TEST_F(SilenceStateTest, ErrorRepliesAndLostConnectionsNeverMakeItSilent) {
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(call(Outcome::kAnswered, 1).transition, Transition::kNone);
        EXPECT_EQ(call(Outcome::kNotSent, 1).transition, Transition::kNone);
    }
    EXPECT_EQ(admit_now().admission, Admission::kSend);
}

TEST_F(SilenceStateTest, FirstTimeOutDeclaresSilenceForTheFirstWindow) {
    const Settled settled = call(Outcome::kTimedOut);
    EXPECT_EQ(settled.transition, Transition::kDeclared);
    EXPECT_EQ(settled.silent_ms, 5000u);
    EXPECT_EQ(settled.window_ms, kFirstWindowMs);
    EXPECT_EQ(admit_now().admission, Admission::kFailFast);
    now += kFirstWindowMs - 1;
    EXPECT_EQ(admit_now().admission, Admission::kFailFast);
}

TEST_F(SilenceStateTest, OnlyOneProbeAtATimeOnceTheWindowIsOver) {
    call(Outcome::kTimedOut);
    now += kFirstWindowMs;
    const Ticket probe = admit_now();
    EXPECT_EQ(probe.admission, Admission::kProbe);
    EXPECT_EQ(admit_now().admission, Admission::kFailFast);
    now += 4000;
    EXPECT_EQ(admit_now().admission, Admission::kFailFast);
    now += 100;
    const Settled settled = settle(record, probe, Outcome::kAnswered, now);
    EXPECT_EQ(settled.transition, Transition::kRecovered);
    EXPECT_EQ(settled.silent_ms, 5000u + kFirstWindowMs + 4100u);
    EXPECT_EQ(admit_now().admission, Admission::kSend);
}

TEST_F(SilenceStateTest, WindowDoublesWhileProbesGoUnansweredUpToTheCap) {
    call(Outcome::kTimedOut);
    const std::uint32_t expected[] = {2000, 4000, 8000, 16000, 30000, 30000};
    for (std::uint32_t window : expected) {
        now += record.window_ms.load();
        const Ticket probe = admit_now();
        ASSERT_EQ(probe.admission, Admission::kProbe);
        now += kTimeout;
        const Settled settled = settle(record, probe, Outcome::kTimedOut, now);
        EXPECT_EQ(settled.transition, Transition::kGrown);
        EXPECT_EQ(settled.window_ms, window);
        now += window - 1;
        EXPECT_EQ(admit_now().admission, Admission::kFailFast);
        now -= window - 1;
    }
}

TEST_F(SilenceStateTest, AnswerToACallAlreadyUnderWayEndsTheSilenceAtOnce) {
    const Ticket early = admit_now();
    now += 10;
    call(Outcome::kTimedOut);
    EXPECT_EQ(admit_now().admission, Admission::kFailFast);
    EXPECT_EQ(settle(record, early, Outcome::kAnswered, now).transition, Transition::kRecovered);
    EXPECT_EQ(admit_now().admission, Admission::kSend);
}

TEST_F(SilenceStateTest, CallsUnderWayWhenSilenceWasDeclaredDoNotDeclareAgain) {
    const Ticket first = admit_now();
    const Ticket second = admit_now();
    now += kTimeout;
    EXPECT_EQ(settle(record, first, Outcome::kTimedOut, now).transition, Transition::kDeclared);
    EXPECT_EQ(settle(record, second, Outcome::kTimedOut, now).transition, Transition::kNone);
    EXPECT_EQ(record.window_ms.load(), kFirstWindowMs);
}

TEST_F(SilenceStateTest, TimeOutOfACallSentBeforeTheLastRecoveryIsIgnored) {
    const Ticket stale = admit_now();
    now += 10;
    call(Outcome::kTimedOut);
    now += kFirstWindowMs;
    EXPECT_EQ(call(Outcome::kAnswered, 10).transition, Transition::kRecovered);
    EXPECT_EQ(settle(record, stale, Outcome::kTimedOut, now).transition, Transition::kNone);
    EXPECT_EQ(admit_now().admission, Admission::kSend);
}

TEST_F(SilenceStateTest, SlowButAnsweringDestinationNeverTrips) {
    for (int i = 0; i < 20; ++i) EXPECT_EQ(call(Outcome::kAnswered, 900).transition, Transition::kNone);
    EXPECT_EQ(admit_now().admission, Admission::kSend);
}

TEST_F(SilenceStateTest, ProbeOfAVanishedCallerIsTakenOverAfterItsTimeOutAndGrace) {
    call(Outcome::kTimedOut);
    now += kFirstWindowMs;
    const Ticket lost = admit_now();  // never settled: its process died
    ASSERT_EQ(lost.admission, Admission::kProbe);
    now += kTimeout + kProbeGraceMs - 1;
    EXPECT_EQ(admit_now().admission, Admission::kFailFast);
    now += 1;
    const Ticket next = admit_now();
    EXPECT_EQ(next.admission, Admission::kProbe);
    // The vanished probe's claim no longer releases the new one.
    EXPECT_EQ(settle(record, lost, Outcome::kNotSent, now).transition, Transition::kNone);
    EXPECT_EQ(admit_now().admission, Admission::kFailFast);
    EXPECT_EQ(settle(record, next, Outcome::kAnswered, now).transition, Transition::kRecovered);
}

TEST_F(SilenceStateTest, ProbeThatLostItsConnectionLetsTheNextCallerProbe) {
    call(Outcome::kTimedOut);
    now += kFirstWindowMs;
    const Ticket probe = admit_now();
    EXPECT_EQ(settle(record, probe, Outcome::kNotSent, now).transition, Transition::kNone);
    EXPECT_EQ(admit_now().admission, Admission::kProbe);
}

TEST_F(SilenceStateTest, ClockWrapAroundKeepsTheOrder) {
    now = 0xFFFFFF00u;
    call(Outcome::kTimedOut);
    EXPECT_EQ(admit_now().admission, Admission::kFailFast);
    now += kFirstWindowMs;
    EXPECT_EQ(admit_now().admission, Admission::kProbe);
}

TEST_F(SilenceStateTest, ForgetBringsEverythingBack) {
    call(Outcome::kTimedOut);
    forget(record);
    EXPECT_EQ(admit_now().admission, Admission::kSend);
    EXPECT_EQ(call(Outcome::kTimedOut).transition, Transition::kDeclared);
}

TEST_F(SilenceStateTest, DefaultTimeOutBoundsTheProbeClaim) {
    call(Outcome::kTimedOut);
    now += kFirstWindowMs;
    ASSERT_EQ(admit_now(-1).admission, Admission::kProbe);
    now += kDefaultTimeoutMs + kProbeGraceMs - 1;
    EXPECT_EQ(admit_now().admission, Admission::kFailFast);
    now += 1;
    EXPECT_EQ(admit_now().admission, Admission::kProbe);
}

}  // namespace
}  // namespace korvex::dbus::silence
