// The simulated gateway: answers the daemons' method calls on one bus connection,
// records what arrives and lets tests steer it through the control interface.
#pragma once

#include <dbus/dbus.h>

#include <csignal>
#include <string>

#include "sim/behaviour_rules.h"
#include "sim/bus_names.h"
#include "sim/busy_daemons.h"
#include "sim/call_records.h"
#include "sim/control_interface.h"
#include "sim/nvram_store.h"
#include "sim/peer_methods.h"
#include "sim/reply_queue.h"

namespace korvex::sim {

class GatewaySimulator {
  public:
    GatewaySimulator(DBusConnection *connection, NvramStore &nvram);

    // Subscribes to the update signals and takes all bus names; false with a reason on
    // failure.
    bool start(std::string *error);

    // Serves until `stop_requested` becomes set (returns 0) or the bus goes away
    // (returns 1).
    int run(const volatile std::sig_atomic_t &stop_requested);

  private:
    void handle(DBusMessage *message);
    void handle_method_call(DBusMessage *call);
    void serve_gateway_call(DBusMessage *call);
    void serve_freed_calls();
    Answer answer_for(const BehaviourRule *rule, DBusMessage *call);
    DBusMessage *build_reply(DBusMessage *call, const Answer &answer);

    DBusConnection *connection_;
    NvramStore &nvram_;
    PeerMethods peers_;
    BusNames names_;
    CallRecords records_;
    RuleBook rules_;
    ReplyQueue replies_;
    BusyDaemons busy_;
    SimulatorState state_;
    bool disconnected_ = false;
};

}  // namespace korvex::sim
