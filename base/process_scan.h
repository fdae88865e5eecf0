// Readers of the Linux process file system.
#pragma once

#include <jansson.h>
#include <sys/types.h>

// Process id of the first process (in /proc directory order) whose first command-line
// argument equals name exactly, or -1.
long proc_find(const char *name);
// VmSize of the process in kB, or -1 (no such process, or a kernel thread).
int getVmSize(int pid);
// The number on a "VmSize:" status line.
int parseLine(const char *line);
// New JSON object {"VmSize": size}.
json_t *addVmSize(int size);
// object[name] = {"VmSize": size}; returns json_object_set_new's status.
int addProcess(json_t *object, const char *name, int size);
