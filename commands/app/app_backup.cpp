// Application configuration backup and restore: the application daemon resets, backs up
// or restores its own configuration and answers an integer, which is printed; a restore is
// stamped as a change of the application data before it starts. "backupKorvexData" copies
// four flash partitions to removable media through the platform's shell service and then
// has the SDK daemon write the Z-Wave controller's non-volatile memory to a file.
#include "commands/app/change_stamp.h"
#include "commands/command_shapes.h"
#include "dbus/peer_catalog.h"
#include "dbus/primitives.h"
#include "base/log.h"
#include "registry/handlers.h"

namespace {

using korvex::shape::print_int_call;
using korvex::shape::run_shell;
namespace peer = korvex::peer;

// The application calls always carry the integer 1.
constexpr int kAppCallArgument = 1;

// Stamps the application data as changed, then asks for the restore.
int restore(request_rec *r, const DbusCallSpec &spec, const char *func) {
    korvex::stamp_application_change(r);
    return print_int_call(r, kAppCallArgument, spec, func);
}

// Flash partitions and the file names they are copied to, in copy order.
struct Partition {
    const char *device;
    const char *file;
};
constexpr Partition kPartitions[] = {
    {"/dev/mtd4", "systeminfo"},
    {"/dev/mtd6", "KorvexData"},
    {"/dev/mtd2", "config"},
    {"/dev/mtd3", "factory"},
};

// Backup folders in copy order; every folder but /media itself is created first.
struct Folder {
    const char *path;
    bool create;
};
constexpr Folder kFolders[] = {
    {"/media", false},
    {"/media/sda1/QTR58", true},
    {"/media/mmcblk0p1/QTR58", true},
};

// The SDK daemon's named command that writes the controller's external NVM to a file.
constexpr char kNvmWriteToFile[] = "NVM_ext_write_to_file";

}  // namespace

int removeAppConfig(request_rec *r, char *) {
    return print_int_call(r, kAppCallArgument, peer::kAppResetConfig, __func__);
}
int backupAppConfig(request_rec *r, char *) {
    return print_int_call(r, kAppCallArgument, peer::kAppBackupConfig, __func__);
}
int restoreAppConfig(request_rec *r, char *) { return restore(r, peer::kAppRestoreConfig, __func__); }
int restoreAppConfig2(request_rec *r, char *) { return restore(r, peer::kAppRestoreConfig2, __func__); }

// Every step runs whatever the earlier ones answered; nothing is printed and the command
// always succeeds.
int backupKorvexData(request_rec *r, char *) {
    KLOG(KORVEX_LOG_TRACE, "enter %s\n", __func__);
    for (const Folder &folder : kFolders) {
        if (folder.create) {
            run_shell(r, peer::kDoSystem3s, "mkdir %s", {folder.path});
        }
        for (const Partition &partition : kPartitions) {
            run_shell(r, peer::kDoSystem3s, "cp %s %s/%s", {partition.device, folder.path, partition.file});
        }
    }
    korvex::string_message(r, kNvmWriteToFile, peer::kSdkEasyCommand);
    KLOG(KORVEX_LOG_TRACE, "leave %s\n", __func__);
    return 1;
}
