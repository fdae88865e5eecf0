#include "base/process_scan.h"

#include <dirent.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/log.h"

long proc_find(const char *name) {
    DIR *dir = opendir("/proc");
    if (dir == nullptr) {
        perror("can't open /proc");
        return -1;
    }

    while (struct dirent *entry = readdir(dir)) {
        char *digits_end = nullptr;
        const long pid = std::strtol(entry->d_name, &digits_end, 10);
        if (digits_end == entry->d_name || *digits_end != '\0') continue;

        char path[512];
        std::snprintf(path, sizeof path, "/proc/%ld/cmdline", pid);
        FILE *file = std::fopen(path, "r");
        if (file == nullptr) continue;

        // The arguments are NUL-separated, so as text the buffer holds the first one only.
        char line[512];
        if (std::fgets(line, sizeof line, file) == nullptr) {
            std::fclose(file);
            continue;
        }
        char *save = nullptr;
        const char *first = strtok_r(line, " ", &save);
        if (first != nullptr && std::strcmp(first, name) == 0) {
            std::fclose(file);
            closedir(dir);
            return pid;
        }
        std::fclose(file);
    }
    closedir(dir);
    return -1;
}

int getVmSize(int pid) {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/status", pid);
    FILE *file = std::fopen(path, "r");
    if (file == nullptr) {
        KLOG(KORVEX_LOG_ERROR, "fopen %s: %s\n", path, std::strerror(errno));
        return -1;
    }

    int size = -1;
    char line[128];
    while (std::fgets(line, sizeof line, file) != nullptr) {
        if (std::strncmp(line, "VmSize:", 7) == 0) {
            size = parseLine(line);
            break;
        }
    }
    std::fclose(file);
    return size;
}

int parseLine(const char *line) {
    const char *p = line;
    while (*p != '\0' && (*p < '0' || *p > '9')) ++p;
    int value = 0;
    for (; *p >= '0' && *p <= '9'; ++p) {
        const int digit = *p - '0';
        if (value > (INT_MAX - digit) / 10) return INT_MAX;
        value = value * 10 + digit;
    }
    return value;
}

json_t *addVmSize(int size) {
    json_t *object = json_object();
    json_object_set_new(object, "VmSize", json_integer(size));
    return object;
}

int addProcess(json_t *object, const char *name, int size) {
    return json_object_set_new(object, name, addVmSize(size));
}
