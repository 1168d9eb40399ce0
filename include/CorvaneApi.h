// Client of the platform REST service: identity, encryption tasks, mobile
// willingness and witness-flow signing. Every operation takes its inputs by
// value, hands results back through references written only on success, and
// returns 0 or a result code.
#pragma once

#include <string>

#include "KXCommonType.h"
#include "KXExport.h"
#include "KXServerBase.h"

class KX_API CCorvaneApi : public KXServerBase {
public:
    // Becomes the object the hourly timer looks at (the latest one wins).
    CCorvaneApi();
    // Copies the record and the URL table; the timer's object stays as it was.
    CCorvaneApi(const CCorvaneApi& other);
    CCorvaneApi& operator=(const CCorvaneApi& other);
    // Not virtual. Ends the process's hourly timer, whichever object set it.
    ~CCorvaneApi();

    // 0, or 10001 for an incomplete record (the old record and the timer stay).
    // On success (re)starts the hourly timer on the calling thread, whose loop
    // must call IWK_DispatchTimers for it to fire.
    long Init(const _init_Info_s& info) override;
    // 0 when the record is complete, else 10009. Reads and writes neither
    // string; no request is made.
    long GetNetworkToken(std::string& strValue1, std::string& strValue2, bool bFlag);

    // Account and organisation queries.
    long GetRealAccoutIdByCode(std::string strRedirectUri, std::string strCode,
                               std::string& strRealAccountId);
    long GetIdentityInfo(std::string strRealAccountId, std::string& strIdentityCode);
    long GetAllInfo(std::string strRealAccountId, std::string& strRealnameCode,
                    std::string& strIdPhone);
    long GetFinalRealnameOrgInfo(std::string strOrgId, std::string& strOuid);

    // Encryption tasks: create, execute, end.
    long CreateEncOrDecTask(std::string strRealAccountId, std::string strRealOrgId,
                            std::string strDescription, std::string strrRefTaskId, int iTaskType,
                            std::string& strTaskId);
    long ExecuteEncOrDecTask(std::string strTaskId, std::string strEncryptedPrivateKey,
                             std::string strWillAuthCode, std::string& strPublicKey,
                             std::string& strSymmetricKey);
    long EndEncOrDecTask(std::string strTaskId, int iResult, std::string strResultDescription);

    // Mobile-shield willingness.
    long CreateMobShieldAuth(std::string strRealAccountId, std::string strBizType,
                             std::string strBizTypeDes, std::string strBizDes,
                             std::string& strBizId, std::string& strQrcodeContent,
                             std::string& strWillAuthId, bool bEncryptWill, std::string strSpace);
    long VerifyMobShieldAuth(std::string strBizId, std::string strBizType,
                             std::string strWillAuthId, std::string& strStatus, bool& bPassed);

    // Witness flow and snapshots.
    long CreateWitnessFlowTask(std::string strRealOrgId, std::string& strWitnessFlowId);
    long ExecuteSnapShotTask(std::string strWitnessFlowId, std::string strThirdDocId,
                             std::string strDocHash, std::string strAlgorithm, std::string strStep,
                             std::string strStepDescription);

    // Witness-flow signing.
    long CheckSignAccessTask(std::string strWitnessFlowId, std::string strRealAccountId,
                             std::string strThirdDocId, std::string strDocHash,
                             std::string& strSignTicket);
    // signType 65536 (PKCS #1) only; any other value gives 10001 with no request.
    long SignTask(std::string strWitnessFlowId, std::string strRealAccountId,
                  std::string strThirdDocId, std::string strDocHash, std::string strSignTicket,
                  long signType, std::string& strTaskId, std::string& strQrcodeContent);
    long QuerySignResultTask(std::string strWitnessFlowId, std::string strSignTicket,
                             std::string strTaskId, std::string& strSignResult,
                             std::string& strSignlogId, std::string& strCertBase64,
                             std::string& strCertAlgorithm);
    long SignConfirmTask(std::string strWitnessFlowId, std::string strThirdDocId,
                         std::string strDocHash, std::string strAlgorithm,
                         std::string strSignTicket, std::string strSignlogId);

    // URL templates: printf formats whose first %s is the record's ServerIp
    // (host, and ":port" when the server is not on 443); values go in as they
    // are. Fixed at construction.
    std::string strClientTokenUrl;
    std::string strCodeTokenUrl;
    std::string strIdentityInfoUrl;
    std::string strRealnameOrgInfoUrl;
    std::string strAllInfoUrl;
    std::string strEncryptionsUrl;
    std::string strEncryptionExecuteUrl;
    std::string strEncryptionUrl;
    std::string strCreateMobShieldAuthUrl;
    std::string strVerifyMobShieldAuthUrl;
    std::string strReservedA;
    std::string strReservedB;
    std::string strWitnessFlowsUrl;
    std::string strSaveSnapshotUrl;
    std::string strCheckSignAccessUrl;
    std::string strWitnessSignUrl;
    std::string strSignResultUrl;
    std::string strWitnessConfirmUrl;
    std::string strBIDFileSignTasksUrl;
    std::string strBIDInitAndGetSealsUrl;
    std::string strBIDFileSignTaskUrl;
    std::string strBIDLoginTasksUrl;
    std::string strBIDLoginTaskUrl;
    std::string strBIDDecryptTasksUrl;
    std::string strBIDEncryptTasksUrl;
    std::string strBIDDecryptTaskUrl;
    std::string strBIDEncryptTaskUrl;
    std::string strBIDAuthTasksUrl;
    std::string strBIDAuthTaskUrl;
    std::string strBIDTextHashSignUrl;
    std::string strBIDVerifyTextHashSignUrl;
    std::string strBIDSealsUrl;
    std::string strBIDSealByTypeUrl;
    std::string strBIDSealUrl;
    std::string strBIDLogoutUrl;
};
