#include "dbus/peer_catalog.h"

#include <cstring>

namespace korvex::peer {

namespace {

bool same_text(const char *a, const char *b) { return a == b || std::strcmp(a, b) == 0; }

}  // namespace

Effect effect_of(const char *ifac, const char *member) {
    if (ifac == nullptr || member == nullptr) return Effect::kWrite;
    for (const PeerCall &call : kAllCalls) {
        if (same_text(call.spec->cmd, member) && same_text(call.spec->ifac, ifac)) return call.effect;
    }
    return Effect::kWrite;
}

}  // namespace korvex::peer
