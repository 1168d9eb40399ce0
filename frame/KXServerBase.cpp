// The base of every client: the record and its check.
#include "KXServerBase.h"

#include "KXUtils.h"
#include "frame/KXCall.h"

namespace {
const char kSource[] = "KXServerBase";
}

KXServerBase::KXServerBase() = default;
KXServerBase::KXServerBase(const KXServerBase& other) = default;
KXServerBase& KXServerBase::operator=(const KXServerBase& other) = default;
KXServerBase::~KXServerBase() = default;

long KXServerBase::CheckInitInfo(const _init_Info_s& info) {
    const bool hasId = !info.ProjectID.empty();
    const bool hasSecret = !info.ProjectSecret.empty();
    const bool hasHost = !info.ServerIp.empty();
    const bool hasPort = info.Port >= 1;
    long lRes = KX_ERR_INVALID_VALUE;
    if ((info.SerType == 2 || info.SerType == 4) && hasHost && hasPort) {
        lRes = KX_OK;
    } else if (hasId && hasSecret && hasHost && hasPort) {
        lRes = KX_OK;
    } else if (hasId && hasHost && (info.SerType == 9 || info.SerType == 10)) {
        lRes = KX_OK;
    }
    KX_LOG(KX_LOG_TRACE, kSource, "KXServerBase::CheckInitInfo",
           "lRes:%d, ProjectID:%s,ServerIp:%s, Port:%d, SerType:%d", static_cast<int>(lRes),
           info.ProjectID.c_str(), info.ServerIp.c_str(), info.Port, info.SerType);
    return lRes;
}

long KXServerBase::Init(const _init_Info_s& info) {
    const long lRes = KXGuard([&] {
        const long checked = CheckInitInfo(info);
        if (checked == KX_OK) {
            m_stInitInfo = info;
            IWK_RegisterSecret(info.ProjectSecret);
        }
        return checked;
    });
    KX_LOG(KX_LOG_TRACE, kSource, "KXServerBase::Init", "lRes:%d", static_cast<int>(lRes));
    return lRes;
}

bool KXServerBase::IsInit() {
    return CheckInitInfo(m_stInitInfo) == KX_OK;
}
