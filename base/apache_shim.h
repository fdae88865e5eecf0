// The one way Apache and APR headers enter this module's C++ code: wrapped in C linkage,
// with the status macros that collide with ordinary C++ names turned into constants.
#pragma once

extern "C" {
#include <apr_buckets.h>
#include <apr_escape.h>
#include <apr_file_io.h>
#include <apr_global_mutex.h>
#include <apr_lib.h>
#include <apr_poll.h>
#include <apr_pools.h>
#include <apr_strings.h>
#include <apr_tables.h>
#include <httpd.h>
#include <http_config.h>
#include <http_core.h>
#include <http_log.h>
#include <http_protocol.h>
#include <http_request.h>
#include <util_script.h>
}

namespace korvex::http {
inline constexpr int kOk = OK;
inline constexpr int kDeclined = DECLINED;
inline constexpr int kMethodNotAllowed = HTTP_METHOD_NOT_ALLOWED;
inline constexpr int kInternalServerError = HTTP_INTERNAL_SERVER_ERROR;
inline constexpr int kRequestEntityTooLarge = HTTP_REQUEST_ENTITY_TOO_LARGE;
inline constexpr int kServiceUnavailable = HTTP_SERVICE_UNAVAILABLE;
}  // namespace korvex::http

#undef OK
#undef DECLINED
#undef DONE
