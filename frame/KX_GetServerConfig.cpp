// Reading a server description from the configuration store.
#include "KXServerApi.h"
#include "KXUtils.h"
#include "frame/KXCall.h"

long KX_GetServerConfig(const std::string& section, _init_Info_s& info) {
    KX_LOG(KX_LOG_TRACE, "KXServerBase", "KX_GetServerConfig", "section:%s", section.c_str());
    return KXGuard([&] {
        IWK_GetConfig(section, KXKey::SerType, info.SerType);
        IWK_GetConfig(section, KXKey::Host, info.ServerIp);
        IWK_GetConfig(section, KXKey::Port, info.Port);
        IWK_GetConfig(section, KXKey::ProjectID, info.ProjectID);
        std::string stored;
        IWK_GetConfig(section, KXKey::ProjectSecret, stored);
        // A secret stored in clear still works: keep the stored text when it does not decipher.
        std::string clear = IWK_DecryptEncryptedConfigInfo(stored);
        info.ProjectSecret = clear.empty() ? stored : clear;
        IWK_RegisterSecret(info.ProjectSecret);
        return static_cast<long>(KX_OK);
    });
}
