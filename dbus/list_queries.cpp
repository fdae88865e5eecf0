#include "dbus/list_queries.h"

#include <dbus/dbus.h>

#include <cstring>
#include <utility>

#include "dbus/dbus_ptr.h"
#include "dbus/exchange.h"
#include "dbus/no_reply_log.h"
#include "dbus/peer_catalog.h"
#include "base/log.h"

namespace {

using korvex::dbus::MessagePtr;

constexpr int kTrace = KORVEX_LOG_TRACE;
constexpr int kError = KORVEX_LOG_ERROR;

// A cleared node from the request pool, its link pointing to itself.
template <class Node>
Node *make_node(request_rec *r, const char *func) {
    auto *node = static_cast<Node *>(apr_pcalloc(r->pool, sizeof(Node)));
    if (node == nullptr) {
        KLOG_AS(kError, func, "calloc fail\n");
        return nullptr;
    }
    INIT_LIST_HEAD(&node->link);
    return node;
}

// One list call: where it goes, what it carries and how a missing reply is logged.
struct ListCall {
    const char *func;          // the fetcher's name, for its log lines
    const char *dest;          // may be null: the call then has no destination
    const DbusCallSpec *spec;  // interface, member and time-out
    const char *argument;      // the one STRING argument
    korvex::dbus::NoReplyText no_reply;
};

// Sends the call on the thread's connection and blocks for its reply; null when none came.
MessagePtr call_and_wait(request_rec *r, const ListCall &list) {
    using korvex::dbus::Call;
    const Call call = Call::method(list.dest, list.spec->ifac, list.spec->cmd, list.spec->timeout,
                                   korvex::dbus::Arg::string(list.argument));
    korvex::dbus::Result result = korvex::dbus::exchange_one(r, list.func, call);
    const auto outcome = result.outcome;
    if (outcome != korvex::dbus::Outcome::kReply && outcome != korvex::dbus::Outcome::kNoConnection &&
        outcome != korvex::dbus::Outcome::kNotBuilt) {
        korvex::dbus::log_no_reply(list.func, list.no_reply, call);
    }
    return std::move(result.reply);
}

// Enters the reply's first argument when it is a container; false otherwise.
bool enter_first_container(DBusMessage *reply, DBusMessageIter *inner) {
    DBusMessageIter outer;
    if (!dbus_message_iter_init(reply, &outer) ||
        !dbus_type_is_container(dbus_message_iter_get_arg_type(&outer))) {
        return false;
    }
    dbus_message_iter_recurse(&outer, inner);
    return true;
}

// The current element when it is a text (pointing into the reply), else null.
const char *peek_text(DBusMessageIter *iter) {
    if (dbus_message_iter_get_arg_type(iter) != DBUS_TYPE_STRING) {
        return nullptr;
    }
    const char *text = nullptr;
    dbus_message_iter_get_basic(iter, &text);
    return text;
}

// A request-pool copy of the current element when it is a text, else null.
char *copy_text(request_rec *r, DBusMessageIter *iter) {
    const char *text = peek_text(iter);
    return text != nullptr ? apr_pstrdup(r->pool, text) : nullptr;
}

ListLink *new_head(request_rec *r) {
    auto *head = static_cast<ListLink *>(apr_palloc(r->pool, sizeof(ListLink)));
    INIT_LIST_HEAD(head);
    return head;
}

// One node per text element, in reply order; elements of another type are skipped.
template <class Node>
ListLink *read_text_list(request_rec *r, DBusMessage *reply, Node *(*make)(request_rec *), char *Node::*field,
                         const char *trace_func = nullptr) {
    ListLink *head = new_head(r);
    DBusMessageIter iter;
    if (!enter_first_container(reply, &iter)) {
        return head;
    }
    for (; dbus_message_iter_get_arg_type(&iter) != DBUS_TYPE_INVALID; dbus_message_iter_next(&iter)) {
        char *text = copy_text(r, &iter);
        if (text == nullptr) {
            continue;
        }
        Node *node = make(r);
        if (node == nullptr) {
            break;
        }
        node->*field = text;
        if (trace_func != nullptr) {
            KLOG_AS(kTrace, trace_func, "list_add ssid: %s, ssid: %s\n", text, peek_text(&iter));
        }
        list_add_tail(&node->link, head);
    }
    return head;
}

// The text field of an out-of-memory group, read only when another element follows it.
void read_group_text(request_rec *r, DBusMessageIter *iter, char **field, const char *func) {
    if (!dbus_message_iter_has_next(iter)) {
        KLOG_AS(kError, func, "dbus_message_iter_has_next == FALSE\n");
        return;
    }
    *field = copy_text(r, iter);
    dbus_message_iter_next(iter);
}

uint32_t read_u32(DBusMessageIter *iter) {
    const int type = dbus_message_iter_get_arg_type(iter);
    if (type != DBUS_TYPE_UINT32 && type != DBUS_TYPE_INT32) {
        return 0;
    }
    dbus_uint32_t value = 0;
    dbus_message_iter_get_basic(iter, &value);
    return value;
}

// Groups of four elements: 32-bit id, name, score, one element that is skipped.
ListLink *read_oom_list(request_rec *r, DBusMessage *reply, const char *func) {
    ListLink *head = new_head(r);
    DBusMessageIter iter;
    if (!enter_first_container(reply, &iter) || dbus_message_iter_get_arg_type(&iter) == DBUS_TYPE_INVALID) {
        return head;
    }
    do {
        OomNode *node = callocOOM(r);
        if (node == nullptr) {
            break;
        }
        node->pid = read_u32(&iter);
        dbus_message_iter_next(&iter);
        read_group_text(r, &iter, &node->name, func);
        read_group_text(r, &iter, &node->score, func);
        list_add_tail(&node->link, head);
    } while (dbus_message_iter_next(&iter));
    return head;
}

// The frame every fetcher shares: trace, one call, the reply read into a list.
template <typename Read>
ListLink *fetch_list(request_rec *r, const ListCall &call, Read &&read) {
    KLOG_AS(kTrace, call.func, "enter %s\n", call.func);
    MessagePtr reply = call_and_wait(r, call);
    if (!reply) {
        return nullptr;
    }
    ListLink *head = read(reply.get());
    KLOG_AS(kTrace, call.func, "leave %s\n", call.func);
    return head;
}

namespace peer = korvex::peer;
using korvex::dbus::NoReplyText;

}  // namespace

AllocatedMemNode *callocAllocatedMem(request_rec *r) { return make_node<AllocatedMemNode>(r, __func__); }
OomNode *callocOOM(request_rec *r) { return make_node<OomNode>(r, __func__); }
SsidNode *callocSsidNode(request_rec *r) { return make_node<SsidNode>(r, __func__); }
NvramListNode *callocNvramList(request_rec *r) { return make_node<NvramListNode>(r, __func__); }

ListLink *korvex_dbus_message_get_allocatedMem_list(request_rec *r) {
    const ListCall call{__func__, peer::kSdkGetAllocated.dest, &peer::kSdkGetAllocated, peer::kSdkProcessName,
                        NoReplyText::kProcess};
    return fetch_list(r, call, [r](DBusMessage *reply) {
        return read_text_list(r, reply, callocAllocatedMem, &AllocatedMemNode::line);
    });
}

ListLink *korvex_dbus_message_get_oom_score_list(request_rec *r) {
    const ListCall call{__func__, peer::kWatchdogOomList.dest, &peer::kWatchdogOomList,
                        peer::kWatchdogOomListArgument, NoReplyText::kPlain};
    return fetch_list(r, call, [r, &call](DBusMessage *reply) { return read_oom_list(r, reply, call.func); });
}

ListLink *korvex_dbus_message_get_nvram_list(request_rec *r, const char *value) {
    const ListCall call{__func__, peer::kNvramGetList.dest, &peer::kNvramGetList, value != nullptr ? value : "",
                        NoReplyText::kPlain};
    return fetch_list(r, call, [r](DBusMessage *reply) {
        return read_text_list(r, reply, callocNvramList, &NvramListNode::line);
    });
}

ListLink *korvex_dbus_message_wifi_ssid_refresh(request_rec *r) {
    // The argument is the member's own name, "refresh".
    const ListCall call{__func__, peer::kWifiSsidRefresh.dest, &peer::kWifiSsidRefresh, peer::kWifiSsidRefresh.cmd,
                        NoReplyText::kPlain};
    return fetch_list(r, call, [r, &call](DBusMessage *reply) {
        return read_text_list(r, reply, callocSsidNode, &SsidNode::ssid, call.func);
    });
}

MemoryDebugNode *callocMemoryDebug(request_rec *r) { return make_node<MemoryDebugNode>(r, __func__); }

ListLink *korvex_dbus_message_get_memory_debug_list(request_rec *r, const char *process, const char *func) {
    const char *dest = process != nullptr && std::strcmp(process, peer::kAppProcessName) == 0
                           ? peer::kMemoryDebug.dest
                           : nullptr;
    const ListCall call{func, dest, &peer::kMemoryDebug, process != nullptr ? process : "", NoReplyText::kProcess};
    MessagePtr reply = call_and_wait(r, call);
    if (!reply) {
        return nullptr;
    }
    return read_text_list(r, reply.get(), callocMemoryDebug, &MemoryDebugNode::line);
}
