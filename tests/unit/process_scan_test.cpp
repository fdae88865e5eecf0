#include "base/process_scan.h"

#include "korvex_log.h"

#include <dirent.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern char **environ;

namespace {

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// A sleeping child started with the given argv[0]; killed and reaped on destruction.
class Child {
 public:
    explicit Child(const std::string &argv0) {
        std::string seconds = "60";
        char *argv[] = {const_cast<char *>(argv0.c_str()), seconds.data(), nullptr};
        if (posix_spawn(&pid_, "/bin/sleep", nullptr, nullptr, argv, environ) != 0) pid_ = -1;
        // Until exec is done the child still shows this program's command line.
        const std::string expected = argv0 + '\0' + seconds + '\0';
        for (int i = 0; i < 500 && pid_ > 0; ++i) {
            if (read_file("/proc/" + std::to_string(pid_) + "/cmdline") == expected) break;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    ~Child() { stop(); }
    void stop() {
        if (pid_ <= 0) return;
        kill(pid_, SIGKILL);
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
    }
    pid_t pid() const { return pid_; }

 private:
    pid_t pid_ = -1;
};

std::string unique_name(const char *stem) {
    return std::string(stem) + "-" + std::to_string(getpid()) + "-" + std::to_string(std::rand());
}

// Names of their own: other tests on the machine start processes called "update" too.
TEST(ProcFindTest, FindsAChildByItsName) {
    const std::string name = unique_name("update");
    Child child(name);
    ASSERT_GT(child.pid(), 0);
    EXPECT_EQ(proc_find(name.c_str()), child.pid());
    child.stop();
    EXPECT_EQ(proc_find(name.c_str()), -1);
}

TEST(ProcFindTest, ComparesTheWholeFirstArgument) {
    const std::string name = unique_name("update");
    const std::string path = "/some/path/" + name;
    Child child(path);
    ASSERT_GT(child.pid(), 0);
    EXPECT_EQ(proc_find(name.c_str()), -1);
    EXPECT_EQ(proc_find(path.c_str()), child.pid());
    EXPECT_EQ(proc_find(path.substr(0, path.size() - 1).c_str()), -1);
    EXPECT_EQ(proc_find((path + "2").c_str()), -1);
}

TEST(ProcFindTest, FirstArgumentEndsAtABlank) {
    const std::string name = unique_name("korvex-blank");
    Child child(name + " tail");
    ASSERT_GT(child.pid(), 0);
    EXPECT_EQ(proc_find(name.c_str()), child.pid());
    EXPECT_EQ(proc_find((name + " tail").c_str()), -1);
}

TEST(ProcFindTest, FirstMatchInDirectoryOrder) {
    const std::string name = unique_name("korvex-dup");
    std::vector<std::unique_ptr<Child>> children;
    for (int i = 0; i < 4; ++i) {
        children.push_back(std::make_unique<Child>(name));
        ASSERT_GT(children.back()->pid(), 0);
    }
    // The expected answer: the first of the children that /proc lists.
    long expected = -1;
    DIR *dir = opendir("/proc");
    ASSERT_NE(dir, nullptr);
    while (struct dirent *entry = readdir(dir)) {
        const long pid = std::atol(entry->d_name);
        for (const auto &child : children) {
            if (pid == child->pid()) {
                expected = pid;
                break;
            }
        }
        if (expected != -1) break;
    }
    closedir(dir);
    ASSERT_NE(expected, -1);
    EXPECT_EQ(proc_find(name.c_str()), expected);
}

TEST(ProcFindTest, UnknownAndEmptyNamesAreNotFound) {
    EXPECT_EQ(proc_find(unique_name("korvex-none").c_str()), -1);
    // Kernel threads (empty command lines) and an empty argv[0] never match, so no
    // process id of 0 or any other comes back for an empty name.
    Child child("");
    ASSERT_GT(child.pid(), 0);
    EXPECT_EQ(proc_find(""), -1);
}

TEST(ProcFindTest, NeverReturnsZero) {
    const std::string self = read_file("/proc/self/cmdline");
    const std::string argv0 = self.substr(0, self.find('\0'));
    ASSERT_FALSE(argv0.empty());
    const long pid = proc_find(argv0.substr(0, argv0.find(' ')).c_str());
    EXPECT_GT(pid, 0);
}

TEST(GetVmSizeTest, OwnProcessMatchesTheStatusFile) {
    const std::string status = read_file("/proc/self/status");
    const std::size_t at = status.find("\nVmSize:");
    ASSERT_NE(at, std::string::npos);
    // Sizes past INT_MAX kB (sanitizer shadow memory) saturate.
    const long long expected = std::min(std::atoll(status.c_str() + at + 8), 2147483647LL);
    const int size = getVmSize(static_cast<int>(getpid()));
    EXPECT_GT(size, 0);
    // The size may move a little between the two reads (threads, heap).
    EXPECT_NEAR(static_cast<double>(size), static_cast<double>(expected), 64 * 1024);
}

TEST(GetVmSizeTest, KernelThreadHasNone) {
    if (read_file("/proc/2/status").find("Name:\tkthreadd") == std::string::npos) {
        GTEST_SKIP() << "process 2 is not kthreadd here";
    }
    EXPECT_EQ(getVmSize(2), -1);
}

TEST(GetVmSizeTest, EndedProcessHasNone) {
    Child child(unique_name("korvex-ended"));
    const pid_t pid = child.pid();
    ASSERT_GT(pid, 0);
    EXPECT_GT(getVmSize(pid), 0);
    child.stop();
    testing::internal::CaptureStderr();
    EXPECT_EQ(getVmSize(pid), -1);
    const std::string log = testing::internal::GetCapturedStderr();
    if (korvex_log_threshold() > KORVEX_LOG_ERROR) return;  // errors filtered out here
    EXPECT_NE(log.find("[korvex:6]"), std::string::npos) << log;
    EXPECT_NE(log.find("fopen /proc/" + std::to_string(pid) + "/status: No such file or directory\n"),
              std::string::npos)
        << log;
}

TEST(ParseLineTest, ReadsTheNumberBeforeTheUnit) {
    char line[] = "VmSize:\t  123456 kB\n";
    EXPECT_EQ(parseLine(line), 123456);
    EXPECT_EQ(parseLine("VmSize:\t0 kB\n"), 0);
    EXPECT_EQ(parseLine("VmSize: 42kB"), 42);
    EXPECT_EQ(parseLine("VmSize:"), 0);
    EXPECT_EQ(parseLine("VmSize: 99999999999999 kB"), 2147483647);
}

TEST(AddProcessTest, BuildsVmSizeObjects) {
    json_t *size = addVmSize(1234);
    char *text = json_dumps(size, JSON_COMPACT | JSON_SORT_KEYS);
    EXPECT_STREQ(text, "{\"VmSize\":1234}");
    free(text);
    json_decref(size);

    json_t *report = json_object();
    EXPECT_EQ(addProcess(report, "httpd", 100), 0);
    EXPECT_EQ(addProcess(report, "korvex-sdk", 200), 0);
    EXPECT_EQ(addProcess(report, "httpd", 300), 0);  // replaces the earlier member
    text = json_dumps(report, JSON_COMPACT | JSON_ENSURE_ASCII | JSON_SORT_KEYS);
    EXPECT_STREQ(text, "{\"httpd\":{\"VmSize\":300},\"korvex-sdk\":{\"VmSize\":200}}");
    free(text);
    EXPECT_EQ(addProcess(nullptr, "x", 1), -1);
    json_decref(report);
}

}  // namespace
