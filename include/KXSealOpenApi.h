// Client of the seal open API: a session with the seal server, the user's seals,
// hash signing, sign logs and, as version 1 of print control, print counts.
#pragma once

#include <string>
#include <vector>

#include "KXCommonType.h"
#include "KXExport.h"
#include "KXServerBase.h"
#include "PrintCtrlHelper.h"

// Login types of CKXSealOpenApi::Login: how the password travels in the form.
enum KXSealLoginType {
    KX_SEAL_LOGIN_DIGEST = 0,   // hex digest of the password
    KX_SEAL_LOGIN_ENCODED = 1,  // user and password URL-encoded
    KX_SEAL_LOGIN_PLAIN = 2,    // as given
    KX_SEAL_LOGIN_DIGEST3 = 3,  // as 0, with loginType 3
};

class KX_API CKXSealOpenApi : public KXServerBase, public PrintCtrlHelper {
public:
    CKXSealOpenApi();
    CKXSealOpenApi(const CKXSealOpenApi& other);
    CKXSealOpenApi& operator=(const CKXSealOpenApi& other);
    ~CKXSealOpenApi();

    // Checks and keeps info, reads the endpoints of section OpenApiURL and,
    // unless ServerFlag is set, asks the server for them.
    long Init(const _init_Info_s& info) override;
    virtual long Login(const char* user, const char* userPwd, int nLoginType);
    virtual long Logout();
    virtual int IsLogin();
    // sealId 0 and an empty certSerial ask for every seal of the user.
    virtual long GetSealList(int sealId, const char* certSerial,
                             std::vector<_seal_Info_s>& sealInfoList);
    virtual long SignHash(const char* originalB64, const char* signPwd, std::string& signValueB64);
    virtual long ReportSignResult(const char* timestamp, const char* docName, const char* docHash,
                                  const char* docContent, const char* signInfo, const char* certId,
                                  const char* sealId);
    // Has the seal server turn the document at srcPath into a PDF stored at
    // pdfPath. convertUrl, when not empty, is the complete conversion URL in
    // place of the configured one (33030 when there is neither). A PostScript
    // document may be asked for its dependent files from its directory. No
    // login needed. The code of the last step: upload, reply, download.
    virtual long Conv2PDF(const std::wstring& srcPath, const std::wstring& pdfPath,
                          const std::wstring& convertUrl);

    long QueryPrintInfo(const std::string& sPrintID, int& iTotal, int& iRemain) override;
    long UpdatePrintInfo(const std::string& sPrintID, const int& iRemain) override;

protected:
    long OnInit(const std::string& text);
    long OnLogin(const std::string& text);
    long OnLogout(const std::string& text);
    long OnGetSealList(const std::string& text, std::vector<_seal_Info_s>& sealInfoList);
    long OnSignHash(const std::string& text, std::string& signValueB64);
    long OnReportSignResult(const std::string& text);
    long OnQueryPrintInfo(const std::string& text, int& iTotal, int& iRemain);
    long OnUpdatePrintInfo(const std::string& text);
    // Posts the files a PostScript conversion asked for (res_file, ps_file of
    // text) from dirPath to ps_conv.php beside the configured conversion URL;
    // result gets the outcome. 10003 when text is no JSON.
    long UploadPSConvDepFiles(const std::string& text, const std::string& dirPath,
                              KXReqResult& result);
    long OnConv2PDF(const std::string& text, std::string& pdfUrl);

public:
    std::string strUserName;
    std::string strUserPwd;
    int iLoginType;
    std::string strToken;
    std::string strMac;
    std::string strEquipId;
    std::string strInitUrl;
    int iServerFlag;
    std::string strHost;
    std::string strPort;
    std::string strLoginUrl;
    std::string strLogoutUrl;
    std::string strGetSealListUrl;
    std::string strSignHashUrl;
    std::string strSaveSignLogUrl;
    std::string strConvertToPdfUrl;
    std::string strSealManageHost;
    std::string strSealManagePort;
    std::string strGetPrintCount;
    std::string strUpdatePrint;
    int bIsLogin;
};

// Decodes a seal's Base64 XML document into seal: 0, 10005 for empty data,
// 10010 when the document or one of its required elements is missing. Only
// the fields the document carries are written.
KX_API long KX_PraseXMLSeal(const char* data, _seal_Info_s& seal);

// The seals of a certificate from three services, reached through
// IWK_ServerForword with addresses from the configuration. Each appends what
// it reads to seals (never clearing it) and returns 0 or a result code: 10005
// for an empty required argument, 10076 when the server URL is not
// configured, 10001 for a forward reply that is no JSON object, 10048 when no
// seal could be read, or a code of the forward or of the server.
//
// The integrate service, by certificate, origin and its signature (certB64,
// algorithm and originB64 required; a null ukeyNum or signatureB64 goes as
// ""). Widths and heights come in millimetres unless keepPixels.
KX_API long KX_GetSealListByYPT(const char* certB64, const char* ukeyNum, const char* algorithm,
                                const char* originB64, const char* signatureB64, int mark,
                                std::vector<_seal_Info_s>& seals, bool keepPixels);
// The same family of services, by certificate serial number; each seal gets
// the certificate the reply names.
KX_API long KX_GetSealListByCertSN(const char* certSn, std::vector<_seal_Info_s>& seals);
// The sister seal service: an access token first, then the ASN.1 seals of a
// signing certificate or UKey (one of the two is enough; a null one goes as
// ""). An empty token ends it with 0 and no list request.
KX_API long KX_GetSealListByCert_RBN(const char* signCert, const char* ukeySN, int sealType,
                                     std::vector<_seal_Info_s>& seals);
