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

// How long the gateway is given after its memory purge, before the upload is read.
inline constexpr apr_interval_time_t kPurgePause = apr_time_from_sec(1);

// Answers "updating" while an updater runs or another upload is being stored. Otherwise
// purges memory and pauses `purge_pause`, announces the update to the update daemon
// ("alive" 1), has `receive_image` store the image and, only when it arrived whole, starts
// the updater on it and answers the update status page. An announced update that starts no
// updater (the upload refused, or the start could not be sent at all: 503 "update could
// not be started") is taken back with "alive" 0. Returns the HTTP status to answer.
int update_from_upload(request_rec *r, ImageReceiver receive_image, apr_interval_time_t purge_pause = kPurgePause);

}  // namespace korvex::firmware
