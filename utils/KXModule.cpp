// Modules loaded at run time: the directory of a module, loading, symbols,
// unloading. Wide paths are UTF-8 on this system, where file names are bytes.
#include "KXUtils.h"
#include "os/KXOs.h"

std::wstring IWK_GetModulePathW(const void* module) {
    try {
        return IWK_Utf8ToWideChar(kxos::ModuleDirOf(module));
    } catch (...) {
        return std::wstring();
    }
}

void* IWK_LoadLibraryW(const wchar_t* path) {
    if (path == nullptr) return nullptr;
    try {
        return kxos::LoadModule(IWK_WideCharToUtf8(path));
    } catch (...) {
        return nullptr;
    }
}

void* IWK_GetProcAddress(void* module, const char* name) {
    return kxos::ModuleSymbol(module, name);
}

void IWK_FreeLibrary(void* module) {
    kxos::FreeModule(module);
}
