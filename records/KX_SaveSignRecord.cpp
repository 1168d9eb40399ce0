// A finished signature, handed to the seal software's local plug-in.
#include "KXRecords.h"
#include "KXUtils.h"
#include "frame/KXCall.h"
#include "records/LoadKXSealApi.h"

long KX_SaveSignRecord(int recordType, const char* signDataB64, const char* signValueB64,
                       const char* docPath, const char* certB64) {
    // The plug-in is not loaded for a record that cannot be made.
    const long code = KXGuard([&]() -> long {
        if (IWK_Len(signDataB64) == 0 || IWK_Len(signValueB64) == 0) return KX_ERR_ARGUMENT_EMPTY;
        const bool certRecord = recordType == 3;
        if (certRecord && IWK_Len(certB64) == 0) return KX_ERR_ARGUMENT_EMPTY;
        Json::Value record(Json::objectValue);
        record["signDataB64"] = signDataB64;
        record["signValueB64"] = signValueB64;
        if (certRecord) {
            record["certB64"] = certB64;
        } else if (IWK_Len(docPath) != 0) {
            record["docName"] = IWK_GetBaseName(docPath);
        }
        return LoadKXSealApi::Instance().SaveSignRecordEx(recordType,
                                                          kxjson::Write(record).c_str());
    });
    KX_LOG(KX_LOG_TRACE, "KXSaveSignRecord", "KX_SaveSignRecord", "lRes:%d",
           static_cast<int>(code));
    return code;
}
