/// @file
/// Client of the print-control service, version 3 of print control: the
/// encryption certificates of accounts, server-side print allowances per
/// certificate, an SMS code check and the organisation of a certificate.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "KXCommonType.h"
#include "KXExport.h"
#include "KXServerBase.h"
#include "PrintCtrlHelper.h"

/// Client of the print-control service (version 3 of print control). Its
/// requests carry the legacy head and go to the description's host and port
/// (an SMS check through the gateway goes to [KXSign] serverUrl, signed with
/// the gateway's application id); its replies are {"errCode","msg","data"}.
class KX_API KXPrintCtrl : public KXServerBase, public PrintCtrlHelper {
public:
    /// No description and no paths until Init.
    KXPrintCtrl();
    /// Copies the description and the paths.
    KXPrintCtrl(const KXPrintCtrl& other);
    /// Copies the description and the paths.
    KXPrintCtrl& operator=(const KXPrintCtrl& other);
    /// Not virtual, like its bases'.
    ~KXPrintCtrl();

    /// Checks and keeps info, then reads the six paths of section KXPrintCtrl.
    /// No request.
    long Init(const _init_Info_s& info) override;
    /// The encryption certificates of the accounts accountCodes (data and
    /// accountCode of each record).
    /// certs gains one record per certificate, keyed by serial; a serial it
    /// already holds keeps its record.
    virtual long GetEncryptCerts(const std::vector<std::string>& accountCodes,
                                 std::map<std::string, KXReceiveData>& certs);
    /// Registers a file (name, hash, size) for printing by the certificates
    /// of certs, each with its record's printCount; the server's print id
    /// goes to printId of the records it names.
    virtual long SavePrintInfo(const std::string& fileName, const std::string& fileHash,
                               long long fileSize, std::map<std::string, KXReceiveData>& certs);
    /// Checks an SMS code sent for certSn and accountUUID, straight or
    /// through the public gateway ([KXPrintCtrl] isGoGateWay).
    /// 10009 without a complete record; the code alone says whether code was right.
    virtual long VerifySMSKaptchaForClient(std::string certSn, std::string code,
                                           std::string accountUUID);
    /// The organisation code of the certificate certSn.
    virtual long QueryOrganizeCodeByCertSn(std::string certSn, std::string& organizeCode);

    /// Print counts of version 3: iTotal and iRemain from the reply's
    /// totalPrintCount and remainPrintCount (0 when absent).
    long QueryPrintInfo(const std::string& sPrintID, int& iTotal, int& iRemain) override;
    /// Sends iRemain as the remainPrintCount of sPrintID.
    long UpdatePrintInfo(const std::string& sPrintID, const int& iRemain) override;

private:
    long OnGetEncryptCerts(const std::string& text, std::map<std::string, KXReceiveData>& certs);
    long OnSavePrintInfo(const std::string& text, std::map<std::string, KXReceiveData>& certs);
    long OnQueryPrintInfo(const std::string& text, int& iTotal, int& iRemain);
    long OnUpdatePrintInfo(const std::string& text);
    long OnQueryOrganizeCodeByCertSn(const std::string& text, std::string& organizeCode);

public:
    std::string strGetEncryptionCerts;  ///< path of GetEncryptCerts
    std::string strSavePrintInfo;       ///< path of SavePrintInfo
    std::string strGetPrintInfo;        ///< path of QueryPrintInfo
    std::string strUpdatePrintInfo;     ///< path of UpdatePrintInfo
    std::string strVerifySMSKaptcha;    ///< path of VerifySMSKaptchaForClient
    std::string strQueryOrganizeCode;   ///< path of QueryOrganizeCodeByCertSn
};

/// KXPrintCtrl's own operations on an object from KX_CreatePrintCtrl: the
/// KXPrintCtrl behind helper, or null when it is of another version.
inline KXPrintCtrl* KX_AsKXPrintCtrl(PrintCtrlHelper* helper) {
    return helper != nullptr && helper->Version == 3 ? static_cast<KXPrintCtrl*>(helper) : nullptr;
}
