#include "records/LoadKXSealApi.h"

#include <vector>

#include "KXUtils.h"
#include "frame/KXCall.h"

namespace {

#if defined(_WIN32)
const wchar_t kPluginPath[] = L"plugins\\seal\\kxoes\\KXSealApi.dll";
#else
const wchar_t kPluginPath[] = L"plugins/seal/kxoes/libKXSealApi.so";
#endif

// Any address inside this library names it to IWK_GetModulePathW.
const char kSelf = 0;

LoadKXSealApi g_sealApi;

}  // namespace

LoadKXSealApi& LoadKXSealApi::Instance() {
    return g_sealApi;
}

LoadKXSealApi::~LoadKXSealApi() {
    if (hModule != nullptr) IWK_FreeLibrary(hModule);
}

long LoadKXSealApi::Init() {
    // Two first records on two threads load the plug-in once.
    std::lock_guard<std::mutex> lock(loading_);
    if (hModule != nullptr) return KX_OK;
    const long code = KXGuard([&] {
        const std::wstring dir = directory_.empty() ? IWK_GetModulePathW(&kSelf) : directory_;
        hModule = IWK_LoadLibraryW((dir + kPluginPath).c_str());
        if (hModule == nullptr) return KX_ERR_INVALID_VALUE;
        pfnSaveSignRecordEx =
            reinterpret_cast<KXSaveSignRecordExFn>(IWK_GetProcAddress(hModule, "SaveSignRecordEx"));
        pfnKXGetLastError =
            reinterpret_cast<KXGetLastErrorFn>(IWK_GetProcAddress(hModule, "KXGetLastError"));
        if (pfnSaveSignRecordEx != nullptr && pfnKXGetLastError != nullptr) return KX_OK;
        return KX_ERR_INVALID_VALUE;
    });
    if (code != KX_OK) {
        // Nothing half-loaded stays behind: the next call starts over.
        IWK_FreeLibrary(hModule);
        hModule = nullptr;
        pfnSaveSignRecordEx = nullptr;
        pfnKXGetLastError = nullptr;
    }
    KX_LOG(KX_LOG_TRACE, "KXSaveSignRecord", "LoadKXSealApi::Init", "lRes:%d",
           static_cast<int>(code));
    return code;
}

long LoadKXSealApi::SaveSignRecordEx(int recordType, const char* json) {
    long code = Init();
    if (code != KX_OK) return code;
    code = pfnSaveSignRecordEx(recordType, json);
    if (!IWK_IsUnknownError(code)) return code;
    // The plug-in's own code: its text, length first.
    int length = 0;
    pfnKXGetLastError(nullptr, &length);
    std::vector<char> buffer(static_cast<size_t>(length > 0 ? length : 0) + 1, '\0');
    pfnKXGetLastError(buffer.data(), &length);
    buffer.back() = '\0';
    IWK_SetLastError(code, IWK_Utf8ToWideChar(buffer.data()));
    return code;
}
