// Request body readers driven by the server's input filters, 8192 bytes at a time.
#pragma once

#include "base/apache_shim.h"

// Path the firmware upload is streamed to.
inline constexpr char kFirmwareImagePath[] = "/tmp/uImage";

// The whole request body as one NUL-terminated text in the request pool, or null.
char *get_postdata(request_rec *r);
// Streams the one file part of a multipart upload into kFirmwareImagePath.
// -2 when memory for the boundary cannot be had, 0 in every other case.
int save_uImage(request_rec *r);
