// KXPrintCtrl: the print-control service. Every request but the gateway route
// of the SMS check goes to a configured path at the record's host and port,
// signed with the legacy head over the exact body.
#include "KXPrintCtrl.h"

#include "KXUtils.h"
#include "frame/KXCall.h"

namespace {

const char kSource[] = "KXPrintCtrl";

using CertMap = std::map<std::string, KXReceiveData>;

// A list the reply should hold; anything else counts as an empty one.
const Json::Value& List(const Json::Value& value) {
    static const Json::Value kEmpty(Json::arrayValue);
    return value.isArray() ? value : kEmpty;
}

const Json::Value& List(const Json::Value& object, const char* key) {
    return List(kxjson::Member(object, key));
}

// The one request form of the service's operations.
class KXPrintCtrlCall : public KXCall {
public:
    KXPrintCtrlCall(const _init_Info_s& record, const std::string& path)
        : KXCall(record, KXReply::PrintCtrl, KXHead::Legacy) {
        Run([&] { UrlAt(path, record.ServerIp, std::to_string(record.Port)); });
    }
};

}  // namespace

KXPrintCtrl::KXPrintCtrl() = default;
KXPrintCtrl::KXPrintCtrl(const KXPrintCtrl& other) = default;
KXPrintCtrl& KXPrintCtrl::operator=(const KXPrintCtrl& other) = default;
KXPrintCtrl::~KXPrintCtrl() = default;

long KXPrintCtrl::Init(const _init_Info_s& info) {
    const long lRes = KXServerBase::Init(info);
    const long code = lRes != KX_OK ? lRes : KXGuard([this] {
        IWK_GetConfig(KXKey::getEncryptionCerts, strGetEncryptionCerts);
        IWK_GetConfig(KXKey::savePrintInfo, strSavePrintInfo);
        IWK_GetConfig(KXKey::getPrintInfo, strGetPrintInfo);
        IWK_GetConfig(KXKey::updatePrintInfo, strUpdatePrintInfo);
        IWK_GetConfig(KXKey::VerifySMSKaptchaForClient, strVerifySMSKaptcha);
        IWK_GetConfig(KXKey::QueryOrganizeCodeByCertSn, strQueryOrganizeCode);
        return 0L;
    });
    KX_LOG(KX_LOG_TRACE, kSource, "KXPrintCtrl::Init", "lRes:%d", static_cast<int>(code));
    return code;
}

long KXPrintCtrl::GetEncryptCerts(const std::vector<std::string>& accountCodes, CertMap& certs) {
    KXPrintCtrlCall call(m_stInitInfo, strGetEncryptionCerts);
    call.Run([&] {
        // No accounts leave the root null, and "null" is what goes out.
        Json::Value request;
        for (const std::string& account : accountCodes) {
            Json::Value item(Json::objectValue);
            item["accountCode"] = account;
            request.append(item);
        }
        call.ReadWith([&](const std::string& text) { return OnGetEncryptCerts(text, certs); });
        call.Post(request);
    });
    KX_LOG(KX_LOG_TRACE, kSource, "KXPrintCtrl::GetEncryptCerts", "lRes:%d", call.code());
    return call.lRes;
}

long KXPrintCtrl::OnGetEncryptCerts(const std::string& text, CertMap& certs) {
    Json::Value data;
    const long lRes = ParsePrintCtrlReply(text, data);
    if (lRes != KX_OK) return lRes;
    // Filled aside, so that the caller's map changes whole or not at all.
    CertMap merged = certs;
    for (const Json::Value& account : List(data)) {
        const std::string accountCode = kxjson::String(account, "accountCode");
        for (const Json::Value& cert : List(account, "certList")) {
            if (!cert.isObject()) continue;
            KXReceiveData record;
            record.data = kxjson::String(cert, "data");
            record.accountCode = accountCode;
            // The first account that names a serial keeps it.
            merged.emplace(kxjson::String(cert, "sn"), std::move(record));
        }
    }
    certs.swap(merged);
    return KX_OK;
}

long KXPrintCtrl::SavePrintInfo(const std::string& fileName, const std::string& fileHash,
                                long long fileSize, CertMap& certs) {
    KXPrintCtrlCall call(m_stInitInfo, strSavePrintInfo);
    call.Run([&] {
        Json::Value request(Json::objectValue);
        request["createUser"] = "";
        // The moment of registration, in seconds, not the file's own date.
        request["fileCreateDate"] = Json::Int64(IWK_Time64());
        request["fileName"] = fileName;
        request["fileHash"] = fileHash;
        request["fileSize"] = Json::Int64(fileSize);
        Json::Value list;  // null when the map is empty
        for (const auto& entry : certs) {
            Json::Value item(Json::objectValue);
            item["printCount"] = entry.second.printCount;
            item["sn"] = entry.first;
            list.append(item);
        }
        request["printList"] = list;
        call.ReadWith([&](const std::string& text) { return OnSavePrintInfo(text, certs); });
        call.Post(request);
    });
    KX_LOG(KX_LOG_TRACE, kSource, "KXPrintCtrl::SavePrintInfo", "lRes:%d", call.code());
    return call.lRes;
}

long KXPrintCtrl::OnSavePrintInfo(const std::string& text, CertMap& certs) {
    Json::Value data;
    const long lRes = ParsePrintCtrlReply(text, data);
    if (lRes != KX_OK) return lRes;
    for (const Json::Value& item : List(data, "printList")) {
        // An id that is no integer is no id: the record keeps what it had.
        long long printId = 0;
        if (!kxjson::Int64(kxjson::Member(item, "printId"), printId)) continue;
        const auto found = certs.find(kxjson::String(item, "sn"));
        if (found != certs.end()) found->second.printId = printId;
    }
    return KX_OK;
}

long KXPrintCtrl::QueryPrintInfo(const std::string& sPrintID, int& iTotal, int& iRemain) {
    KXPrintCtrlCall call(m_stInitInfo, strGetPrintInfo);
    call.Run([&] {
        Json::Value request(Json::objectValue);
        request["printId"] = sPrintID;
        call.ReadWith(
            [&](const std::string& text) { return OnQueryPrintInfo(text, iTotal, iRemain); });
        call.Post(request);
    });
    KX_LOG(KX_LOG_TRACE, kSource, "KXPrintCtrl::QueryPrintInfo", "lRes:%d", call.code());
    return call.lRes;
}

long KXPrintCtrl::OnQueryPrintInfo(const std::string& text, int& iTotal, int& iRemain) {
    Json::Value data;
    const long lRes = ParsePrintCtrlReply(text, data);
    if (lRes != KX_OK) return lRes;
    int total = 0;
    int remain = 0;
    // A count that is no integer in range reads as 0.
    kxjson::Int(kxjson::Member(data, "totalPrintCount"), total);
    kxjson::Int(kxjson::Member(data, "remainPrintCount"), remain);
    iTotal = total;
    iRemain = remain;
    return KX_OK;
}

long KXPrintCtrl::UpdatePrintInfo(const std::string& sPrintID, const int& iRemain) {
    KXPrintCtrlCall call(m_stInitInfo, strUpdatePrintInfo);
    call.Run([&] {
        Json::Value request(Json::objectValue);
        request["printId"] = sPrintID;
        request["remainPrintCount"] = iRemain;
        call.ReadWith([this](const std::string& text) { return OnUpdatePrintInfo(text); });
        call.Post(request);
    });
    KX_LOG(KX_LOG_TRACE, kSource, "KXPrintCtrl::UpdatePrintInfo", "lRes:%d", call.code());
    return call.lRes;
}

long KXPrintCtrl::OnUpdatePrintInfo(const std::string& text) {
    Json::Value data;
    return ParsePrintCtrlReply(text, data);
}

long KXPrintCtrl::VerifySMSKaptchaForClient(std::string certSn, std::string code,
                                            std::string accountUUID) {
    // The envelope is errCode/msg/data, read as every other client reads it:
    // an absent errCode is success, an errCode without msg leaves no last error.
    KXCall call(m_stInitInfo, KXReply::ErrCodeEnvelope, KXHead::Legacy);
    call.Require().OnTransport(KXOnTransport::Code);
    call.Run([&] {
        Json::Value request(Json::objectValue);
        const std::string language = IWK_GetLanguageName();
        if (!language.empty()) request["language"] = language;
        request["certSn"] = certSn;
        request["code"] = code;
        request["accountUUID"] = accountUUID;
        int gateway = 0;
        IWK_GetConfig(KXKey::isGoGateWay, gateway);
        if (gateway != 1) {
            call.UrlAt(strVerifySMSKaptcha, m_stInitInfo.ServerIp,
                       std::to_string(m_stInitInfo.Port));
        } else {
            std::string server, port, appId, secret, base, path;
            IWK_GetConfig(KXKey::publicServer, server);
            IWK_GetConfig(KXKey::publicPort, port);
            IWK_GetConfig(KXKey::appId, appId);
            IWK_GetConfig(KXKey::appSecret, secret);
            const std::string clear = IWK_DecryptEncryptedConfigInfo(secret);
            if (!clear.empty()) secret = clear;
            IWK_GetConfig(KXKey::serverUrl, base);
            // Here the built-in path does not apply: absent is empty.
            if (IWK_GetConfig(KXKey::VerifySMSKaptchaForClient, path) == 0) path.clear();
            call.UrlIs(base + path);
            call.SignAs(server + ":" + port, appId, secret);
        }
        call.Post(request);
    });
    if (call.TransportFailed()) {
        KX_LOG(KX_LOG_ERROR, kSource, "KXPrintCtrl::VerifySMSKaptchaForClient", "lRes:%d",
               call.code());
    }
    return call.lRes;
}

long KXPrintCtrl::QueryOrganizeCodeByCertSn(std::string certSn, std::string& organizeCode) {
    KXPrintCtrlCall call(m_stInitInfo, strQueryOrganizeCode);
    call.Run([&] {
        Json::Value request(Json::objectValue);
        request["certSn"] = certSn;
        call.ReadWith([&](const std::string& text) {
            return OnQueryOrganizeCodeByCertSn(text, organizeCode);
        });
        call.Post(request);
    });
    KX_LOG(KX_LOG_TRACE, kSource, "KXPrintCtrl::QueryOrganizeCodeByCertSn", "lRes:%d", call.code());
    return call.lRes;
}

long KXPrintCtrl::OnQueryOrganizeCodeByCertSn(const std::string& text, std::string& organizeCode) {
    Json::Value data;
    const long lRes = ParsePrintCtrlReply(text, data);
    if (lRes == KX_OK) organizeCode = kxjson::String(data, "organizeCode");
    return lRes;
}
