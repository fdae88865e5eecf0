#include "sim/busy_daemons.h"

#include <algorithm>

namespace korvex::sim {

BusyDaemons::~BusyDaemons() { clear(); }

void BusyDaemons::occupy(const std::string &destination, int busy_ms) {
    Daemon &daemon = daemons_[destination];
    daemon.busy_until = std::max(daemon.busy_until, Clock::now() + std::chrono::milliseconds(busy_ms));
}

bool BusyDaemons::is_busy(const std::string &destination) const {
    auto it = daemons_.find(destination);
    return it != daemons_.end() && (!it->second.held.empty() || it->second.busy_until > Clock::now());
}

bool BusyDaemons::hold(const std::string &destination, DBusMessage *call) {
    Daemon &daemon = daemons_[destination];
    if (daemon.held.size() >= kMaxHeldCalls)
        return false;
    daemon.held.push_back(dbus_message_ref(call));
    return true;
}

DBusMessage *BusyDaemons::next_ready() {
    const auto now = Clock::now();
    for (auto it = daemons_.begin(); it != daemons_.end(); ++it) {
        Daemon &daemon = it->second;
        if (daemon.held.empty() || daemon.busy_until > now)
            continue;
        DBusMessage *call = daemon.held.front();
        daemon.held.pop_front();
        return call;
    }
    return nullptr;
}

int BusyDaemons::ms_until_next(int limit) const {
    const auto now = Clock::now();
    long long wait = limit;
    for (const auto &[name, daemon] : daemons_) {
        if (daemon.held.empty())
            continue;
        auto left = std::chrono::ceil<std::chrono::milliseconds>(daemon.busy_until - now).count();
        wait = std::min(wait, std::max(0LL, static_cast<long long>(left)));
    }
    return int(wait);
}

void BusyDaemons::clear() {
    for (auto &[name, daemon] : daemons_)
        for (DBusMessage *call : daemon.held)
            dbus_message_unref(call);
    daemons_.clear();
}

}  // namespace korvex::sim
