// What the code under test printed to a request: the unit-test binary replaces the
// server's output functions (ap_rprintf, ap_rwrite behind ap_rputs, ap_escape_html2) with a recorder.
#pragma once

#include <string>

namespace korvex::test {

// Everything printed since the last clear, in order, whatever the request.
std::string &server_output();

}  // namespace korvex::test
