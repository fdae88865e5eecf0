// One-line texts of the simulator's records, so that tests compare whole call sequences
// exactly: "method_call com.korvex-labs.www.sdk com.KorvexLabs.json.command command(s:...)
// /com/KorvexLabs/Apache/7" (a signal shows "-" for its missing destination).
#pragma once

#include <string>
#include <vector>

#include "tests/support/sim_client.h"

namespace korvex::test {

inline std::string record_text(const SimRecord &record) {
    std::string text = record.type + " " + (record.destination.empty() ? "-" : record.destination) + " " +
                       record.interface + " " + record.member + "(";
    for (size_t i = 0; i < record.args.size(); ++i) text += (i ? ", " : "") + record.args[i];
    return text + ") " + record.path;
}

inline std::vector<std::string> record_texts(const std::vector<SimRecord> &records) {
    std::vector<std::string> texts;
    for (const SimRecord &record : records) texts.push_back(record_text(record));
    return texts;
}

// The object path the module uses on the thread whose (namespace) id is tid.
inline std::string module_path(long tid) { return "/com/KorvexLabs/Apache/" + std::to_string(tid); }

}  // namespace korvex::test
