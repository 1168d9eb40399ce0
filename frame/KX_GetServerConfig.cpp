// Reading a server description from the configuration store.
#include "KXServerApi.h"
#include "KXUtils.h"
#include "frame/KXCall.h"

long KX_GetServerConfig(const std::string& section, _init_Info_s& info) {
    KX_LOG(KX_LOG_TRACE, "KXServerBase", "KX_GetServerConfig", "section:%s", section.c_str());
    return KXGuard([&] {
        IWK_GetConfigByKey(section, "SerType", info.SerType, 0);
        IWK_GetConfigByKey(section, "Host", info.ServerIp, "");
        IWK_GetConfigByKey(section, "Port", info.Port, 0);
        IWK_GetConfigByKey(section, "ProjectID", info.ProjectID, "");
        std::string stored;
        IWK_GetConfigByKey(section, "ProjectSecret", stored, "");
        // A secret stored in clear still works: keep the stored text when it does not decipher.
        std::string clear = IWK_DecryptEncryptedConfigInfo(stored);
        info.ProjectSecret = clear.empty() ? stored : clear;
        IWK_RegisterSecret(info.ProjectSecret);
        return static_cast<long>(KX_OK);
    });
}
