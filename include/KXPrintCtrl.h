// Client of the print-control service, version 3 of print control: the
// encryption certificates of accounts, server-side print allowances per
// certificate, an SMS code check and the organisation of a certificate.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "KXCommonType.h"
#include "KXExport.h"
#include "KXServerBase.h"
#include "PrintCtrlHelper.h"

class KX_API KXPrintCtrl : public KXServerBase, public PrintCtrlHelper {
public:
    KXPrintCtrl();
    KXPrintCtrl(const KXPrintCtrl& other);
    KXPrintCtrl& operator=(const KXPrintCtrl& other);
    ~KXPrintCtrl();

    // Checks and keeps info, then reads the six paths of section KXPrintCtrl.
    // No request.
    long Init(const _init_Info_s& info) override;
    // certs gains one record per certificate, keyed by serial; a serial it
    // already holds keeps its record.
    virtual long GetEncryptCerts(const std::vector<std::string>& accountCodes,
                                 std::map<std::string, KXReceiveData>& certs);
    // Registers a file with each record's printCount; the server's print id
    // goes to printId of the records it names.
    virtual long SavePrintInfo(const std::string& fileName, const std::string& fileHash,
                               long long fileSize, std::map<std::string, KXReceiveData>& certs);
    // 10009 without a complete record; the code alone says whether code was right.
    virtual long VerifySMSKaptchaForClient(std::string certSn, std::string code,
                                           std::string accountUUID);
    virtual long QueryOrganizeCodeByCertSn(std::string certSn, std::string& organizeCode);

    long QueryPrintInfo(const std::string& sPrintID, int& iTotal, int& iRemain) override;
    long UpdatePrintInfo(const std::string& sPrintID, const int& iRemain) override;

private:
    long OnGetEncryptCerts(const std::string& text, std::map<std::string, KXReceiveData>& certs);
    long OnSavePrintInfo(const std::string& text, std::map<std::string, KXReceiveData>& certs);
    long OnQueryPrintInfo(const std::string& text, int& iTotal, int& iRemain);
    long OnUpdatePrintInfo(const std::string& text);
    long OnQueryOrganizeCodeByCertSn(const std::string& text, std::string& organizeCode);

public:
    std::string strGetEncryptionCerts;
    std::string strSavePrintInfo;
    std::string strGetPrintInfo;
    std::string strUpdatePrintInfo;
    std::string strVerifySMSKaptcha;
    std::string strQueryOrganizeCode;
};

// KXPrintCtrl's own operations on an object from KX_CreatePrintCtrl: the
// KXPrintCtrl behind helper, or null when it is of another version.
inline KXPrintCtrl* KX_AsKXPrintCtrl(PrintCtrlHelper* helper) {
    return helper != nullptr && helper->Version == 3 ? static_cast<KXPrintCtrl*>(helper) : nullptr;
}
