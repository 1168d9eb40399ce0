// KXOs.h on POSIX (Linux): the one file of libKXUtils that calls the system.
#include "KXOs.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <memory>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <pwd.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace kxos {

namespace {

int Fd(intptr_t handle) {
    return static_cast<int>(handle);
}

bool WriteFd(int fd, const char* data, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n = ::write(fd, data + done, size - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

long long Ns(const struct timespec& t) {
    return static_cast<long long>(t.tv_sec) * 1000000000LL + t.tv_nsec;
}

FileStamp StampOf(const struct stat& st) {
    FileStamp s;
    s.device = static_cast<unsigned long long>(st.st_dev);
    s.inode = static_cast<unsigned long long>(st.st_ino);
    s.size = static_cast<long long>(st.st_size);
    s.mtimeNs = Ns(st.st_mtim);
    s.ctimeNs = Ns(st.st_ctim);
    s.mode = static_cast<unsigned>(st.st_mode & 07777);
    return s;
}

// $HOME, else the password database's home; empty when neither is known.
std::string HomeDir() {
    const std::string home = GetEnv("HOME");
    if (!home.empty()) return home;
    struct passwd pw;
    struct passwd* found = nullptr;
    std::vector<char> buf(16384);
    if (::getpwuid_r(::getuid(), &pw, buf.data(), buf.size(), &found) == 0 && found &&
        found->pw_dir) {
        return found->pw_dir;
    }
    return std::string();
}

// A private temporary file beside path holding data, synced and closed; its
// name goes to tmp. Nothing is left behind on failure.
bool WriteTemporary(const std::string& path, const char* data, size_t size, unsigned mode,
                    std::string& tmp) {
    tmp = path + ".tmpXXXXXX";
    const int fd = ::mkostemp(&tmp[0], O_CLOEXEC);
    if (fd < 0) return false;
    bool ok =
        ::fchmod(fd, static_cast<mode_t>(mode)) == 0 && WriteFd(fd, data, size) && ::fsync(fd) == 0;
    ok = ::close(fd) == 0 && ok;
    if (!ok) ::unlink(tmp.c_str());
    return ok;
}

}  // namespace

std::string GetEnv(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? std::string(value) : std::string();
}

std::string UserFile(UserDir dir, const char* name) {
    const bool config = dir == UserDir::Config;
    // A relative XDG path is invalid by the XDG rules and ignored.
    const std::string xdg = GetEnv(config ? "XDG_CONFIG_HOME" : "XDG_STATE_HOME");
    if (!xdg.empty() && xdg[0] == '/') return xdg + "/kxserverapi/" + name;
    const std::string home = HomeDir();
    if (home.empty()) return std::string();
    return home + (config ? "/.config" : "/.local/state") + "/kxserverapi/" + name;
}

std::string DirName(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

bool MakeParentDirs(const std::string& path) {
    const std::string dir = DirName(path);
    struct stat st;
    if (::stat(dir.c_str(), &st) == 0) return S_ISDIR(st.st_mode);
    for (size_t pos = 1; pos <= dir.size(); ++pos) {
        if (pos != dir.size() && dir[pos] != '/') continue;
        const std::string prefix = dir.substr(0, pos);
        if (::mkdir(prefix.c_str(), 0700) != 0 && errno != EEXIST) return false;
    }
    return ::stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string ResolvePath(const std::string& path) {
    char* real = ::realpath(path.c_str(), nullptr);
    if (real == nullptr) return path;
    const std::unique_ptr<char, void (*)(void*)> owned(real, std::free);
    return std::string(real);
}

bool StatPath(const std::string& path, FileStamp& stamp) {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) return false;
    stamp = StampOf(st);
    return true;
}

bool SameFile(const FileStamp& a, const FileStamp& b) {
    return a.device == b.device && a.inode == b.inode;
}

// ---------------------------------------------------------------------------
// File

File::~File() {
    Close();
}

File::File(File&& other) noexcept : handle_(other.handle_), absent_(other.absent_) {
    other.handle_ = kNone;
}

File& File::operator=(File&& other) noexcept {
    if (this != &other) {
        Close();
        handle_ = other.handle_;
        absent_ = other.absent_;
        other.handle_ = kNone;
    }
    return *this;
}

File File::OpenRead(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    return File(fd, fd < 0 && errno == ENOENT);
}

File File::OpenAppend(const std::string& path, unsigned mode) {
    const int fd =
        ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, static_cast<mode_t>(mode));
    return File(fd, fd < 0 && errno == ENOENT);
}

File File::CreatePartial(const std::string& target, std::string& tmpPath) {
    tmpPath = target + ".part-" + std::to_string(::getpid()) + "-XXXXXX";
    const int fd = ::mkostemp(&tmpPath[0], O_CLOEXEC);
    return File(fd, fd < 0 && errno == ENOENT);
}

bool File::ReadAll(std::string& out) {
    out.clear();
    char buf[65536];
    for (;;) {
        const long long n = Read(buf, sizeof buf);
        if (n < 0) return false;
        out.append(buf, static_cast<size_t>(n));
        if (static_cast<size_t>(n) < sizeof buf) return true;
    }
}

long long File::Read(char* buffer, size_t size) {
    if (!ok()) return -1;
    size_t done = 0;
    while (done < size) {
        const ssize_t n = ::read(Fd(handle_), buffer + done, size - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        if (n == 0) break;
        done += static_cast<size_t>(n);
    }
    return static_cast<long long>(done);
}

bool File::WriteAll(const char* data, size_t size) {
    return ok() && WriteFd(Fd(handle_), data, size);
}

bool File::Stamp(FileStamp& stamp) const {
    struct stat st;
    if (!ok() || ::fstat(Fd(handle_), &st) != 0) return false;
    stamp = StampOf(st);
    return true;
}

bool File::Sync() {
    return ok() && ::fsync(Fd(handle_)) == 0;
}

bool File::Close() {
    if (!ok()) return true;
    const int fd = Fd(handle_);
    handle_ = kNone;
    return ::close(fd) == 0;
}

bool WriteStderr(const std::string& data) {
    return WriteFd(STDERR_FILENO, data.data(), data.size());
}

bool ReplaceFile(const std::string& target, const std::string& content, unsigned mode) {
    std::string tmp;
    if (!WriteTemporary(target, content.data(), content.size(), mode, tmp)) return false;
    if (::rename(tmp.c_str(), target.c_str()) != 0) {
        ::unlink(tmp.c_str());
        return false;
    }
    // The rename itself must reach the disk too.
    const int dir = ::open(DirName(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    return true;
}

void RemoveLeftoverTemporaries(const std::string& target) {
    DIR* dir = ::opendir(DirName(target).c_str());
    if (dir == nullptr) return;
    const size_t slash = target.rfind('/');
    // The names WriteTemporary makes: <name>.tmp and six characters.
    const std::string stem =
        (slash == std::string::npos ? target : target.substr(slash + 1)) + ".tmp";
    while (const struct dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        if (name.size() == stem.size() + 6 && name.compare(0, stem.size(), stem) == 0)
            ::unlinkat(::dirfd(dir), entry->d_name, 0);
    }
    ::closedir(dir);
}

void RemoveOrphanPartials(const std::string& target) {
    DIR* dir = ::opendir(DirName(target).c_str());
    if (dir == nullptr) return;
    const size_t slash = target.rfind('/');
    const std::string stem =
        (slash == std::string::npos ? target : target.substr(slash + 1)) + ".part-";
    while (const struct dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        if (name.compare(0, stem.size(), stem) != 0) continue;
        // <stem><pid>-XXXXXX
        const size_t dash = name.find('-', stem.size());
        if (dash == std::string::npos || dash == stem.size() || name.size() != dash + 7) continue;
        char* end = nullptr;
        const long pid = std::strtol(name.c_str() + stem.size(), &end, 10);
        if (end != name.c_str() + dash || pid <= 0) continue;
        if (::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH)
            ::unlinkat(::dirfd(dir), entry->d_name, 0);
    }
    ::closedir(dir);
}

CreateResult CreateFileOnce(const std::string& path, const char* data, size_t size, unsigned mode) {
    std::string tmp;
    if (!WriteTemporary(path, data, size, mode, tmp)) return CreateResult::Failed;
    // A link fails when the name is taken: whoever came first wins whole.
    const int linked = ::link(tmp.c_str(), path.c_str());
    const int linkErr = errno;
    ::unlink(tmp.c_str());
    if (linked == 0) return CreateResult::Created;
    return linkErr == EEXIST ? CreateResult::Exists : CreateResult::Failed;
}

bool Rename(const std::string& from, const std::string& to) {
    return ::rename(from.c_str(), to.c_str()) == 0;
}

bool RemoveFile(const std::string& path) {
    return ::unlink(path.c_str()) == 0;
}

PathKind KindOf(const std::string& path) {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) return PathKind::Absent;
    if (S_ISREG(st.st_mode)) return PathKind::File;
    return S_ISDIR(st.st_mode) ? PathKind::Directory : PathKind::Other;
}

FileLock::FileLock(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return;
    file_ = File(fd, false);
    while (::flock(fd, LOCK_EX) != 0) {
        if (errno != EINTR) return;
    }
    held_ = true;
}

// Closing the file releases the lock.
FileLock::~FileLock() = default;

// ---------------------------------------------------------------------------
// Clocks and threads

long long MonotonicMs() {
    struct timespec now;
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

long long WallClockNs() {
    struct timespec now;
    ::clock_gettime(CLOCK_REALTIME, &now);
    return Ns(now);
}

LocalTime LocalTimeNow() {
    return LocalTimeAt(WallClockNs());
}

LocalTime LocalTimeAt(long long wallClockNs) {
    struct timespec now;
    now.tv_sec = static_cast<time_t>(wallClockNs / 1000000000LL);
    now.tv_nsec = static_cast<long>(wallClockNs % 1000000000LL);
    struct tm tm;
    ::localtime_r(&now.tv_sec, &tm);
    LocalTime t;
    t.year = tm.tm_year + 1900;
    t.month = tm.tm_mon + 1;
    t.day = tm.tm_mday;
    t.hour = tm.tm_hour;
    t.minute = tm.tm_min;
    t.second = tm.tm_sec;
    t.millisecond = static_cast<int>(now.tv_nsec / 1000000L);
    return t;
}

long ThreadId() {
    // A thread keeps its id: asked once.
    static thread_local const long tid = static_cast<long>(::syscall(SYS_gettid));
    return tid;
}

// ---------------------------------------------------------------------------
// Network

std::vector<HardwareAddress> HardwareAddresses() {
    std::vector<HardwareAddress> found;
    struct ifaddrs* raw = nullptr;
    if (::getifaddrs(&raw) != 0) return found;
    const std::unique_ptr<struct ifaddrs, void (*)(struct ifaddrs*)> list(raw, ::freeifaddrs);
    for (struct ifaddrs* it = list.get(); it; it = it->ifa_next) {
        if (!it->ifa_addr || it->ifa_addr->sa_family != AF_PACKET || !it->ifa_name) continue;
        if (it->ifa_flags & IFF_LOOPBACK) continue;
        const auto* ll = reinterpret_cast<const struct sockaddr_ll*>(it->ifa_addr);
        if (ll->sll_halen != 6) continue;
        HardwareAddress address;
        address.interfaceName = it->ifa_name;
        for (int i = 0; i < 6; ++i) address.bytes[i] = ll->sll_addr[i];
        found.push_back(address);
    }
    return found;
}

// ---------------------------------------------------------------------------
// Modules

std::string ModuleDirOf(const void* address) {
    Dl_info info;
    if (address == nullptr || ::dladdr(address, &info) == 0 || info.dli_fname == nullptr ||
        info.dli_fname[0] == '\0') {
        return std::string();
    }
    // The name the loader used may be relative or a link; the plug-in lies
    // beside the real file.
    const std::string dir = DirName(ResolvePath(info.dli_fname));
    return dir == "/" ? dir : dir + "/";
}

void* LoadModule(const std::string& path) {
    if (path.empty()) return nullptr;
    return ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
}

void* ModuleSymbol(void* module, const char* name) {
    if (module == nullptr || name == nullptr) return nullptr;
    return ::dlsym(module, name);
}

void FreeModule(void* module) {
    if (module != nullptr) ::dlclose(module);
}

}  // namespace kxos
