// Request body readers driven by the server's input filters, 8192 bytes at a time.
#pragma once

#include "base/apache_shim.h"

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
// Streams the content of the upload's file part (module/upload_splitter.h) into a file of
// its own next to kFirmwareImagePath (commands/system/firmware_update.h), and puts that file
// in the image's place only when the body ended with its closing boundary and every write
// succeeded. 0 when the image was replaced; otherwise the HTTP status to answer (400
// malformed or truncated, 408 a client slower than its pace (module/upload_pace.h) or a read
// that timed out, 413 over the server's limit, 500 a write failure), the upload's file
// removed and an earlier image untouched.
int save_uImage(request_rec *r);
