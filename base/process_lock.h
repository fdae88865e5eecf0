// The one process-wide mutex under which the user data of the process pool is read and
// written. Under worker and event, serving threads file their bus connections there while
// others look up the module's record: APR's pools and hash tables are not thread-safe, so
// an unguarded look-up could walk a table another thread is growing.
#pragma once

#include <mutex>

namespace korvex {

std::mutex &process_userdata_lock();

}  // namespace korvex
