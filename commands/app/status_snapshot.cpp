// "jsongetupdate": the gateway status snapshot a polling client compares with its cache.
//
// All 22 queries leave at once, in the order of the table below, and their replies are
// collected together under one deadline (dbus/exchange.h); then the object is built row
// by row.
#include <jansson.h>

#include <cstddef>
#include <cstdlib>

#include "commands/app/change_stamp.h"
#include "commands/app/timezone_mapping.h"
#include "dbus/exchange.h"
#include "dbus/peer_catalog.h"
#include "dbus/primitives.h"
#include "base/absent_text.h"
#include "base/log.h"
#include "base/secrets.h"
#include "registry/handlers.h"

namespace {

using korvex::dbus::Call;
using korvex::dbus::Result;
using korvex::dbus::TextPrimitive;

constexpr char kHandlerName[] = "jsonGetUpdate";
constexpr int kLogLevel = KORVEX_LOG_REQUEST;
constexpr std::size_t kJsonFlags = JSON_COMPACT | JSON_ENSURE_ASCII | JSON_SORT_KEYS;

// How a row's reply becomes a member.
enum class Kind {
    kStamp,     // integer; member and exported stamp only when non-zero
    kText,      // string as read
    kCopy,      // string copied with "%s" (a missing reply becomes "(null)")
    kVersion,   // two replies joined as "%s:%s"
    kInteger,   // atoi of the text
    kTimeZone,  // zone number of the stored zone name
};

struct Row {
    const char *log_format;  // null: the row is not logged
    const DbusCallSpec *spec;
    const char *argument;  // the nvram key, or the text sent
    const char *member;
    Kind kind;
    const DbusCallSpec *second_spec;  // kVersion: the second call, sent with the same argument
    int *stamp;                       // kStamp: the exported integer it refreshes
};

namespace peer = korvex::peer;

constexpr const DbusCallSpec *kNvram = &peer::kNvramGet;

constexpr Row kRows[] = {
    {nullptr, kNvram, "jsonsetall_number", "jsonsetall_number", Kind::kStamp, nullptr, &jsonsetall_number},
    {nullptr, kNvram, "jsongetuserdata_number", "jsongetuserdata_number", Kind::kStamp, nullptr,
     &jsongetuserdata_number},
    {"1.%s\n", kNvram, "setastclock_lon", "setastclock_lon", Kind::kText, nullptr, nullptr},
    {"2.%s\n", kNvram, "setastclock_lat", "setastclock_lat", Kind::kText, nullptr, nullptr},
    {"3. %s\n", &peer::kSdkFirmwareVersion, peer::kSdkProcessName, "swversion", Kind::kVersion,
     &peer::kSdkFirmwareDate, nullptr},
    {"4. %s\n", kNvram, "TUTK_UUID", "TUTK_UUID", Kind::kText, nullptr, nullptr},
    {"5.%s\n", kNvram, "UUID", "Orbweb_UUID", Kind::kText, nullptr, nullptr},
    {"6.%s\n", kNvram, "WifiMode", "WifiMode", Kind::kText, nullptr, nullptr},
    {"7.%s\n", kNvram, "SSID1", "AP_SSID", Kind::kText, nullptr, nullptr},
    {"8.%s\n", kNvram, "STA_SSID1", "STA_SSID", Kind::kText, nullptr, nullptr},
    {"9.%s\n", kNvram, "TimeZone", "TZ", Kind::kTimeZone, nullptr, nullptr},
    {"10.%s\n", kNvram, "jsonsetcheckbox", "jsonsetcheckbox", Kind::kInteger, nullptr, nullptr},
    {"11.%s\n", kNvram, "jsonsetcheckbox2", "jsonsetcheckbox2", Kind::kInteger, nullptr, nullptr},
    {"12.%s\n", kNvram, "SU_PASSWORD", "SU_PASSWORD", Kind::kText, nullptr, nullptr},
    {"13.%s\n", &peer::kGetModel, peer::kGetModelArgument, "PLATFORM_MODEL", Kind::kText, nullptr, nullptr},
    {"14.%s\n", kNvram, "enablelock", "enablelock", Kind::kInteger, nullptr, nullptr},
    {"15.%s\n", kNvram, "enableastclock", "enableastclock", Kind::kInteger, nullptr, nullptr},
    {"16.%s\n", kNvram, "doscenemode", "doscenemode", Kind::kInteger, nullptr, nullptr},
    {"17.%s\n", &peer::kNetGetMac, peer::kWanInterface, "eth:", Kind::kCopy, nullptr, nullptr},
    {"18.%s\n", &peer::kNetGetMac, peer::kWifiInterface, "wifi:", Kind::kCopy, nullptr, nullptr},
    {"19.%s\n", kNvram, "language", "language", Kind::kInteger, nullptr, nullptr},
};


// Only a version row asks a second question. Decided by the kind, not by comparing the
// second descriptor's address with null: that is no constant expression when the compiler
// may not assume object addresses are non-null (-fno-delete-null-pointer-checks, implied by
// -fsanitize=null).
constexpr bool has_second_call(const Row &row) { return row.kind == Kind::kVersion; }

constexpr std::size_t count_calls() {
    std::size_t n = 0;
    for (const Row &row : kRows) {
        n += has_second_call(row) ? 2 : 1;
    }
    return n;
}
constexpr std::size_t kCallCount = count_calls();
static_assert(kCallCount == 22, "the snapshot asks 22 questions");

TextPrimitive primitive_of(const DbusCallSpec *spec) {
    return spec == kNvram ? TextPrimitive::kGetNvram : TextPrimitive::kStringMessage;
}

// The questions of every row, in row order (a two-call row asks both, first to second).
struct Plan {
    Call calls[kCallCount];
    TextPrimitive primitives[kCallCount];  // the primitive each call stands in for

    Plan() {
        std::size_t n = 0;
        auto add = [&](const DbusCallSpec *spec, const char *argument) {
            primitives[n] = primitive_of(spec);
            calls[n++] = korvex::dbus::text_call(primitive_of(spec), *spec, argument);
        };
        for (const Row &row : kRows) {
            add(row.spec, row.argument);
            if (has_second_call(row)) add(row.second_spec, row.argument);
        }
    }
};

void set_integer(json_t *object, const char *member, long long value) {
    json_object_set_new(object, member, json_integer(value));
}

// A null or non-UTF-8 text makes json_string give null, which the object refuses: the
// member is then absent.
void set_text(json_t *object, const char *member, const char *text) {
    if (text != nullptr) {
        json_object_set_new(object, member, json_string(text));
    }
}

// Adds one row's member from its reply (and, for a two-call row, the second reply).
void add_member(request_rec *r, json_t *object, const Row &row, const char *value, const char *second) {
    const char *logged = value;
    switch (row.kind) {
        case Kind::kStamp:
            // A stamp that could not be read keeps its last value and is left out.
            if (value != nullptr) {
                *row.stamp = std::atoi(value);
                if (*row.stamp != 0) {
                    set_integer(object, row.member, *row.stamp);
                }
            }
            break;
        case Kind::kText:
            set_text(object, row.member, value);
            break;
        case Kind::kCopy:
            logged = korvex::or_absent(value);
            set_text(object, row.member, logged);
            break;
        case Kind::kVersion:
            logged = apr_psprintf(r->pool, "%s:%s", korvex::or_absent(value), korvex::or_absent(second));
            set_text(object, row.member, logged);
            break;
        case Kind::kInteger:
            // No reply at all: the member is left out (a reply without text reads as 0).
            if (value != nullptr) {
                set_integer(object, row.member, std::atoi(value));
            }
            break;
        case Kind::kTimeZone:
            if (value != nullptr) {
                set_integer(object, row.member, korvex::timezone_number(value));
            }
            break;
    }
    if (row.log_format != nullptr) {
        KLOG_AS(kLogLevel, kHandlerName, row.log_format, korvex::or_absent(korvex::loggable_value(row.member, logged)));
    }
}

// The two closing trace lines show the serialised snapshot with its secret members masked.
// They cost a second serialisation, so only when they are written at all.
void log_snapshot(json_t *object, const char *text) {
    if (korvex_log_threshold() > kLogLevel) return;
    char *masked = nullptr;
    if (text != nullptr) {
        json_t *copy = json_deep_copy(object);
        for (const char *key : korvex::kSecretKeys) {
            if (copy != nullptr && json_object_get(copy, key) != nullptr) {
                json_object_set_new(copy, key, json_string(korvex::kMaskedSecret));
            }
        }
        masked = copy != nullptr ? json_dumps(copy, kJsonFlags) : nullptr;
        json_decref(copy);
    }
    KLOG_AS(kLogLevel, kHandlerName, "20.%s\n", korvex::or_absent(masked));
    if (masked != nullptr) {
        KLOG_AS(kLogLevel, kHandlerName, "20. %s\n", masked);
    }
    std::free(masked);
}

}  // namespace

int jsonGetUpdate(request_rec *r, char * /*value*/) {
    KLOG_AS(kLogLevel, kHandlerName, "0. jsongetupdate start !!\n");

    const Plan plan;
    Result results[kCallCount];
    korvex::dbus::exchange(r, kHandlerName, plan.calls, results, kCallCount);
    // Each answer as its primitive would return it (null without a reply), with its log lines.
    const char *answers[kCallCount];
    for (std::size_t i = 0; i < kCallCount; ++i) {
        answers[i] = korvex::dbus::text_outcome(r, plan.primitives[i], plan.calls[i], results[i]);
    }

    json_t *object = json_object();
    if (object == nullptr) {
        return 0;
    }
    std::size_t n = 0;
    for (const Row &row : kRows) {
        const char *value = answers[n++];
        const char *second = has_second_call(row) ? answers[n++] : nullptr;
        add_member(r, object, row, value, second);
    }

    char *text = json_dumps(object, kJsonFlags);
    log_snapshot(object, text);
    int result = 0;
    if (text != nullptr) {
        ap_rprintf(r, "%s<br>", text);
        std::free(text);
        result = 1;
    }
    json_decref(object);
    return result;
}
