#include "KXPaths.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

namespace kxutils {

std::string HomeDir() {
    const char* home = std::getenv("HOME");
    if (home && *home) return home;
    struct passwd pw;
    struct passwd* found = nullptr;
    std::vector<char> buf(16384);
    if (::getpwuid_r(::getuid(), &pw, buf.data(), buf.size(), &found) == 0 && found &&
        found->pw_dir) {
        return found->pw_dir;
    }
    return std::string();
}

std::string UserFile(const char* xdgVar, const char* homeSubdir, const char* name) {
    const char* xdg = std::getenv(xdgVar);
    if (xdg && xdg[0] == '/') return std::string(xdg) + "/kxserverapi/" + name;
    const std::string home = HomeDir();
    if (home.empty()) return std::string();
    return home + "/" + homeSubdir + "/kxserverapi/" + name;
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

}  // namespace kxutils
