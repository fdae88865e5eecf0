// The site-survey reader: any table, fields never longer than their columns allow.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "commands/system/site_survey.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string table(reinterpret_cast<const char *>(data), size);
    std::FILE *in = fmemopen(table.empty() ? nullptr : &table[0], table.size(), "r");
    if (in == nullptr) return 0;
    korvex::survey::read_table(in, [](const korvex::survey::Fields &f) {
        if (std::strlen(f.channel) > 3 || std::strlen(f.ssid) > 32 || std::strlen(f.bssid) > 19 ||
            std::strlen(f.security) > 22 || std::strlen(f.signal) > 9 || std::strlen(f.mode) > 7) {
            std::abort();
        }
    });
    std::fclose(in);
    return 0;
}

// The reader's file also holds the handler that prints rows to a request; nothing prints here.
extern "C" int ap_rprintf(request_rec *, const char *, ...) { return 0; }
