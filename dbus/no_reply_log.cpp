#include "dbus/no_reply_log.h"

#include "base/absent_text.h"
#include "base/log.h"

namespace korvex::dbus {

void log_no_reply(const char *func, NoReplyText text, const Call &call) {
    const char *sent = or_absent(call.args[0].text);
    const char *dest = or_absent(call.dest);
    switch (text) {
    case NoReplyText::kPlain:
        KLOG_AS(KORVEX_LOG_ERROR, func, "No reply\n");
        break;
    case NoReplyText::kStr:
        KLOG_AS(KORVEX_LOG_ERROR, func, "No reply, str: %s, dest: %s, ifac: %s, command: %s\n", sent, dest,
                call.ifac, call.member);
        break;
    case NoReplyText::kKey:
        KLOG_AS(KORVEX_LOG_ERROR, func, "No reply, key: %s, dest: %s, ifac: %s, cmd: %s\n", sent, dest, call.ifac,
                call.member);
        break;
    case NoReplyText::kLed:
        KLOG_AS(KORVEX_LOG_ERROR, func, "No reply, led: %s, dest: %s, ifac: %s, cmd: %s\n", sent, dest, call.ifac,
                call.member);
        break;
    case NoReplyText::kCommit:
        KLOG_AS(KORVEX_LOG_ERROR, func, "No reply, dest: %s, ifac: %s, cmd: %s\n", dest, call.ifac, call.member);
        break;
    case NoReplyText::kProcess:
        // Names the memory interface whichever interface the call went to.
        KLOG_AS(KORVEX_LOG_ERROR, func, "No reply, dest: %s, ifac: %s, cmd: %s, process: %s\n", dest,
                peer::kIfMemory, call.member, sent);
        break;
    }
}

}  // namespace korvex::dbus
