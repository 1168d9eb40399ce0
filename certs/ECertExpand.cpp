// Client side of the double-certificate expansion: four signed requests,
// each answered in the code/message/data envelope.
#include "ECertExpand.h"

#include <climits>

#include "KXUtils.h"
#include "frame/KXCall.h"

namespace {

const char kSource[] = "ECertExpand";

// An unsigned 32-bit identifier; 0 when absent, negative, text or too large.
long IdOf(const Json::Value& data, const char* key) {
    long long value = 0;
    if (!kxjson::Int64(kxjson::Member(data, key), value) || value < 0 || value > UINT_MAX) return 0;
    return static_cast<long>(value);
}

long Exit(const char* function, long lRes) {
    KX_LOG(KX_LOG_TRACE, kSource, function, "lRes:%d", static_cast<int>(lRes));
    return lRes;
}

}  // namespace

CECertExpand::CECertExpand()
    : strServiceTimeUrl("https://%s/v1/orbis/ukey/client/cert/serviceTime/%s"),
      strDoubleCertRequestUrl("https://%s/v1/orbis/ukey/client/certOpt/doubleCertRequest"),
      strDoubleCertInfoUrl("https://%s/v1/orbis/ukey/client/certOpt/doubleCertInfo/%d"),
      strFinishCertUrl("https://%s/v1/orbis/ukey/client/certOpt/finishCert") {}
CECertExpand::CECertExpand(const CECertExpand& other) = default;
CECertExpand& CECertExpand::operator=(const CECertExpand& other) = default;
CECertExpand::~CECertExpand() = default;

long CECertExpand::CheckServiceRequest(const std::string& strId, bool& expired) {
    // The expansion client does not test its record: an empty host fails at the transport.
    KXCall call(m_stInitInfo, KXReply::CodeEnvelope, KXHead::Signature);
    call.Run([&] {
        if (!call.Url(strServiceTimeUrl, strId) || !call.Get()) return;
        bool value = false;
        kxjson::Bool(kxjson::Member(call.data, "expired"), value);
        expired = value;
    });
    return Exit("CECertExpand::CheckServiceRequest", call.lRes);
}

long CECertExpand::SendExpandRequest(const std::string& ukeyNum, const std::string& csr,
                                     long& certOptId, long& logId) {
    KXCall call(m_stInitInfo, KXReply::CodeEnvelope, KXHead::Signature);
    call.Run([&] {
        if (!call.Url(strDoubleCertRequestUrl)) return;
        Json::Value root(Json::objectValue);
        root["csr"] = csr;
        root["ukeyNum"] = ukeyNum;
        if (!call.Post(root)) return;
        certOptId = IdOf(call.data, "certOptId");
        logId = IdOf(call.data, "logId");
    });
    return Exit("CECertExpand::SendExpandRequest", call.lRes);
}

long CECertExpand::GetDoubleCertRequest(long certOptId, std::string& encCert, std::string& signCert,
                                        std::string& sn, std::string& authCode, int& status) {
    KXCall call(m_stInitInfo, KXReply::CodeEnvelope, KXHead::Signature);
    call.Run([&] {
        if (!call.Url(strDoubleCertInfoUrl, certOptId) || !call.Get()) return;
        std::string enc = kxjson::Text(call.data, "encCert");
        std::string sign = kxjson::Text(call.data, "signCert");
        std::string serial = kxjson::Text(call.data, "sn");
        std::string code = kxjson::Text(call.data, "authCode");
        int value = -1;
        if (!kxjson::Int(kxjson::Member(call.data, "status"), value)) value = -1;
        encCert.swap(enc);
        signCert.swap(sign);
        sn.swap(serial);
        authCode.swap(code);
        status = value;
    });
    return Exit("CECertExpand::GetDoubleCertRequest", call.lRes);
}

long CECertExpand::UploadFinish(long certOptId, long logId, const std::string& encryptCert,
                                const std::string& signCert, const std::string& ukeyNum) {
    KXCall call(m_stInitInfo, KXReply::CodeEnvelope, KXHead::Signature);
    call.Run([&] {
        if (!call.Url(strFinishCertUrl)) return;
        Json::Value root(Json::objectValue);
        root["certOptId"] = static_cast<Json::Int64>(certOptId);
        root["logId"] = static_cast<Json::Int64>(logId);
        root["encryptCert"] = encryptCert;
        root["signCert"] = signCert;
        root["ukeyNum"] = ukeyNum;
        call.Post(root);
    });
    return Exit("CECertExpand::UploadFinish", call.lRes);
}
