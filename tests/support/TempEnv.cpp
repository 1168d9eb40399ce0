#include "TempEnv.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <filesystem>

#include "KXUtils.h"

namespace {

const char* const kNames[3] = {"KX_CONFIG_FILE", "KX_LOG_FILE", "KX_CONFIG_KEY_FILE"};

}  // namespace

TempEnv::TempEnv() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/kxtest-XXXXXX";
    if (!::mkdtemp(&pattern[0])) throw std::runtime_error("mkdtemp failed for " + pattern);
    dir_ = pattern;
    const std::string values[3] = {configPath(), logPath(), keyPath()};
    for (int i = 0; i < 3; ++i) {
        const char* old = std::getenv(kNames[i]);
        saved_[i] = Saved{kNames[i], old != nullptr, old ? old : ""};
        ::setenv(kNames[i], values[i].c_str(), 1);
    }
}

TempEnv::~TempEnv() {
    // Lines still queued for this directory's log go there before it goes.
    KX_FlushLog();
    for (const Saved& s : saved_) {
        if (s.had) {
            ::setenv(s.name, s.value.c_str(), 1);
        } else {
            ::unsetenv(s.name);
        }
    }
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
}

bool TempEnv::set(const std::string& section, const std::string& key, const std::string& value) {
    return IWK_SetConfigByKey(section, key, value) == 1;
}

void TempEnv::writeConfig(const std::string& text) {
    std::ofstream out(configPath(), std::ios::binary | std::ios::trunc);
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
    if (!out.flush()) throw std::runtime_error("cannot write " + configPath());
}

std::string TempEnv::readLog() const {
    return ReadFileText(logPath());
}

std::string ReadFileText(const std::string& path) {
    KX_FlushLog();  // the log's queued lines are part of its file
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::string();
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}
