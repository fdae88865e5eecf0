// The control interface through which tests steer the simulator: records, behaviour
// rules, absent daemons and settings.
#pragma once

#include <dbus/dbus.h>

#include "sim/behaviour_rules.h"
#include "sim/bus_names.h"
#include "sim/busy_daemons.h"
#include "sim/call_records.h"
#include "sim/nvram_store.h"

namespace korvex::sim {

struct SimulatorState {
    NvramStore &nvram;
    CallRecords &records;
    RuleBook &rules;
    BusNames &names;
    BusyDaemons &busy;
};

// Carries out one control call and returns its reply (a method return or an error).
DBusMessage *answer_control_call(DBusMessage *call, SimulatorState &state);

}  // namespace korvex::sim
