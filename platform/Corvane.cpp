// CCorvaneApi: the object, its URL table, Init and the hourly timer, and the
// request steps every operation shares.
#include "CorvaneApi.h"

#include "KXReplyParsers.h"
#include "KXUtils.h"
#include "platform/CorvaneCall.h"
#include "platform/CorvaneTimer.h"

#include <mutex>

const char kCorvaneSource[] = "Corvane";

// One timer and one object for the whole process, as the hourly check needs.
CCorvaneApi* pCurrentCorvaneApi = nullptr;
std::atomic<int> iTimerId{0};

namespace {

const unsigned int kTimerIntervalMs = 3600000;

// Held while the current object is set, cleared or checked: a destructor on
// another thread waits until a running check is over.
std::mutex& CurrentGuard() {
    static std::mutex guard;
    return guard;
}

void SetCurrent(CCorvaneApi* api) {
    std::lock_guard<std::mutex> hold(CurrentGuard());
    pCurrentCorvaneApi = api;
}

void KillHourlyTimer() {
    IWK_KillTimer(nullptr, static_cast<uintptr_t>(iTimerId.load()));
}

// Hourly, on the thread of the last Init: stops the timer once the current
// object's record is no longer complete.
void TimerProc(void*, unsigned int, uintptr_t, unsigned long) {
    KX_LOG(KX_LOG_TRACE, kCorvaneSource, "TimerProc", "TimerProc Begin");
    const long checked = KXGuard([] {
        std::lock_guard<std::mutex> hold(CurrentGuard());
        if (pCurrentCorvaneApi == nullptr) return static_cast<long>(KX_OK);
        std::string value1;
        std::string value2;
        return pCurrentCorvaneApi->GetNetworkToken(value1, value2, false);
    });
    if (checked != KX_OK) KillHourlyTimer();
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
    SetCurrent(this);
}

CCorvaneApi::CCorvaneApi(const CCorvaneApi& other) = default;
CCorvaneApi& CCorvaneApi::operator=(const CCorvaneApi& other) = default;

CCorvaneApi::~CCorvaneApi() {
    strReservedA.clear();
    strReservedB.clear();
    SetCurrent(nullptr);
    KillHourlyTimer();
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
    KillHourlyTimer();
    iTimerId = static_cast<int>(IWK_SetTimer(nullptr, 1, kTimerIntervalMs, TimerProc));
    return KX_OK;
}

long CCorvaneApi::GetNetworkToken(std::string&, std::string&, bool) {
    return CheckInitInfo(m_stInitInfo) == KX_OK ? KX_OK : KX_ERR_NOT_INITIALISED;
}
