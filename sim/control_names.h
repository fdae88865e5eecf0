// Names of the simulator's control interface, shared with the test client.
#pragma once

namespace korvex::sim::control {

inline constexpr char kBusName[] = "com.korvex-labs.sim";
inline constexpr char kObjectPath[] = "/com/korvex_labs/sim";
// Interface and error names may not contain '-', unlike bus names.
inline constexpr char kInterface[] = "com.korvex_labs.sim.Control";
inline constexpr char kErrorInjected[] = "com.korvex_labs.sim.Error.Injected";

}  // namespace korvex::sim::control
