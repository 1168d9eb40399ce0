// kxapi print ...: the print-control service (version 3 of print control),
// each command on an object from KX_CreatePrintCtrl.
#include <map>

#include "Commands.h"
#include "KXAscii.h"
#include "KXPki.h"
#include "KXPrintCtrl.h"
#include "KXUtils.h"

namespace kxapi {

namespace {

// Holds the factory's object for one command and releases it at the end.
class PrintCtrl {
public:
    ~PrintCtrl() { KX_ReleasePrintCtrl(&helper_); }
    // 0, or the exit status after reporting why there is no object.
    int Open() {
        const long code = KX_CreatePrintCtrl(3, &helper_);
        return code == 0 ? 0 : Fail("KX_CreatePrintCtrl(3) with section KXPrintCtrl", code);
    }
    KXPrintCtrl& operator*() { return *KX_AsKXPrintCtrl(helper_); }
    KXPrintCtrl* operator->() { return KX_AsKXPrintCtrl(helper_); }

private:
    PrintCtrlHelper* helper_ = nullptr;
};

std::string BaseName(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

int CmdPrintRegister(const Args& args) {
    const char* command = "print register";
    const std::string path = args.get("file");
    const std::vector<std::string> accounts = args.all("account");
    int count = 0;
    if (path.empty() || accounts.empty())
        return UsageError(command, "give --file F and at least one --account A");
    if (!kxascii::ParseInt(args.get("count", "1"), count) || count < 0)
        return UsageError(command, "--count is a number of 0 or more");
    std::string content;
    if (!kxpki::ReadFile(path, content)) return UsageError(command, "cannot read " + path);

    PrintCtrl print;
    if (const int status = print.Open()) return status;
    std::map<std::string, KXReceiveData> certs;
    long code = print->GetEncryptCerts(accounts, certs);
    if (code != 0) return Fail("KXPrintCtrl::GetEncryptCerts", code);
    for (auto& entry : certs) entry.second.printCount = count;
    const std::string hash = IWK_CharToHex(kxpki::Sha256(content));
    code =
        print->SavePrintInfo(BaseName(path), hash, static_cast<long long>(content.size()), certs);
    if (code != 0) return Fail("KXPrintCtrl::SavePrintInfo", code);

    Json::Value out;
    out["fileName"] = BaseName(path);
    out["fileHash"] = hash;
    out["fileSize"] = Json::Int64(content.size());
    out["prints"] = Json::Value(Json::arrayValue);
    for (const auto& [sn, record] : certs) {
        Json::Value item;
        item["certSn"] = sn;
        item["accountCode"] = record.accountCode;
        item["printCount"] = record.printCount;
        // As text: the query takes it so, and it may pass 2^53.
        item["printId"] = std::to_string(record.printId);
        out["prints"].append(item);
    }
    PrintJson(out);
    return 0;
}

int CmdPrintQuery(const Args& args) {
    const auto& p = args.positional();
    if (p.size() != 1) return UsageError("print query", "give PRINT_ID");
    PrintCtrl print;
    if (const int status = print.Open()) return status;
    int total = 0, remain = 0;
    const long code = print->QueryPrintInfo(p[0], total, remain);
    if (code != 0) return Fail("KXPrintCtrl::QueryPrintInfo", code);
    Json::Value out;
    out["printId"] = p[0];
    out["total"] = total;
    out["remain"] = remain;
    PrintJson(out);
    return 0;
}

int CmdPrintUpdate(const Args& args) {
    const auto& p = args.positional();
    int remain = 0;
    if (p.size() != 1 || !kxascii::ParseInt(args.get("remain"), remain))
        return UsageError("print update", "give PRINT_ID and --remain N");
    PrintCtrl print;
    if (const int status = print.Open()) return status;
    const long code = print->UpdatePrintInfo(p[0], remain);
    if (code != 0) return Fail("KXPrintCtrl::UpdatePrintInfo", code);
    Json::Value out;
    out["printId"] = p[0];
    out["remain"] = remain;
    PrintJson(out);
    return 0;
}

int CmdPrintVerifySms(const Args& args) {
    const std::string sn = args.get("cert-sn");
    if (sn.empty() || !args.has("code"))
        return UsageError("print verify-sms", "give --cert-sn SN and --code C");
    PrintCtrl print;
    if (const int status = print.Open()) return status;
    const long code =
        print->VerifySMSKaptchaForClient(sn, args.get("code"), args.get("account-uuid"));
    if (code != 0) return Fail("KXPrintCtrl::VerifySMSKaptchaForClient", code);
    Json::Value out;
    out["certSn"] = sn;
    out["verified"] = true;
    PrintJson(out);
    return 0;
}

int CmdPrintOrg(const Args& args) {
    const std::string sn = args.get("cert-sn");
    if (sn.empty()) return UsageError("print org", "give --cert-sn SN");
    PrintCtrl print;
    if (const int status = print.Open()) return status;
    std::string organizeCode;
    const long code = print->QueryOrganizeCodeByCertSn(sn, organizeCode);
    if (code != 0) return Fail("KXPrintCtrl::QueryOrganizeCodeByCertSn", code);
    Json::Value out;
    out["certSn"] = sn;
    out["organizeCode"] = organizeCode;
    PrintJson(out);
    return 0;
}

}  // namespace kxapi
