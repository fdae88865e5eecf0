#include "base/process_lock.h"

namespace korvex {

std::mutex &process_userdata_lock() {
    static std::mutex lock;
    return lock;
}

}  // namespace korvex
