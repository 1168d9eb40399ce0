// A private configuration store, log file and key file for one test.
#pragma once

#include <string>

// Makes a fresh temporary directory and points KX_CONFIG_FILE, KX_LOG_FILE and
// KX_CONFIG_KEY_FILE into it; puts the previous environment back and removes
// the directory on destruction.
class TempEnv {
public:
    TempEnv();
    ~TempEnv();
    TempEnv(const TempEnv&) = delete;
    TempEnv& operator=(const TempEnv&) = delete;

    const std::string& dir() const { return dir_; }
    std::string configPath() const { return dir_ + "/KXServerApi.ini"; }
    std::string logPath() const { return dir_ + "/kx.log"; }
    std::string keyPath() const { return dir_ + "/config.key"; }

    // Writes one key through the store's own writer; false when it refused.
    bool set(const std::string& section, const std::string& key, const std::string& value);
    // Replaces the whole store file in place (same file, new content).
    void writeConfig(const std::string& text);
    // The log text so far, empty when no line was written.
    std::string readLog() const;

private:
    struct Saved {
        const char* name;
        bool had;
        std::string value;
    };
    std::string dir_;
    Saved saved_[3];
};

// Whole content of a file, empty when it cannot be read.
std::string ReadFileText(const std::string& path);
