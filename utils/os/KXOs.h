// The operating system under libKXUtils: environment and per-user paths,
// files, atomic replacement, locks, clocks, thread ids and network
// interfaces. The rest of utils/ is portable C++ over this header, so a port
// to another system writes one more implementation of it (KXOsPosix.cpp is
// the POSIX one). Internal to libKXUtils; functions may throw std::bad_alloc.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kxos {

// ---------------------------------------------------------------------------
// Environment and paths

// The value of an environment variable; empty when it is unset or empty.
std::string GetEnv(const char* name);

enum class UserDir {
    Config,  // $XDG_CONFIG_HOME, else ~/.config
    State,   // $XDG_STATE_HOME, else ~/.local/state
};
// <dir>/kxserverapi/<name> in the user's directory of that kind; empty when
// the user has no home.
std::string UserFile(UserDir dir, const char* name);
// The directory part of a path ("." when it has none).
std::string DirName(const std::string& path);
// Creates every missing directory above path, private to the user (0700);
// false when the parent is not a directory afterwards.
bool MakeParentDirs(const std::string& path);
// The file a path names once symbolic links are followed; the path itself
// when that cannot be found out.
std::string ResolvePath(const std::string& path);

// ---------------------------------------------------------------------------
// File identity

struct FileStamp {
    unsigned long long device = 0;
    unsigned long long inode = 0;
    long long size = 0;
    long long mtimeNs = 0;  // last change of the content, ns since the epoch
    long long ctimeNs = 0;  // last change of the file's status
    unsigned mode = 0;      // permission bits
};

bool StatPath(const std::string& path, FileStamp& stamp);
// Same device and inode: one file, whatever its names.
bool SameFile(const FileStamp& a, const FileStamp& b);

// ---------------------------------------------------------------------------
// Files

// An open file, closed with the object. Move-only.
class File {
public:
    File() = default;
    ~File();
    File(File&& other) noexcept;
    File& operator=(File&& other) noexcept;
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    static File OpenRead(const std::string& path);
    // For appending (each write lands at the end, also beside other
    // processes); created with `mode` when absent.
    static File OpenAppend(const std::string& path, unsigned mode);
    // A new private file (0600) for a download to target, named
    // target + ".part-<process id>-XXXXXX" (the name goes to tmpPath), so
    // that the partial file of a process that was killed can be told from
    // one still being written.
    static File CreatePartial(const std::string& target, std::string& tmpPath);

    bool ok() const { return handle_ != kNone; }
    // After a failed open: nothing exists at the path (any other failure is
    // a file that exists but cannot be opened).
    bool absent() const { return absent_; }

    // The rest of the file.
    bool ReadAll(std::string& out);
    // Up to size bytes, fewer only at the end; the count, or -1 on failure.
    long long Read(char* buffer, size_t size);
    bool WriteAll(const char* data, size_t size);
    bool WriteAll(const std::string& data) { return WriteAll(data.data(), data.size()); }
    bool Stamp(FileStamp& stamp) const;
    // Until the data is on the disk.
    bool Sync();
    // false when closing reported that written data may be lost.
    bool Close();

private:
    friend class FileLock;
    static constexpr intptr_t kNone = -1;  // a descriptor or a handle
    File(intptr_t handle, bool absent) : handle_(handle), absent_(absent) {}
    intptr_t handle_ = kNone;
    bool absent_ = false;
};

// All of data to the standard error stream.
bool WriteStderr(const std::string& data);

// Puts content in place of target in one step: a temporary file beside it
// with `mode`, written and synced, renamed over target, and the rename
// synced. A reader sees the old content or the new, never a part; on failure
// target is unchanged and no temporary file is left.
bool ReplaceFile(const std::string& target, const std::string& content, unsigned mode);
// Removes the temporary files that writers of target killed before their
// rename left beside it. Only for callers that hold the lock every writer of
// target holds while it writes, so that no live writer's file is taken.
void RemoveLeftoverTemporaries(const std::string& target);
// Removes the partial downloads to target (CreatePartial) of processes that no
// longer run: a download killed mid-way leaves nothing for long.
void RemoveOrphanPartials(const std::string& target);

enum class CreateResult { Created, Exists, Failed };
// Creates path holding exactly data, only when nothing is there yet, with
// the same guarantee: a reader never sees it half-written.
CreateResult CreateFileOnce(const std::string& path, const char* data, size_t size, unsigned mode);

bool Rename(const std::string& from, const std::string& to);
bool RemoveFile(const std::string& path);

enum class PathKind { Absent, File, Directory, Other };
// What a path names once symbolic links are followed.
PathKind KindOf(const std::string& path);

// An exclusive lock shared by all processes on a lock file (created 0600),
// held from construction until destruction.
class FileLock {
public:
    explicit FileLock(const std::string& path);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    bool held() const { return held_; }

private:
    File file_;
    bool held_ = false;
};

// ---------------------------------------------------------------------------
// Clocks and threads

// Milliseconds of a clock that never goes back (intervals, deadlines).
long long MonotonicMs();
// Nanoseconds since the epoch.
long long WallClockNs();

struct LocalTime {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, millisecond = 0;
};
LocalTime LocalTimeNow();
// The local time of a WallClockNs() reading.
LocalTime LocalTimeAt(long long wallClockNs);

// The system's number of the calling thread.
long ThreadId();

// ---------------------------------------------------------------------------
// Network

struct HardwareAddress {
    std::string interfaceName;
    unsigned char bytes[6] = {0, 0, 0, 0, 0, 0};
};
// The 6-byte hardware addresses of the interfaces that are not loopback, in
// the order the system lists them; empty when they cannot be listed.
std::vector<HardwareAddress> HardwareAddresses();

// ---------------------------------------------------------------------------
// Modules (shared libraries loaded at run time)

// The directory of the module that holds address, symbolic links resolved,
// ending in '/'; empty when no module holds it.
std::string ModuleDirOf(const void* address);
// The module at path, loaded with its symbols bound now; null on failure.
void* LoadModule(const std::string& path);
// The address of an exported symbol; null when the module has none.
void* ModuleSymbol(void* module, const char* name);
void FreeModule(void* module);

}  // namespace kxos
