/// @file
/// Client of the platform REST service: identity, encryption tasks, mobile
/// willingness and witness-flow signing. Every operation takes its inputs by
/// value, hands results back through references written only on success, and
/// returns 0 or a result code.
#pragma once

#include <string>
#include <vector>

#include "KXCommonType.h"
#include "KXExport.h"
#include "KXServerBase.h"

/// Client of the platform REST service and of the BID sign service. Every
/// request operation needs a complete description (else 10009 and nothing is
/// sent), signs its request with the project's head unless its documentation
/// says otherwise, reads the {"code","message","data"} envelope, and returns 0,
/// a transport code, the server's code, or 10003 for a reply it cannot read.
class KX_API CCorvaneApi : public KXServerBase {
public:
    /// Becomes the object the hourly timer looks at (the latest one wins).
    CCorvaneApi();
    /// Copies the record and the URL table; the timer's object stays as it was.
    CCorvaneApi(const CCorvaneApi& other);
    /// Copies the record and the URL table; the timer's object stays as it was.
    CCorvaneApi& operator=(const CCorvaneApi& other);
    /// Not virtual. Ends the process's hourly timer, whichever object set it.
    ~CCorvaneApi();

    /// 0, or 10001 for an incomplete record (the old record and the timer stay).
    /// On success (re)starts the hourly timer on the calling thread, whose loop
    /// must call IWK_DispatchTimers for it to fire.
    long Init(const _init_Info_s& info) override;
    /// 0 when the record is complete, else 10009. Reads and writes neither
    /// string; no request is made.
    long GetNetworkToken(std::string& strValue1, std::string& strValue2, bool bFlag);

    // Account and organisation queries.
    /// Exchanges an authorization code (with its redirect URI) for a token,
    /// and gives the account id ("authorizer") the token names. 10001 when the
    /// token holds no readable claims.
    long GetRealAccoutIdByCode(std::string strRedirectUri, std::string strCode,
                               std::string& strRealAccountId);
    /// The identity code of an account (data's "code").
    long GetIdentityInfo(std::string strRealAccountId, std::string& strIdentityCode);
    /// Of an account: the real-name code and the mobile number of its ID card.
    long GetAllInfo(std::string strRealAccountId, std::string& strRealnameCode,
                    std::string& strIdPhone);
    /// The ouid of an organisation's final real-name record.
    long GetFinalRealnameOrgInfo(std::string strOrgId, std::string& strOuid);

    // Encryption tasks: create, execute, end.
    /// Creates an encryption or decryption task (iTaskType) for an account of
    /// an organisation, optionally referring to another task; strTaskId gets
    /// its id.
    long CreateEncOrDecTask(std::string strRealAccountId, std::string strRealOrgId,
                            std::string strDescription, std::string strrRefTaskId, int iTaskType,
                            std::string& strTaskId);
    /// Executes a task with the encrypted key and the willingness code; gives
    /// the public and the symmetric key.
    long ExecuteEncOrDecTask(std::string strTaskId, std::string strEncryptedPrivateKey,
                             std::string strWillAuthCode, std::string& strPublicKey,
                             std::string& strSymmetricKey);
    /// Ends a task with its result and a description of it.
    long EndEncOrDecTask(std::string strTaskId, int iResult, std::string strResultDescription);

    // Mobile-shield willingness.
    /// Opens a willingness check on the user's mobile shield for a business
    /// action; gives its bizId, the QR code content and the willAuthId. With a
    /// mobile-shield client id in the record, the request also names the
    /// client, the scene (encrypting when bEncryptWill, else decrypting) and
    /// strSpace.
    long CreateMobShieldAuth(std::string strRealAccountId, std::string strBizType,
                             std::string strBizTypeDes, std::string strBizDes,
                             std::string& strBizId, std::string& strQrcodeContent,
                             std::string& strWillAuthId, bool bEncryptWill, std::string strSpace);
    /// The state of a willingness check: its status text, and whether it passed.
    long VerifyMobShieldAuth(std::string strBizId, std::string strBizType,
                             std::string strWillAuthId, std::string& strStatus, bool& bPassed);

    // Witness flow and snapshots.
    /// Opens a witness flow paid by the organisation strRealOrgId; gives its id.
    long CreateWitnessFlowTask(std::string strRealOrgId, std::string& strWitnessFlowId);
    /// Saves a snapshot of a document in the flow. strStep "START" adds the
    /// document, "FINISH" updates it and finishes the flow; other steps are
    /// sent as they are.
    long ExecuteSnapShotTask(std::string strWitnessFlowId, std::string strThirdDocId,
                             std::string strDocHash, std::string strAlgorithm, std::string strStep,
                             std::string strStepDescription);

    // Witness-flow signing.
    /// Asks whether the account may sign the document in the flow; gives the
    /// sign ticket of the signing steps.
    long CheckSignAccessTask(std::string strWitnessFlowId, std::string strRealAccountId,
                             std::string strThirdDocId, std::string strDocHash,
                             std::string& strSignTicket);
    /// Starts signing a document hash in the flow on the user's mobile device;
    /// gives the task id and the QR code content to show.
    /// signType 65536 (PKCS #1) only; any other value gives 10001 with no request.
    long SignTask(std::string strWitnessFlowId, std::string strRealAccountId,
                  std::string strThirdDocId, std::string strDocHash, std::string strSignTicket,
                  long signType, std::string& strTaskId, std::string& strQrcodeContent);
    /// Polls a signing task: the signature, its sign log id, and the signer's
    /// certificate (Base64) and algorithm.
    long QuerySignResultTask(std::string strWitnessFlowId, std::string strSignTicket,
                             std::string strTaskId, std::string& strSignResult,
                             std::string& strSignlogId, std::string& strCertBase64,
                             std::string& strCertAlgorithm);
    /// Confirms a signed hash in the flow, closing the signing of the document.
    long SignConfirmTask(std::string strWitnessFlowId, std::string strThirdDocId,
                         std::string strDocHash, std::string strAlgorithm,
                         std::string strSignTicket, std::string strSignlogId);

    /// @name BID sign service
    /// Sources in bid/. Tasks are opened by a Create... operation and polled
    /// by the caller with the Query... one; iStatus 1 means the results came
    /// with that poll. Operations that take sToken send it as the token head;
    /// where iUseHeadToken is given, 1 means that for file signing and no head
    /// for login, else the signature. 401 becomes 37007 in all but the login
    /// task, the logout, the encrypt task and its poll, and GetBIDSealTask,
    /// whatever head was sent.
    /// @{

    /// Opens a file signing task over vecFiles (fileName, externalFileId,
    /// signHash and the positions in vecSeals; a signType that is no decimal
    /// int gives 10001). An empty strAuthAccountId means strRealAccountId;
    /// sTaskGroupType "2" sends sTaskGroupId. Gives the approval URL, the scan
    /// mode, the task id and whether the task group is activated.
    long CreateBIDFileSignTask(std::string strRealAccountId, std::string strAuthAccountId,
                               std::string sTaskGroupId, std::string sTaskGroupType,
                               std::string sToken, std::vector<KXReceiveData>& vecFiles,
                               std::string& strUrl, std::string& strScanMode,
                               std::string& strTaskId, int& iTaskGroupActivated, int iUseHeadToken);
    /// Polls a file signing task; with iStatus 1 each file gets externalFileId,
    /// signLogId and signature.
    /// Results go to vecFiles by position, up to the vector's end.
    long QueryBIDFileSignResultTask(std::string strTaskId, std::string sToken,
                                    std::vector<KXReceiveData>& vecFiles, int& iStatus,
                                    int iUseHeadToken);
    /// Opens a login task (type 1 sends strAppId and a random challenge to
    /// sign); gives the task id, the approval URL and the scan mode.
    /// iLoginType 0 or 1, else 10016 with nothing sent.
    long CreateBIDLoginTask(std::string& strTaskId, std::string& strUrl, std::string& strScanMode,
                            std::string strAppId, int iLoginType, int iUseHeadToken);
    /// Polls a login task. With iStatus 1: the user's ouid, organisation id
    /// and name (the user's name when none), certificates, public key, the
    /// token of later calls, the raw reply, and strUserInfo, a JSON text of the
    /// user data.
    long QueryBIDLoginResultTask(std::string sTaskId, std::string& strOuid, std::string& strOrgId,
                                 int& iStatus, std::string& strEncCert, std::string& strCert,
                                 std::string& strToken, std::string& strOrgName,
                                 std::string& strPublicKey, std::string& strRawReply,
                                 std::string& strUserInfo, int iUseHeadToken);
    /// Ends the session of sToken at the server (a refused token stays 401).
    long GetBIDLoginOutTask(std::string sToken);
    /// Opens a task that decrypts the digital envelopes of vecEnvelopes
    /// (digitalEnvelopeB64) under sToken; gives the task id, approval URL and
    /// scan mode.
    long CreateBIDDecryptTask(std::vector<KXReceiveData>& vecEnvelopes, std::string sToken,
                              std::string& strTaskId, std::string& strUrl,
                              std::string& strScanMode);
    /// The same with an application id in place of the token, and no head.
    long CreateBIDDecryptTaskWithAppId(std::vector<KXReceiveData>& vecEnvelopes,
                                       std::string strAppId, std::string& strTaskId,
                                       std::string& strUrl, std::string& strScanMode);
    /// Opens a task that hands out an encryption key for the application
    /// strAppId (no head); gives the task id, approval URL and scan mode.
    long CreateBIDEncryptTask(std::string& strAppId, std::string& strTaskId, std::string& strUrl,
                              std::string& strScanMode);
    /// Polls a decrypt task; with iStatus 1 each envelope gets its symmetricKey,
    /// by position.
    /// 37008 when an envelope differs from the one at its position (its key is
    /// then not stored; the others are).
    long QueryBIDDecryptResultTask(std::string sTaskId, std::string sToken, int& iStatus,
                                   std::vector<KXReceiveData>& vecEnvelopes);
    /// Polls an encrypt task (no head); with iStatus 1 every item gets the
    /// publicKey and the authInfo (as JSON text).
    long QueryBIDEncryptResultTask(std::string sTaskId, int& iStatus,
                                   std::vector<KXReceiveData>& vecItems);
    /// Opens an authorisation task for strSubjectName (the record's
    /// iAuthSeconds, when set, limits it); gives the task id, approval URL and
    /// scan mode.
    long CreateBIDAuthInfoTask(std::string sToken, std::string strSubjectName,
                               std::string& strTaskId, std::string& strUrl,
                               std::string& strScanMode);
    /// Polls an authorisation task; with iStatus 1 gives its authCode.
    long QueryBIDAuthInfoResultTask(std::string sTaskId, std::string sToken, int& iStatus,
                                    std::string& strAuthCode);
    /// Signs strText under an authCode at once; gives the signature.
    /// strSignAlgOid names the hash: SHA1 or SHA256 RSA by OID, else the
    /// server's default.
    /// strIsBase64 "1": strText is Base64 of raw data. Server status 1490152
    /// becomes 37011.
    long GetBIDSignDataTask(std::string sToken, std::string strAuthCode, std::string strText,
                            std::string& strSignature, std::string strIsBase64,
                            std::string strSignAlgOid);
    /// Has the server verify strSignResult over strText; gives the signer's
    /// certificate and the verdict.
    long GetBIDVerifyResultTask(std::string sToken, std::string strText, std::string strSignResult,
                                std::string& strCertBase64, bool& bVerifyResult);
    /// The seals of an account (of its organisation when strRealOrgId is set),
    /// set up at first use: strSeals gets {"data":...} as the server sent it.
    long GetBIDSealTask(std::string strRealAccountId, std::string strRealOrgId,
                        std::string& strSeals);
    /// The seals of iSealType under an authCode; appended to vecSeals, never
    /// cleared.
    long GetBIDSealByAuthCodeTask(std::string sToken, std::string strAuthCode, int iSealType,
                                  std::vector<_seal_Info_s>& vecSeals);
    /// The seals of an organisation (the account's own when strRealOrgId is
    /// empty), of iSealType unless 0; appended to vecSeals, never cleared.
    long GetBIDSealByOrgIdTask(std::string sToken, std::string strRealAccountId,
                               std::string strRealOrgId, int iSealType,
                               std::vector<_seal_Info_s>& vecSeals);
    /// @}

    // URL templates: printf formats whose first %s is the record's ServerIp
    // (host, and ":port" when the server is not on 443); values go in as they
    // are. Fixed at construction.
    std::string strClientTokenUrl;            ///< client-credentials token (no operation uses it)
    std::string strCodeTokenUrl;              ///< URL of GetRealAccoutIdByCode
    std::string strIdentityInfoUrl;           ///< URL of GetIdentityInfo
    std::string strRealnameOrgInfoUrl;        ///< URL of GetFinalRealnameOrgInfo
    std::string strAllInfoUrl;                ///< URL of GetAllInfo
    std::string strEncryptionsUrl;            ///< URL of CreateEncOrDecTask
    std::string strEncryptionExecuteUrl;      ///< URL of ExecuteEncOrDecTask
    std::string strEncryptionUrl;             ///< URL of EndEncOrDecTask
    std::string strCreateMobShieldAuthUrl;    ///< URL of CreateMobShieldAuth
    std::string strVerifyMobShieldAuthUrl;    ///< URL of VerifyMobShieldAuth
    std::string strReservedA;                 ///< reserved, not used by the library
    std::string strReservedB;                 ///< reserved, not used by the library
    std::string strWitnessFlowsUrl;           ///< URL of CreateWitnessFlowTask
    std::string strSaveSnapshotUrl;           ///< URL of ExecuteSnapShotTask
    std::string strCheckSignAccessUrl;        ///< URL of CheckSignAccessTask
    std::string strWitnessSignUrl;            ///< URL of SignTask
    std::string strSignResultUrl;             ///< URL of QuerySignResultTask
    std::string strWitnessConfirmUrl;         ///< URL of SignConfirmTask
    std::string strBIDFileSignTasksUrl;       ///< URL of CreateBIDFileSignTask
    std::string strBIDInitAndGetSealsUrl;     ///< URL of GetBIDSealTask
    std::string strBIDFileSignTaskUrl;        ///< URL of QueryBIDFileSignResultTask
    std::string strBIDLoginTasksUrl;          ///< URL of CreateBIDLoginTask
    std::string strBIDLoginTaskUrl;           ///< URL of QueryBIDLoginResultTask
    std::string strBIDDecryptTasksUrl;        ///< URL of both CreateBIDDecryptTask forms
    std::string strBIDEncryptTasksUrl;        ///< URL of CreateBIDEncryptTask
    std::string strBIDDecryptTaskUrl;         ///< URL of QueryBIDDecryptResultTask
    std::string strBIDEncryptTaskUrl;         ///< URL of QueryBIDEncryptResultTask
    std::string strBIDAuthTasksUrl;           ///< URL of CreateBIDAuthInfoTask
    std::string strBIDAuthTaskUrl;            ///< URL of QueryBIDAuthInfoResultTask
    std::string strBIDTextHashSignUrl;        ///< URL of GetBIDSignDataTask
    std::string strBIDVerifyTextHashSignUrl;  ///< URL of GetBIDVerifyResultTask
    std::string strBIDSealsUrl;               ///< URL of GetBIDSealByAuthCodeTask
    std::string strBIDSealByTypeUrl;          ///< URL of GetBIDSealByOrgIdTask with a seal type
    std::string strBIDSealUrl;                ///< URL of GetBIDSealByOrgIdTask without one
    std::string strBIDLogoutUrl;              ///< URL of GetBIDLoginOutTask
};
