// The parts of a gateway, started and stopped one by one (used by gateway.cpp).
#pragma once

#include <string>

#include "sim/harness/gateway.h"
#include "sim/harness/port_reservation.h"
#include "sim/harness/process_record.h"

namespace korvex::harness {

// Bus daemon and simulator, recorded as "bus" and "sim". Throw StartError with the log
// tail when one does not become ready in time.
void start_bus(const GatewaySpec &spec, const ProcessRecords &records);
pid_t start_sim(const GatewaySpec &spec, const ProcessRecords &records);

// Starts the server on a reserved port (spec.port, or a free one) and returns once it
// answers; retries on another port while start-ups fail with the address in use. The
// reservation stays held, and the server inherits it. Notes on given-up ports are
// appended to notes.
void start_server(const GatewaySpec &spec, const ProcessRecords &records, bool isolated,
                  PortReservation &reservation, std::string &notes);
// Stops the server ("server" and, in a namespace, its "launcher").
void stop_server(const ProcessRecords &records, bool isolated);

// The owner's watcher: "korvex-gateway watch RUN_DIR", recorded as "watcher".
void start_watcher(const GatewaySpec &spec, const ProcessRecords &records);

}  // namespace korvex::harness
