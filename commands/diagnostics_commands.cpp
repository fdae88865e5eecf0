// Diagnostic commands: list queries printed as HTML lines, the memory-debug request and
// the process-size report.
#include <jansson.h>

#include <cstdlib>

#include "dbus/list_queries.h"
#include "commands/oom_row.h"
#include "dbus/peer_catalog.h"
#include "base/log.h"
#include "base/process_scan.h"
#include "registry/handlers.h"

namespace {

// Prints one "%s<br>" line per node (nothing for a failed fetch or an empty list).
template <class Node>
void print_lines(request_rec *r, ListLink *head, char *Node::*field) {
    for (Node *node : korvex::ring<Node>(head)) {
        ap_rprintf(r, "%s<br>", node->*field);
    }
}

// The processes of the memory report, in the order they are looked up.
constexpr const char *kReportedProcesses[] = {korvex::peer::kAppProcessName, "platform", "httpd",
                                              korvex::peer::kSdkProcessName};

constexpr std::size_t kJsonFlags = JSON_COMPACT | JSON_ENSURE_ASCII | JSON_SORT_KEYS;

}  // namespace

// Asks a daemon for its memory-debug lines and prints them: "***** <process> *****<br>",
// one "%s<br>" per line, then "<br>". 1 when a reply came, -1 otherwise (nothing printed).
int dbus_memory_debug(request_rec *r, const char *process) {
    KLOG(KORVEX_LOG_TRACE, "enter %s\n", __func__);
    ListLink *lines = korvex_dbus_message_get_memory_debug_list(r, process, __func__);
    if (lines == nullptr) {
        return -1;
    }
    ap_rprintf(r, "***** %s *****<br>", process != nullptr ? process : "");
    print_lines(r, lines, &MemoryDebugNode::line);
    ap_rputs("<br>", r);
    KLOG(KORVEX_LOG_TRACE, "leave %s\n", __func__);
    return 1;
}

int listOOM(request_rec *r, char * /*value*/) {
    ListLink *head = korvex_dbus_message_get_oom_score_list(r);
    for (OomNode *node : korvex::ring<OomNode>(head)) {
        ap_rputs(korvex::format_oom_row(r->pool, node->score, node->pid, node->name), r);
    }
    return 1;
}

int listAllocated(request_rec *r, char * /*value*/) {
    print_lines(r, korvex_dbus_message_get_allocatedMem_list(r), &AllocatedMemNode::line);
    return 1;
}

int listNVRAM(request_rec *r, char *value) {
    ListLink *head = korvex_dbus_message_get_nvram_list(r, value);
    if (head == nullptr) {
        return 0;
    }
    print_lines(r, head, &NvramListNode::line);
    return 1;
}

int memory_debug(request_rec *r, char * /*value*/) {
    return dbus_memory_debug(r, korvex::peer::kAppProcessName) == 1 ? 1 : 0;
}

int memUsage(request_rec *r, char * /*value*/) {
    json_t *report = json_object();
    if (report == nullptr) {
        return 0;
    }
    for (const char *name : kReportedProcesses) {
        const long pid = proc_find(name);
        if (pid > 0) {
            addProcess(report, name, getVmSize(static_cast<int>(pid)));
        }
    }
    char *text = json_dumps(report, kJsonFlags);
    json_decref(report);
    if (text == nullptr) {
        return 0;
    }
    ap_rprintf(r, "%s<br>", text);
    std::free(text);
    return 1;
}
