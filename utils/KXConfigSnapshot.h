// One look at the configuration store for reads that belong together (the
// settings of one request, of one log line): the file is checked once, not
// once per key. Internal to libKXUtils.
#pragma once

#include <memory>
#include <string>

#include "KXConfigKeys.h"

namespace kxutils {

class ConfigSnapshot {
public:
    // The store as it is now.
    ConfigSnapshot();
    ~ConfigSnapshot();
    ConfigSnapshot(const ConfigSnapshot&) = delete;
    ConfigSnapshot& operator=(const ConfigSnapshot&) = delete;

    // As IWK_GetConfigByKey, on this snapshot.
    int Get(const std::string& section, const std::string& key, std::string& value,
            const std::string& fallback) const;
    int Get(const std::string& section, const std::string& key, int& value, int fallback) const;
    // As IWK_GetConfig: a key of the table in its section, with its default.
    int Get(KXKey key, std::string& value) const;
    int Get(KXKey key, int& value) const;
    // The parsed store itself: two snapshots with the same one read alike.
    const std::shared_ptr<const void>& store() const { return store_; }

private:
    std::shared_ptr<const void> store_;
};

// The table default of a key as a number (0 when it is none).
int DefaultInt(KXKey key);

// Counts the writes of this process to the store.
unsigned long ConfigGeneration();

}  // namespace kxutils
