// The Z-Wave SDK, application, cloud socket, watchdog, updater and Telldus daemons.
#include "dbus/peer_catalog.h"
#include "sim/peer_methods.h"

namespace korvex::sim {
namespace {

using namespace korvex::peer;

constexpr char kFirmwareVersion[] = "5.3.2";
constexpr char kFirmwareDate[] = "20261015";

constexpr char kTitles[] =
    R"({"titles":[{"id":2,"name":"Living room lamp"},{"id":3,"name":"Front door lock"},)"
    R"({"id":5,"name":"Hall motion sensor"}]})";
constexpr char kGroups[] =
    R"({"groups":[{"id":1,"name":"Ground floor","nodes":[2,5]},{"id":2,"name":"Entrance","nodes":[3]}]})";
constexpr char kAllDevices[] =
    R"({"devices":[{"id":2,"type":"switch_binary","name":"Living room lamp","value":0},)"
    R"({"id":3,"type":"door_lock","name":"Front door lock","value":255},)"
    R"({"id":5,"type":"sensor_binary","name":"Hall motion sensor","value":0,"battery":87}]})";
constexpr char kEvents[] =
    R"({"events":[{"seq":1021,"time":1760518412,"node":5,"event":"motion"},)"
    R"({"seq":1022,"time":1760518475,"node":2,"event":"on"}]})";
constexpr char kMacroEvents[] = R"({"macroevents":[{"seq":88,"time":1760518475,"scene":1,"event":"run"}]})";
constexpr char kSceneDone[] = R"({"result":"ok"})";
constexpr char kApplicationData[] =
    R"({"version":3,"devices":[2,3,5],"scenes":[{"id":1,"name":"Leave home"}],"timers":[]})";

constexpr char kSysInfo[] =
    R"({"uptime":86431,"loadavg":"0.08 0.11 0.09","totalram":61440,"freeram":17812,"procs":41})";
constexpr char kProcTable[] =
    "  PID  VSZ COMMAND\n  298 3140 platform\n  312 5820 app\n  340 4416 korvex-sdk\n  402 2288 socket";

const std::vector<std::string> kSdkAllocatedLines = {
    "allocated: 182344 bytes in 1207 blocks", "peak: 240112 bytes", "node table: 18432 bytes",
    "queue: 4096 bytes"};

const std::vector<std::string> kMemoryDebugLines = {"heap: 1843 kB in use, 212 kB free",
                                                    "blocks: 5221", "largest free block: 96 kB"};

// The watchdog's out-of-memory table: per process pid, name, oom score, oom adjustment.
Answer oom_table() {
    return Answer::of("(ussiussiussiussi)",
                      json_pack("[[is s i is s i is s i is s i]]", 298, "platform", "0", -17, 312, "app",
                                "24", 0, 340, "korvex-sdk", "11", 0, 402, "socket", "3", 0));
}

// The SDK answers a JSON command with its command name and a result.
Answer sdk_json_reply(const json_t *args) {
    std::string request = string_arg(args, 0);
    JsonPtr parsed(json_loads(request.c_str(), 0, nullptr));
    const char *command = json_string_value(json_object_get(parsed.get(), "cmd"));
    JsonPtr reply(command != nullptr ? json_pack("{s:s,s:s}", "cmd", command, "result", "ok")
                                     : json_pack("{s:s,s:s}", "result", "error", "reason", "bad request"));
    return Answer::string(json_compact_text(reply.get()));
}

Answer socket_reply(const json_t *args) {
    std::string request = string_arg(args, 0);
    if (request == "authcode") return Answer::string("7K2Q-9XW4-PL3M");
    if (request == "proctable") return Answer::string(kProcTable);
    if (request == "sysinfo") return Answer::string(kSysInfo);
    if (request == "disconnect_icloud") return Answer::string("disconnected");
    return Answer::string("unknown command");
}

AnswerFunction fixed_int(int value) {
    return [value](const json_t *) { return Answer::int32(value); };
}

AnswerFunction fixed_string(std::string text) {
    return [text](const json_t *) { return Answer::string(text); };
}

AnswerFunction fixed_lines(const std::vector<std::string> &lines) {
    return [&lines](const json_t *) { return Answer::strings(lines); };
}

}  // namespace

void add_daemon_methods(std::vector<PeerMethod> &methods) {
    auto add = [&](const char *destination, const char *interface, const char *member,
                   const char *args, const char *reply, AnswerFunction answer) {
        methods.push_back({destination, interface, member, args, reply, std::move(answer)});
    };

    add(kSdk, kIfJsonCommand, "command", "s", "s", sdk_json_reply);
    add(kSdk, kIfEasyCommand, "name", "s", "s", fixed_string("ok"));
    add(kSdk, kIfFirmware, "version", "s", "s", fixed_string(kFirmwareVersion));
    add(kSdk, kIfFirmware, "date", "s", "s", fixed_string(kFirmwareDate));
    add(kSdk, kIfMemory, "getAllocated", "s", "as", fixed_lines(kSdkAllocatedLines));
    add(kSdk, kIfLed, "command", "su", "i", fixed_int(0));

    add(kApp, kIfApp, "jsongettitles", "s", "s", fixed_string(kTitles));
    add(kApp, kIfApp, "jsongetgroup", "s", "s", fixed_string(kGroups));
    add(kApp, kIfApp, "jsongetall", "s", "s", fixed_string(kAllDevices));
    add(kApp, kIfApp, "jsongeteventbyseq", "s", "s", fixed_string(kEvents));
    add(kApp, kIfApp, "jsongetmacroeventbyseq", "s", "s", fixed_string(kMacroEvents));
    add(kApp, kIfApp, "doscene", "s", "s", fixed_string(kSceneDone));
    for (const char *member : {"jsonsetall", "jsondel", "jsonrename"})
        add(kApp, kIfApp, member, "s", "i", fixed_int(1));
    for (const char *member : {"doscenemode", "setDST", "p2preconnect", "enableastclock", "enablelock",
                               "setastclock_lon", "setastclock_lat"})
        add(kApp, kIfApp, member, "s", "s", fixed_string("ok"));
    add(kApp, kIfApp, "getDat", "s", "s", fixed_string(kApplicationData));
    add(kApp, kIfApp, "sendDat", "s", "s", fixed_string(""));
    for (const char *member : {"resetConfig", "backupConfig", "restoreConfig", "restoreConfig2"})
        add(kApp, kIfSwitchApp, member, "i", "i", fixed_int(0));
    add(kApp, kIfDebug, "memory_debug", "s", "as", fixed_lines(kMemoryDebugLines));

    add(kSocket, kIfSocketCmd, "command", "s", "s", socket_reply);

    add(kDebuger, kIfWatchdogOom, "getList", "s", "(ussiussiussiussi)", [](const json_t *) { return oom_table(); });
    add(kDebuger, kIfWatchdog, "getfwver", "i", "s", fixed_string(kFirmwareVersion));
    add(kDebuger, kIfWatchdog, "stopTracking", "i", "i", fixed_int(0));

    add(kCheckUpdate, kIfCheckUpdate, "getupdatestatus", "i", "s", fixed_string("checking"));
    add(kUpdate, kIfUpdate, "getupdatestatus", "i", "s", fixed_string("writing flash 35%"));

    add(kTelldus, kIfTelldus433, "test", "s", "s", fixed_string("ok"));
}

}  // namespace korvex::sim
