// Request body readers driven by the server's input filters, 8192 bytes at a time.
#pragma once

#include "base/apache_shim.h"

// Path the firmware upload is streamed to.
inline constexpr char kFirmwareImagePath[] = "/tmp/uImage";

// Why a body could not be had.
enum class BodyStatus {
    kRead,       // the body is there
    kUnusable,   // no body, an unusable length or coding, or a failed read (logged)
    kTooLarge,   // larger than the limit (body_limit in body_buffer.h); not read (logged)
};

// The whole request body as one NUL-terminated text in the request pool, or null with the
// reason in *status (when status is not null). A body whose declared length is over the
// limit is not read at all.
char *get_postdata(request_rec *r, BodyStatus *status = nullptr);
// Streams the one file part of a multipart upload into kFirmwareImagePath.
// -2 when memory for the boundary cannot be had, 0 in every other case.
int save_uImage(request_rec *r);
