// The module's content handler: serves "sdk.cgi", "update.cgi", "network.cgi", "send.dat"
// and "get.dat"; declines every other handler name.
#pragma once

#include "base/apache_shim.h"

int korvex_handler(request_rec *r);

// One of the five handler names above.
bool is_korvex_resource(const char *handler_name);
