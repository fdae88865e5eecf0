// Fire-and-forget broadcast signals announcing firmware operations.
#pragma once

#include "base/apache_shim.h"

// "alive" with one INT32. 0 when the connection was found, -1 when not.
int dbus_signal_update_alive(request_rec *r, int value);
// "rewriteEntire" with one STRING. 0 when the connection was found, -1 when not.
int dbus_signal_rewrite_entire_flash(request_rec *r, const char *value);
