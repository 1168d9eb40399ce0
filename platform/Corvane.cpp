// CCorvaneApi: the object, its URL table, Init and the hourly timer, and the
// request steps every operation shares.
#include "CorvaneApi.h"

#include "KXReplyParsers.h"
#include "KXUtils.h"
#include "platform/CorvaneCall.h"
#include "platform/CorvaneTimer.h"

const char kCorvaneSource[] = "Corvane";

// One timer and one object for the whole process, as the hourly check needs.
CCorvaneApi* pCurrentCorvaneApi = nullptr;
int iTimerId = 0;

namespace {

const unsigned int kTimerIntervalMs = 3600000;

// Hourly, on the thread of the last Init: stops the timer once the current
// object's record is no longer complete.
void TimerProc(void*, unsigned int, uintptr_t, unsigned long) {
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, "TimerProc", "TimerProc Begin");
    if (pCurrentCorvaneApi == nullptr) return;
    try {
        std::string value1;
        std::string value2;
        if (pCurrentCorvaneApi->GetNetworkToken(value1, value2, false) == KX_OK) return;
    } catch (...) {
        // out of memory: treat as a bad record
    }
    IWK_KillTimer(nullptr, static_cast<uintptr_t>(iTimerId));
}

}  // namespace

CCorvaneApi::CCorvaneApi()
    : strClientTokenUrl(
          "https://%s/v1/oauth2/access_token?appId=%s&secret=%s&grantType=client_credentials"),
      strCodeTokenUrl(
          "https://%s/v1/oauth2/access_token?appId=%s&code=%s&grantType=authorization_"
          "code&redirectUri=%s&secret=%s"),
      strIdentityInfoUrl("https://%s/v1/accounts/%s/getIdentityInfo"),
      strRealnameOrgInfoUrl("https://%s/v1/organizations/%s/getFinalRealnameOrgInfo"),
      strAllInfoUrl("https://%s/v1/accounts/%s/getAllInfo"),
      strEncryptionsUrl("https://%s/v1/encryptions"),
      strEncryptionExecuteUrl("https://%s/v1/encryptions/%s/execute"),
      strEncryptionUrl("https://%s/v1/encryptions/%s"),
      strCreateMobShieldAuthUrl("https://%s/v1/willingness/createMobShieldAuth"),
      strVerifyMobShieldAuthUrl("https://%s/v1/willingness/verifyMobShieldAuth"),
      strWitnessFlowsUrl("https://%s/v1/witnessflows"),
      strSaveSnapshotUrl("https://%s/v1/witnessflows/%s/saveSnapshot"),
      strCheckSignAccessUrl("https://%s/v1/witnessflows/%s/checkSignAccess"),
      strWitnessSignUrl("https://%s/v1/witnessflows/%s/sign"),
      strSignResultUrl(
          "https://%s/v1/witnessflows/%s/mobileShield/signResult?signTicket=%s&taskId=%s"),
      strWitnessConfirmUrl("https://%s/v1/witnessflows/%s/confirm"),
      strBIDFileSignTasksUrl("https://%s/v3/bid-sign/signatures/fileSignTasks"),
      strBIDInitAndGetSealsUrl("https://%s/v1/bid-sign/seal/%s/initAndGetSeals"),
      strBIDFileSignTaskUrl("https://%s/v3/bid-sign/signatures/fileSignTasks/%s"),
      strBIDLoginTasksUrl("https://%s/v3/bid-sign/loginTasks"),
      strBIDLoginTaskUrl("https://%s/v3/bid-sign/loginTasks/%s"),
      strBIDDecryptTasksUrl("https://%s/v3/bid-sign/decryptTasks"),
      strBIDEncryptTasksUrl("https://%s/v3/bid-sign/encryptTasks"),
      strBIDDecryptTaskUrl("https://%s/v3/bid-sign/decryptTasks/%s"),
      strBIDEncryptTaskUrl("https://%s/v3/bid-sign/encryptTasks/%s"),
      strBIDAuthTasksUrl("https://%s/v3/bid-sign/authTasks"),
      strBIDAuthTaskUrl("https://%s/v3/bid-sign/authTasks/%s"),
      strBIDTextHashSignUrl("https://%s/v3/bid-sign/signatures/textHashSign"),
      strBIDVerifyTextHashSignUrl("https://%s/v3/bid-sign/signatures/verifyTextHashSign"),
      strBIDSealsUrl("https://%s/v3/bid-sign/seals"),
      strBIDSealByTypeUrl("https://%s/v3/bid-sign/seals/%s?sealType=%d&accountId=%s"),
      strBIDSealUrl("https://%s/v3/bid-sign/seals/%s?accountId=%s"),
      strBIDLogoutUrl("https://%s/v3/bid-sign/logout") {
    pCurrentCorvaneApi = this;
}

CCorvaneApi::CCorvaneApi(const CCorvaneApi& other) = default;
CCorvaneApi& CCorvaneApi::operator=(const CCorvaneApi& other) = default;

CCorvaneApi::~CCorvaneApi() {
    strReservedA.clear();
    strReservedB.clear();
    pCurrentCorvaneApi = nullptr;
    IWK_KillTimer(nullptr, static_cast<uintptr_t>(iTimerId));
}

long CCorvaneApi::Init(const _init_Info_s& info) {
    long lRes = KX_ERR_INVALID_VALUE;
    try {
        lRes = KXServerBase::Init(info);
        if (lRes != KX_OK) return lRes;
        std::string value1;
        std::string value2;
        lRes = GetNetworkToken(value1, value2, false);
        if (lRes != KX_OK) return lRes;
    } catch (...) {
        return KX_ERR_INVALID_VALUE;
    }
    IWK_KillTimer(nullptr, static_cast<uintptr_t>(iTimerId));
    iTimerId = static_cast<int>(IWK_SetTimer(nullptr, 1, kTimerIntervalMs, TimerProc));
    return KX_OK;
}

long CCorvaneApi::GetNetworkToken(std::string&, std::string&, bool) {
    return CheckInitInfo(m_stInitInfo) == KX_OK ? KX_OK : KX_ERR_NOT_INITIALISED;
}

// ---------------------------------------------------------------------------

KXCorvaneCall::KXCorvaneCall(const _init_Info_s& record) : record_(record) {
    if (KXServerBase::CheckInitInfo(record) != KX_OK) lRes = KX_ERR_NOT_INITIALISED;
}

bool KXCorvaneCall::TemplateMatches(const std::string& format, const char* kinds) {
    size_t next = 0;
    for (size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%') continue;
        const std::string rest = format.substr(i + 1, 2);
        char kind = 0;
        if (rest.compare(0, 1, "%") == 0) {
            ++i;
            continue;
        } else if (rest.compare(0, 1, "s") == 0) {
            kind = 's';
            i += 1;
        } else if (rest.compare(0, 1, "d") == 0) {
            kind = 'd';
            i += 1;
        } else if (rest == "ld") {
            kind = 'l';
            i += 2;
        } else {
            return false;
        }
        if (kinds[next] != kind) return false;
        ++next;
    }
    return kinds[next] == '\0';
}

bool KXCorvaneCall::Refuse(long code) {
    // reqRes stays empty: the exit line shows that nothing was sent.
    lRes = code;
    data = Json::Value();
    return false;
}

bool KXCorvaneCall::Send(HTTPFuncType verb, const Json::Value* body, const std::string* head) {
    if (lRes != KX_OK) return false;
    const std::string text = body != nullptr ? kxjson::Write(*body) : std::string();
    const std::string signatureHead =
        head != nullptr ? std::string()
                        : CIWKHttp::GetSignatureHead(
                              verb, url, record_.ServerIp, record_.ProjectID, record_.ProjectSecret,
                              std::vector<std::string>(), "application/json");
    const std::string& useHead = head != nullptr ? *head : signatureHead;
    switch (verb) {
        case HTTP_FUNC_GET:
            CIWKHttp::Get(url, "", useHead, &reqRes, HTTP_REQ_PLAIN, nullptr);
            break;
        case HTTP_FUNC_POST:
            CIWKHttp::Post(url, text, useHead, &reqRes, HTTP_CONTENT_JSON, HTTP_REQ_PLAIN, nullptr,
                           nullptr, nullptr);
            break;
        case HTTP_FUNC_PUT:
            CIWKHttp::Put(url, text, useHead, &reqRes, HTTP_CONTENT_JSON, HTTP_REQ_PUT, nullptr,
                          nullptr, nullptr);
            break;
        default:
            return Refuse(KX_ERR_INVALID_VALUE);
    }
    lRes = ParseCodeEnvelope(reqRes, data);
    return lRes == KX_OK;
}
