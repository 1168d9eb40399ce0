// What the library leaves on users' disks when things go wrong around it: a
// store writer killed at any instant, and a log on a full disk.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include "KXServerApi.h"
#include "KXUtils.h"
#include "LoopbackServer.h"
#include "TempEnv.h"

namespace {

std::string Read(const std::string& section, const std::string& key) {
    std::string value;
    return std::to_string(IWK_GetConfigByKey(section, key, value, "")) + ":" + value;
}

int LeftoverTemporaries(const std::string& dir) {
    int n = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir))
        n += entry.path().filename().string().rfind("KXServerApi.ini.tmp", 0) == 0;
    return n;
}

// Runs body in a child process that sees a 64 KiB tmpfs at dir; the child's
// exit status. Root mounts in a private mount namespace; anyone else in a
// user namespace of their own.
int InSmallTmpfs(const std::string& dir, int (*body)(const std::string&)) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        if (::unshare(CLONE_NEWNS) != 0 && ::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) _exit(90);
        if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) _exit(91);
        if (::mount("tmpfs", dir.c_str(), "tmpfs", 0, "size=64k") != 0) _exit(92);
        _exit(body(dir));
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

// A writer killed by SIGKILL at any point of its rewrite never leaves a
// half-written store: every read in between and after sees one whole file, and
// the next writer clears the temporary files the killed ones left.
TEST(CrashSafety, StoreWriterKilledAnywhereLeavesAWholeFile) {
    TempEnv env;
    const std::string a(100000, 'a'), b(100000, 'b');
    env.writeConfig("[S]\nbefore=1\nbig=" + a + "\nafter=2\n");
    const size_t fileSize = ReadFileText(env.configPath()).size();
    // Writes completed by the children, so that the test knows they ran.
    auto* done = static_cast<int*>(
        ::mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(MAP_FAILED, static_cast<void*>(done));
    *done = 0;

#if defined(__SANITIZE_ADDRESS__)
    const int kIterations = 40;  // a fork of an instrumented process is slow
#else
    const int kIterations = 200;
#endif
    int bad = 0;
    for (int i = 0; i < kIterations; ++i) {
        const pid_t writer = ::fork();
        ASSERT_LE(0, writer);
        if (writer == 0) {
            for (int n = 0;; ++n)
                if (IWK_SetConfigByKey("S", "big", n % 2 ? a : b) == 1)
                    __atomic_add_fetch(done, 1, __ATOMIC_RELAXED);
        }
        // Every other writer is first seen to finish a rewrite, so that the
        // kills land in later rewrites too (and a writer that hangs shows).
        const int before = __atomic_load_n(done, __ATOMIC_RELAXED);
        for (int wait = 0;
             i % 2 && wait < 2000 && __atomic_load_n(done, __ATOMIC_RELAXED) == before; ++wait)
            ::usleep(1000);
        // Reads while the writer runs, for a varying time, then the kill.
        for (int r = 0; r < 1 + i % 40; ++r) {
            const std::string big = Read("S", "big");
            bad += (big != "1:" + a && big != "1:" + b) ||
                   Read("S", "before") + Read("S", "after") != "1:11:2" ||
                   ReadFileText(env.configPath()).size() != fileSize;
        }
        ::kill(writer, SIGKILL);
        ::waitpid(writer, nullptr, 0);
        const std::string big = Read("S", "big");
        bad += big != "1:" + a && big != "1:" + b;
    }
    EXPECT_EQ(0, bad);
    EXPECT_LE(kIterations / 2, __atomic_load_n(done, __ATOMIC_RELAXED));
    ::munmap(done, sizeof(int));

    ASSERT_TRUE(env.set("S", "after", "3"));
    EXPECT_EQ(0, LeftoverTemporaries(env.dir()));
    EXPECT_EQ("1:3", Read("S", "after"));
}

// A download killed mid-way never touches the file it was to replace, and the
// partial file it leaves goes with the next download to that target.
TEST(CrashSafety, DownloadKilledMidwayLeavesNoPartialFile) {
    TempEnv env;
    kxtest::LoopbackServer server;
    kxtest::Reply drip(200, std::string(2000, 'd'));
    drip.fault = kxtest::Reply::Fault::Drip;
    server.handle("/slow", [drip](const kxtest::RecordedRequest&) { return drip; });
    server.setDefaultReply(kxtest::Reply(200, "new document"));
    const std::string target = env.dir() + "/doc.pdf";
    {
        std::ofstream old(target);
        old << "old document";
    }
    const std::string params = R"({"fileName":")" + target + "\"}";
    auto partials = [&] {
        int n = 0;
        for (const auto& entry : std::filesystem::directory_iterator(env.dir()))
            n += entry.path().filename().string().rfind("doc.pdf.part-", 0) == 0;
        return n;
    };

    const pid_t child = ::fork();
    ASSERT_LE(0, child);
    if (child == 0) {
        KXReqResult result;
        CIWKHttp::Get(server.url("/slow"), params, "", &result, HTTP_REQ_DOWNLOAD, nullptr);
        _exit(0);
    }
    for (int wait = 0; wait < 5000 && partials() == 0; ++wait) ::usleep(1000);
    EXPECT_EQ(1, partials());  // the download is under way
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    EXPECT_EQ("old document", ReadFileText(target));

    KXReqResult result;
    EXPECT_EQ(0, CIWKHttp::Get(server.url("/ok"), params, "", &result, HTTP_REQ_DOWNLOAD, nullptr));
    EXPECT_EQ("new document", ReadFileText(target));
    EXPECT_EQ(0, partials());
}

// The log on a full disk loses lines, never the caller's result.
TEST(CrashSafety, FullDiskFailsNoCaller) {
    TempEnv env;
    ASSERT_TRUE(env.set("KXUtils", "LogLevel", "1"));
    const std::string small = env.dir() + "/small";
    std::filesystem::create_directory(small);
    const int status = InSmallTmpfs(small, [](const std::string& dir) {
        ::setenv("KX_LOG_FILE", (dir + "/kx.log").c_str(), 1);
        const std::string filler(300, 'x');
        struct statvfs fs;
        int full = 0;
        for (int i = 0; i < 20000 && full < 500; ++i) {
            KX_WriteLog(KX_LOG_TRACE, "line %d %s", i, filler.c_str());
            full += ::statvfs(dir.c_str(), &fs) == 0 && fs.f_bavail == 0;
        }
        if (full == 0) return 2;  // the disk never filled: nothing was tried
        int type = -1;
        if (KX_GetServerTypeByStr("Agent", type, -1) != 0 || type != 4) return 3;
        long code = 0;
        std::string text;
        IWK_SetLastError(10005, "still here");
        return IWK_GetLastError(code, text) && code == 10005 && text == "still here" ? 0 : 4;
    });
    EXPECT_EQ(0, status) << "90-92: no private tmpfs could be mounted";
}
