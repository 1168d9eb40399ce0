// Per-user file locations and directory creation, shared by the store, the
// key file and the log. Internal to libKXUtils.
#pragma once

#include <string>

namespace kxutils {

// $HOME, else the password database's home; empty when neither is known.
std::string HomeDir();
// $<xdgVar>/kxserverapi/<name> when that variable holds an absolute path
// (relative ones are invalid by the XDG rules), else
// <home>/<homeSubdir>/kxserverapi/<name>; empty when there is no home.
std::string UserFile(const char* xdgVar, const char* homeSubdir, const char* name);
// The directory part of a path ("." when it has none).
std::string DirName(const std::string& path);
// Creates every missing directory above path with mode 0700; false when the
// parent is not a directory afterwards.
bool MakeParentDirs(const std::string& path);

}  // namespace kxutils
