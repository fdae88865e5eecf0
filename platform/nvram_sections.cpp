// Host stand-in for the gateway's sectioned nvram: each section is a text file of
// key=value lines under $KORVEX_NVRAM_DIR (default /var/lib/korvex/nvram), loaded on
// first use into a working copy that nvram_commit writes back atomically.
#include "nvram.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <string>

namespace {

constexpr int kSectionCount = 4;

struct Section {
    bool loaded = false;
    std::map<std::string, std::string> values;
};

std::mutex g_lock;
Section g_sections[kSectionCount];

std::string section_path(int section) {
    const char *dir = std::getenv("KORVEX_NVRAM_DIR");
    std::string base = (dir != nullptr && *dir != '\0') ? dir : "/var/lib/korvex/nvram";
    return base + "/section" + std::to_string(section) + ".conf";
}

Section *section_of(int section) {
    if (section < 0 || section >= kSectionCount) return nullptr;
    Section &s = g_sections[section];
    if (!s.loaded) {
        std::ifstream in(section_path(section));
        std::string line;
        while (std::getline(in, line)) {
            std::string::size_type eq = line.find('=');
            if (eq == std::string::npos || eq == 0) continue;
            s.values[line.substr(0, eq)] = line.substr(eq + 1);
        }
        s.loaded = true;
    }
    return &s;
}

}  // namespace

extern "C" const char *nvram_bufget(int section, const char *key) {
    std::lock_guard<std::mutex> hold(g_lock);
    Section *s = section_of(section);
    if (s == nullptr || key == nullptr) return nullptr;
    auto it = s->values.find(key);
    return it == s->values.end() ? "" : it->second.c_str();
}

extern "C" int nvram_bufset(int section, const char *key, const char *value) {
    std::lock_guard<std::mutex> hold(g_lock);
    Section *s = section_of(section);
    if (s == nullptr || key == nullptr || *key == '\0' || value == nullptr) return -1;
    std::string k(key), v(value);
    if (k.find_first_of("=\n") != std::string::npos || v.find('\n') != std::string::npos) return -1;
    s->values[k] = v;
    return 0;
}

extern "C" int nvram_commit(int section) {
    std::lock_guard<std::mutex> hold(g_lock);
    Section *s = section_of(section);
    if (s == nullptr) return -1;
    const std::string path = section_path(section);
    const std::string tmp = path + ".tmp";
    {
        std::ofstream out(tmp, std::ios::trunc);
        if (!out) return -1;
        for (const auto &kv : s->values) out << kv.first << '=' << kv.second << '\n';
        out.flush();
        if (!out) return -1;
    }
    return std::rename(tmp.c_str(), path.c_str()) == 0 ? 0 : -1;
}
