// Client of the platform REST service: identity, encryption tasks, mobile
// willingness and witness-flow signing. Every operation takes its inputs by
// value, hands results back through references written only on success, and
// returns 0 or a result code.
#pragma once

#include <string>
#include <vector>

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

    // BID sign service (sources in bid/). Tasks are opened by a Create...
    // operation and polled by the caller with the Query... one; iStatus 1
    // means the results came with that poll. iUseHeadToken 1: file signing
    // sends sToken as a token head, login sends no head; else the signature.
    // 401 becomes 37007 in all but the login task, the logout, the encrypt
    // task and its poll, and GetBIDSealTask, whatever head was sent.
    long CreateBIDFileSignTask(std::string strRealAccountId, std::string strAuthAccountId,
                               std::string sTaskGroupId, std::string sTaskGroupType,
                               std::string sToken, std::vector<KXReceiveData>& vecFiles,
                               std::string& strUrl, std::string& strScanMode,
                               std::string& strTaskId, int& iTaskGroupActivated, int iUseHeadToken);
    // Results go to vecFiles by position, up to the vector's end.
    long QueryBIDFileSignResultTask(std::string strTaskId, std::string sToken,
                                    std::vector<KXReceiveData>& vecFiles, int& iStatus,
                                    int iUseHeadToken);
    // iLoginType 0 or 1, else 10016 with nothing sent.
    long CreateBIDLoginTask(std::string& strTaskId, std::string& strUrl, std::string& strScanMode,
                            std::string strAppId, int iLoginType, int iUseHeadToken);
    long QueryBIDLoginResultTask(std::string sTaskId, std::string& strOuid, std::string& strOrgId,
                                 int& iStatus, std::string& strEncCert, std::string& strCert,
                                 std::string& strToken, std::string& strOrgName,
                                 std::string& strPublicKey, std::string& strRawReply,
                                 std::string& strUserInfo, int iUseHeadToken);
    long GetBIDLoginOutTask(std::string sToken);
    long CreateBIDDecryptTask(std::vector<KXReceiveData>& vecEnvelopes, std::string sToken,
                              std::string& strTaskId, std::string& strUrl,
                              std::string& strScanMode);
    long CreateBIDDecryptTaskWithAppId(std::vector<KXReceiveData>& vecEnvelopes,
                                       std::string strAppId, std::string& strTaskId,
                                       std::string& strUrl, std::string& strScanMode);
    long CreateBIDEncryptTask(std::string& strAppId, std::string& strTaskId, std::string& strUrl,
                              std::string& strScanMode);
    // 37008 when an envelope differs from the one at its position (its key is
    // then not stored; the others are).
    long QueryBIDDecryptResultTask(std::string sTaskId, std::string sToken, int& iStatus,
                                   std::vector<KXReceiveData>& vecEnvelopes);
    long QueryBIDEncryptResultTask(std::string sTaskId, int& iStatus,
                                   std::vector<KXReceiveData>& vecItems);
    long CreateBIDAuthInfoTask(std::string sToken, std::string strSubjectName,
                               std::string& strTaskId, std::string& strUrl,
                               std::string& strScanMode);
    long QueryBIDAuthInfoResultTask(std::string sTaskId, std::string sToken, int& iStatus,
                                    std::string& strAuthCode);
    // strIsBase64 "1": strText is Base64 of raw data. Server status 1490152
    // becomes 37011.
    long GetBIDSignDataTask(std::string sToken, std::string strAuthCode, std::string strText,
                            std::string& strSignature, std::string strIsBase64,
                            std::string strSignAlgOid);
    long GetBIDVerifyResultTask(std::string sToken, std::string strText, std::string strSignResult,
                                std::string& strCertBase64, bool& bVerifyResult);
    // Seals: strSeals gets {"data":...} as the server sent it; the vectors
    // are appended to, never cleared.
    long GetBIDSealTask(std::string strRealAccountId, std::string strRealOrgId,
                        std::string& strSeals);
    long GetBIDSealByAuthCodeTask(std::string sToken, std::string strAuthCode, int iSealType,
                                  std::vector<_seal_Info_s>& vecSeals);
    long GetBIDSealByOrgIdTask(std::string sToken, std::string strRealAccountId,
                               std::string strRealOrgId, int iSealType,
                               std::vector<_seal_Info_s>& vecSeals);

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
