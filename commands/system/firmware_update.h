// The firmware update of "update.cgi": the module receives the uploaded image, everything
// around it (who may update, preparing the gateway, starting the updater) happens here.
#pragma once

#include "base/apache_shim.h"

// Where the uploaded image is stored, and where the updater reads it.
inline constexpr char kFirmwareImagePath[] = "/tmp/uImage";

namespace korvex::firmware {

// Stores the request's image at kFirmwareImagePath: 0 when it arrived whole, otherwise the
// HTTP status to answer (the receiver logs why and sets the answer's text).
using ImageReceiver = int (*)(request_rec *r);

// Answers "updating" while an updater runs or another upload is being stored. Otherwise
// purges memory, announces the update to the update daemon, has `receive_image` store the
// image and, only when it arrived whole, starts the updater on it and answers the update
// status page. Returns the HTTP status to answer.
int update_from_upload(request_rec *r, ImageReceiver receive_image);

}  // namespace korvex::firmware
