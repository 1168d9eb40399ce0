// The loader of the seal software's local plug-in: one process-wide
// instance, loaded on first use, freed when this library unloads.
#pragma once

#include <mutex>
#include <string>
#include <utility>

// The plug-in's exports.
typedef long (*KXSaveSignRecordExFn)(int recordType, const char* json);
typedef long (*KXGetLastErrorFn)(char* buffer, int* length);

class LoadKXSealApi {
public:
    // Zeroed; the plug-in is looked for below this library's directory.
    LoadKXSealApi() = default;
    // Looks below directory instead (ending in a separator): tests.
    explicit LoadKXSealApi(std::wstring directory) : directory_(std::move(directory)) {}
    ~LoadKXSealApi();
    LoadKXSealApi(const LoadKXSealApi&) = delete;
    LoadKXSealApi& operator=(const LoadKXSealApi&) = delete;

    static LoadKXSealApi& Instance();

    // 0 when loaded (no log then if it already was); 10001 when the file or
    // an export is missing, with nothing kept, so the next call tries again.
    // Safe on several threads at once.
    long Init();
    // The plug-in's code; for a code without a standard text the plug-in's
    // own text becomes the last error.
    long SaveSignRecordEx(int recordType, const char* json);

    void* hModule = nullptr;
    KXSaveSignRecordExFn pfnSaveSignRecordEx = nullptr;
    KXGetLastErrorFn pfnKXGetLastError = nullptr;

private:
    std::wstring directory_;
    std::mutex loading_;
};
