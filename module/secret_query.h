// A query string as the access log may show it: the value of every command that carries a
// secret replaced by "********", everything else as sent.
#pragma once

#include <string>
#include <string_view>

namespace korvex {

// True when `query` names a secret-carrying command with a value; `masked` is then the
// query with each such value replaced. A name counts as the server reads it (%XX escapes
// decoded), so "set%61ppwd=..." is masked as "setappwd=..." would be.
bool mask_secret_values(std::string_view query, std::string *masked);

}  // namespace korvex
