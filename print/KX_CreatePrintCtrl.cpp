// The factory of print control: a version number becomes a ready object, and
// back. Objects are destroyed through their concrete class, chosen by
// Version, since PrintCtrlHelper's destructor is not virtual.
#include <memory>

#include "KXPrintCtrl.h"
#include "KXSealOpenApi.h"
#include "KXServerApi.h"
#include "KXUtils.h"
#include "frame/KXCall.h"

namespace {

// The object is exactly a T, as Version says, so deleting it as one is sound
// although its destructor is not virtual.
template <typename T>
void Destroy(T* object) {
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdelete-non-virtual-dtor"
#endif
    delete object;
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
}

template <typename T>
long Make(long version, const char* section, PrintCtrlHelper** ppHelper) {
    std::unique_ptr<T, void (*)(T*)> object(new T(), &Destroy<T>);
    _init_Info_s info;
    KX_GetServerConfig(section, info);
    const long lRes = object->Init(info);
    if (lRes != KX_OK) return lRes;  // a failed Init takes the object with it
    object->Version = version;
    *ppHelper = static_cast<PrintCtrlHelper*>(object.release());
    return KX_OK;
}

}  // namespace

long KX_CreatePrintCtrl(long version, PrintCtrlHelper** ppHelper) {
    if (ppHelper == nullptr) return KX_ERR_ARGUMENT_EMPTY;
    KX_ReleasePrintCtrl(ppHelper);
    return KXGuard([&] {
        switch (version) {
            case 1:
                return Make<CKXSealOpenApi>(version, "OpenApiURL", ppHelper);
            case 3:
                return Make<KXPrintCtrl>(version, "KXPrintCtrl", ppHelper);
            default:
                return static_cast<long>(KX_ERR_PRINT_VERSION);
        }
    });
}

void KX_ReleasePrintCtrl(PrintCtrlHelper** ppHelper) {
    if (ppHelper == nullptr || *ppHelper == nullptr) return;
    PrintCtrlHelper* helper = *ppHelper;
    switch (helper->Version) {
        case 1:
            Destroy(static_cast<CKXSealOpenApi*>(helper));
            break;
        case 3:
            Destroy(static_cast<KXPrintCtrl*>(helper));
            break;
        default:
            // Not ours to destroy: its class is unknown.
            KX_LOG(KX_LOG_ERROR, "PrintCtrlHelper", "KX_ReleasePrintCtrl", "Version:%d",
                   static_cast<int>(helper->Version));
            break;
    }
    *ppHelper = nullptr;
}
