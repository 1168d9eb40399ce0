// kxapi record, event and report: sign records through the seal plug-in, UKey
// events and usage reports.
#include "Commands.h"
#include "KXAscii.h"
#include "KXRecords.h"
#include "KXUtils.h"

namespace kxapi {

namespace {

// The value of an option, or null when it was not given: the library tells
// the two apart.
const char* Optional(const Args& args, const std::string& name, std::string& value) {
    if (!args.has(name)) return nullptr;
    value = args.get(name);
    return value.c_str();
}

int Report(const Args& args, const char* command, int recordType) {
    const auto& p = args.positional();
    if (p.size() != 1) return UsageError(command, "give the report as one JSON object");
    const long code = KXSER_UploadRecord(recordType, p[0].c_str());
    if (code != 0) return Fail("KXSER_UploadRecord", code);
    // Sent on a thread of its own: the library waits for it (at most a
    // second) when kxapi ends.
    std::string base;
    IWK_GetConfig(KXKey::ReportHostPort, base);
    Json::Value out;
    out["recordType"] = recordType;
    out["reportHostPort"] = base;
    out["accepted"] = true;
    PrintJson(out);
    return 0;
}

}  // namespace

int CmdRecordSave(const Args& args) {
    const char* command = "record save";
    int recordType = 0;
    if (!kxascii::ParseInt(args.get("type", "1"), recordType))
        return UsageError(command, "--type is a number");
    std::string data, value, doc, cert;
    const long code = KX_SaveSignRecord(recordType, Optional(args, "sign-data", data),
                                        Optional(args, "sign-value", value),
                                        Optional(args, "doc", doc), Optional(args, "cert", cert));
    if (code != 0) return Fail("KX_SaveSignRecord", code);
    Json::Value out;
    out["recordType"] = recordType;
    out["saved"] = true;
    PrintJson(out);
    return 0;
}

int CmdEventUkey(const Args& args) {
    std::string url;
    IWK_GetConfig(KXKey::eventCallBackUrl, url);
    std::string sn, certSn, certCn;
    const long code =
        KX_UKeyEventUpload(Optional(args, "ukey-sn", sn), Optional(args, "cert-sn", certSn),
                           Optional(args, "cert-cn", certCn), 0);
    if (code != 0) return Fail("KX_UKeyEventUpload", code);
    Json::Value out;
    out["eventCallBackUrl"] = url;
    out["sent"] = !url.empty();
    PrintJson(out);
    return 0;
}

int CmdReportSign(const Args& args) {
    return Report(args, "report sign", 1);
}

int CmdReportEncrypt(const Args& args) {
    return Report(args, "report encrypt", 2);
}

int CmdReportDecrypt(const Args& args) {
    return Report(args, "report decrypt", 3);
}

}  // namespace kxapi
