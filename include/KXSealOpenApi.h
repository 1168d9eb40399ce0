/// @file
/// Client of the seal open API: a session with the seal server, the user's seals,
/// hash signing, sign logs and, as version 1 of print control, print counts.
#pragma once

#include <string>
#include <vector>

#include "KXCommonType.h"
#include "KXExport.h"
#include "KXServerBase.h"
#include "PrintCtrlHelper.h"

/// Login types of CKXSealOpenApi::Login: how the password travels in the form.
enum KXSealLoginType {
    KX_SEAL_LOGIN_DIGEST = 0,   ///< hex digest of the password
    KX_SEAL_LOGIN_ENCODED = 1,  ///< user and password URL-encoded
    KX_SEAL_LOGIN_PLAIN = 2,    ///< as given
    KX_SEAL_LOGIN_DIGEST3 = 3,  ///< as 0, with loginType 3
};

/// Client of the seal server. Its replies are {"errCode","msg",...}: a reply
/// that is no JSON object gives 10003, one without a usable errCode 10027, and
/// the server's non-zero errCode comes back as it is. No operation checks the
/// held description first.
class KX_API CKXSealOpenApi : public KXServerBase, public PrintCtrlHelper {
public:
    /// Not logged in; no endpoints.
    CKXSealOpenApi();
    /// Copies the description, the session and the endpoints.
    CKXSealOpenApi(const CKXSealOpenApi& other);
    /// Copies the description, the session and the endpoints.
    CKXSealOpenApi& operator=(const CKXSealOpenApi& other);
    /// Not virtual, like its bases'.
    ~CKXSealOpenApi();

    /// Checks and keeps info, reads the endpoints of section OpenApiURL and,
    /// unless ServerFlag is set, asks the server for them.
    long Init(const _init_Info_s& info) override;
    /// Opens a session: user and userPwd (both required, else 10005) go in the
    /// form as nLoginType says (KXSealLoginType; another value gives 10001).
    /// Any earlier session ends first, whatever the outcome. On 0 the token is
    /// kept for the operations below.
    virtual long Login(const char* user, const char* userPwd, int nLoginType);
    /// Ends the session at the server; on 0 the token is dropped.
    virtual long Logout();
    /// 1 while a session is open, else 0.
    virtual int IsLogin();
    /// The user's seals, each decoded with KX_PraseXMLSeal. sealInfoList is
    /// emptied first. 10006 when the reply lists none; when a seal cannot be
    /// decoded the ones before it come back with its code (10010 when none).
    /// sealId 0 and an empty certSerial ask for every seal of the user.
    virtual long GetSealList(int sealId, const char* certSerial,
                             std::vector<_seal_Info_s>& sealInfoList);
    /// Has the server sign the Base64 hash originalB64 with the seal password
    /// signPwd (null arguments: 10005); signValueB64 gets the signature on 0.
    virtual long SignHash(const char* originalB64, const char* signPwd, std::string& signValueB64);
    /// Files the sign log of a signed document (a null argument gives 10005;
    /// certId is decimal text).
    virtual long ReportSignResult(const char* timestamp, const char* docName, const char* docHash,
                                  const char* docContent, const char* signInfo, const char* certId,
                                  const char* sealId);
    /// Has the seal server turn the document at srcPath into a PDF stored at
    /// pdfPath. convertUrl, when not empty, is the complete conversion URL in
    /// place of the configured one (33030 when there is neither). A PostScript
    /// document may be asked for its dependent files from its directory. No
    /// login needed. The code of the last step: upload, reply, download.
    virtual long Conv2PDF(const std::wstring& srcPath, const std::wstring& pdfPath,
                          const std::wstring& convertUrl);

    /// Print counts of version 1, at the seal-management endpoint: iRemain
    /// gets the reply's printCount, iTotal its printTotalCount (0 when absent).
    long QueryPrintInfo(const std::string& sPrintID, int& iTotal, int& iRemain) override;
    /// Sends iRemain as the printCount of sPrintID to the seal-management endpoint.
    long UpdatePrintInfo(const std::string& sPrintID, const int& iRemain) override;

protected:
    /// Reads the discovery reply: every endpoint it names replaces the held one
    /// and is written back to the configuration store.
    long OnInit(const std::string& text);
    /// Reads the login reply: on 0 keeps its token and opens the session.
    long OnLogin(const std::string& text);
    /// Reads the logout reply: on 0 closes the session.
    long OnLogout(const std::string& text);
    /// Reads the seal-list reply into sealInfoList (see GetSealList).
    long OnGetSealList(const std::string& text, std::vector<_seal_Info_s>& sealInfoList);
    /// Reads the hash-signing reply: signValueB64 gets its signResult on 0.
    long OnSignHash(const std::string& text, std::string& signValueB64);
    /// Reads the sign-log reply: its code alone.
    long OnReportSignResult(const std::string& text);
    /// Reads the print-count reply (see QueryPrintInfo).
    long OnQueryPrintInfo(const std::string& text, int& iTotal, int& iRemain);
    /// Reads the print-count update reply: its code alone.
    long OnUpdatePrintInfo(const std::string& text);
    /// Posts the files a PostScript conversion asked for (res_file, ps_file of
    /// text) from dirPath to ps_conv.php beside the configured conversion URL;
    /// result gets the outcome. 10003 when text is no JSON.
    long UploadPSConvDepFiles(const std::string& text, const std::string& dirPath,
                              KXReqResult& result);
    /// Reads the conversion reply: pdfUrl gets its pdf_url on 0.
    long OnConv2PDF(const std::string& text, std::string& pdfUrl);

public:
    /// User of the last successful Login.
    std::string strUserName;
    /// Password of the last successful Login.
    std::string strUserPwd;
    /// Login type of the last Login (KXSealLoginType).
    int iLoginType;
    /// Session token; empty when no session is open.
    std::string strToken;
    /// This machine's MAC address, read by Init.
    std::string strMac;
    /// Device id: hex digest of strMac.
    std::string strEquipId;
    /// Base of the discovery URL (key InitUrl).
    std::string strInitUrl;
    /// Not 0: no discovery; the server is the description's host and port (key ServerFlag).
    int iServerFlag;
    /// Seal server host, from discovery or the description.
    std::string strHost;
    /// Seal server port, as text.
    std::string strPort;
    /// Path of Login.
    std::string strLoginUrl;
    /// Path of Logout.
    std::string strLogoutUrl;
    /// Path of GetSealList.
    std::string strGetSealListUrl;
    /// Path of SignHash.
    std::string strSignHashUrl;
    /// Path of ReportSignResult.
    std::string strSaveSignLogUrl;
    /// Path of Conv2PDF.
    std::string strConvertToPdfUrl;
    /// Host of the seal-management endpoints (print counts).
    std::string strSealManageHost;
    /// Port of the seal-management endpoints, as text.
    std::string strSealManagePort;
    /// Path of QueryPrintInfo.
    std::string strGetPrintCount;
    /// Path of UpdatePrintInfo.
    std::string strUpdatePrint;
    /// 1 while a session is open, else 0 (see IsLogin).
    int bIsLogin;
};

/// Decodes a seal's Base64 XML document into seal: 0, 10005 for empty data,
/// 10010 when the document or one of its required elements is missing. Only
/// the fields the document carries are written.
KX_API long KX_PraseXMLSeal(const char* data, _seal_Info_s& seal);

/// The seals of a certificate from the integrate service, one of three seal
/// services reached through IWK_ServerForword with addresses from the
/// configuration; by certificate, origin and its signature (certB64,
/// algorithm and originB64 required; a null ukeyNum or signatureB64 goes as
/// ""). Widths and heights come in millimetres unless keepPixels; mark is sent
/// as it is. Appends to seals (never clearing it); 0, 10005 for an empty
/// required argument, 10076 when the server URL is not configured, 10001 for a
/// forward reply that is no JSON object, 10048 when no seal could be read, or
/// a code of the forward or of the server.
KX_API long KX_GetSealListByYPT(const char* certB64, const char* ukeyNum, const char* algorithm,
                                const char* originB64, const char* signatureB64, int mark,
                                std::vector<_seal_Info_s>& seals, bool keepPixels);
/// The same family of services, by certificate serial number; each seal gets
/// the certificate the reply names. Codes as KX_GetSealListByYPT.
KX_API long KX_GetSealListByCertSN(const char* certSn, std::vector<_seal_Info_s>& seals);
/// The sister seal service: an access token first, then the ASN.1 seals of a
/// signing certificate or UKey (one of the two is enough; a null one goes as
/// ""), of sealType. An empty token ends it with 0 and no list request.
/// Codes as KX_GetSealListByYPT.
KX_API long KX_GetSealListByCert_RBN(const char* signCert, const char* ukeySN, int sealType,
                                     std::vector<_seal_Info_s>& seals);
