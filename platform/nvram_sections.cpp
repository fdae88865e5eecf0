// Host stand-in for the gateway's sectioned nvram: each section is a text file of
// key=value lines under $KORVEX_NVRAM_DIR (default /var/lib/korvex/nvram) with a working
// copy in the process that nvram_commit writes back atomically.
//
// On the gateway every process sees one store. Here each server child has its own working
// copy, so a copy without uncommitted changes is read again whenever its file changed:
// what one child commits, the others read at once.
#include "nvram.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <set>
#include <string>

namespace {

constexpr int kSectionCount = 4;

// Identity of a section file as last read: a commit by any process changes it.
struct FileStamp {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = -1;
    long long mtime_ns = -1;
    bool operator==(const FileStamp &o) const {
        return device == o.device && inode == o.inode && size == o.size && mtime_ns == o.mtime_ns;
    }
};

struct Section {
    bool loaded = false;
    bool dirty = false;  // changed by nvram_bufset since the last load or commit
    FileStamp stamp;
    std::map<std::string, std::string> values;
};

std::mutex g_lock;
Section g_sections[kSectionCount];
// Texts handed out by nvram_bufget. They are never freed, so a text stays valid however
// often its section is read again; they grow only with the number of distinct values.
std::set<std::string> g_handed_out;

std::string section_path(int section) {
    const char *dir = std::getenv("KORVEX_NVRAM_DIR");
    std::string base = (dir != nullptr && *dir != '\0') ? dir : "/var/lib/korvex/nvram";
    return base + "/section" + std::to_string(section) + ".conf";
}

FileStamp stamp_of(const std::string &path) {
    FileStamp stamp;
    struct stat info;
    if (stat(path.c_str(), &info) == 0) {
        stamp.device = info.st_dev;
        stamp.inode = info.st_ino;
        stamp.size = info.st_size;
        stamp.mtime_ns = static_cast<long long>(info.st_mtim.tv_sec) * 1000000000LL + info.st_mtim.tv_nsec;
    }
    return stamp;
}

void load(Section &s, const std::string &path) {
    s.values.clear();
    s.stamp = stamp_of(path);
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        std::string::size_type eq = line.find('=');
        if (eq == std::string::npos || eq == 0) continue;
        s.values[line.substr(0, eq)] = line.substr(eq + 1);
    }
    s.loaded = true;
    s.dirty = false;
}

Section *section_of(int section) {
    if (section < 0 || section >= kSectionCount) return nullptr;
    Section &s = g_sections[section];
    const std::string path = section_path(section);
    if (!s.loaded || (!s.dirty && !(stamp_of(path) == s.stamp))) load(s, path);
    return &s;
}

}  // namespace

extern "C" const char *nvram_bufget(int section, const char *key) {
    std::lock_guard<std::mutex> hold(g_lock);
    Section *s = section_of(section);
    if (s == nullptr || key == nullptr) return nullptr;
    auto it = s->values.find(key);
    if (it == s->values.end()) return "";
    return g_handed_out.insert(it->second).first->c_str();
}

extern "C" int nvram_bufset(int section, const char *key, const char *value) {
    std::lock_guard<std::mutex> hold(g_lock);
    Section *s = section_of(section);
    if (s == nullptr || key == nullptr || *key == '\0' || value == nullptr) return -1;
    std::string k(key), v(value);
    if (k.find_first_of("=\n") != std::string::npos || v.find('\n') != std::string::npos) return -1;
    s->values[k] = v;
    s->dirty = true;
    return 0;
}

extern "C" int nvram_commit(int section) {
    std::lock_guard<std::mutex> hold(g_lock);
    Section *s = section_of(section);
    if (s == nullptr) return -1;
    const std::string path = section_path(section);
    const std::string tmp = path + ".tmp." + std::to_string(static_cast<long>(getpid()));
    {
        std::ofstream out(tmp, std::ios::trunc);
        if (!out) return -1;
        for (const auto &kv : s->values) out << kv.first << '=' << kv.second << '\n';
        out.flush();
        if (!out) {
            std::remove(tmp.c_str());
            return -1;
        }
    }
    if (std::rename(tmp.c_str(), path.c_str()) != 0) {
        std::remove(tmp.c_str());
        return -1;
    }
    s->dirty = false;
    s->stamp = stamp_of(path);
    return 0;
}
