// Commands of the BID sign service: each task is opened, its url shown as a
// QR code, and polled with a progress line until it is decided or the time
// limit passes; the direct calls answer at once.
#include <functional>
#include <iostream>

#include "Commands.h"
#include "CorvaneApi.h"
#include "KXAscii.h"
#include "KXPki.h"
#include "KXUtils.h"

namespace kxapi {

namespace {

const int kDone = 1;

// Shows the task's url, then polls until status 1 (0 returned), another
// decision (1 returned) or the time limit. poll returns the operation's code
// and sets status; a failed poll ends the command through Fail.
int RunTask(const Args& args, const char* command, const std::string& what, const std::string& url,
            const std::string& scanMode, const std::function<long(int& status)>& poll,
            const char* pollName) {
    PollLimits limits = {500, 120};
    int exitStatus = 0;
    if (!ReadPollLimits(args, command, limits, exitStatus)) return exitStatus;
    ShowQr(what + " (scan mode " + scanMode + ")", url, !args.has("no-qr"));
    long rc = 0;
    int status = 0;
    int polls = 0;
    const int outcome = Poll(
        limits,
        [&] {
            rc = poll(status);
            if (ShowsProgress())
                std::cerr << "\rkxapi: waiting for approval, poll " << polls << ", status "
                          << status << "   " << std::flush;
            if (rc != 0) return -1;
            // Anything but waiting (0) and done (1) is the server's refusal.
            return status == kDone ? 1 : status == 0 ? 0 : -1;
        },
        polls);
    std::cerr << (ShowsProgress() ? "" : "kxapi: waiting for approval ")
              << (outcome > 0   ? "- approved\n"
                  : outcome < 0 ? "- ended\n"
                                : "- time limit reached\n");
    if (rc != 0) return Fail(pollName, rc);
    if (outcome == 0) return 1;
    if (outcome < 0) {
        std::cerr << "kxapi: the task was not approved (status " << status << ")\n";
        return 1;
    }
    return 0;
}

bool WriteCert(const std::string& path, const std::string& derB64) {
    if (path.empty()) return true;
    if (kxpki::WriteFile(path, kxpki::CertPemFromBase64(derB64))) return true;
    std::cerr << "kxapi: cannot write " << path << "\n";
    return false;
}

// The token every command but login needs.
bool NeedToken(const Args& args, const char* command, int& status) {
    if (!args.get("token").empty()) return true;
    status = UsageError(command, "give --token (the token of 'bid login')");
    return false;
}

}  // namespace

int CmdBidLogin(const Args& args) {
    const char* command = "bid login";
    int type = 0;
    if (!kxascii::ParseInt(args.get("type", "1"), type))
        return UsageError(command, "--type is 0 or 1");
    CCorvaneApi api;
    if (const int status = OpenClient(args, api)) return status;
    api.m_stInitInfo.iWithEncCert = args.has("with-enc-cert") ? 1 : 0;
    api.m_stInitInfo.iWithServicesInProject = args.has("services") ? 1 : 0;
    // --signed: the project's signature head; else no head, as before a login.
    const int useHeadToken = args.has("signed") ? 0 : 1;
    std::string taskId, url, scanMode;
    long rc = api.CreateBIDLoginTask(taskId, url, scanMode, args.get("app-id", "kxapi"), type,
                                     useHeadToken);
    if (rc != 0) return Fail("CreateBIDLoginTask", rc);
    std::string ouid, orgId, encCert, cert, token, orgName, publicKey, raw, userInfo;
    if (const int status = RunTask(
            args, command, "log in", url, scanMode,
            [&](int& st) {
                return api.QueryBIDLoginResultTask(taskId, ouid, orgId, st, encCert, cert, token,
                                                   orgName, publicKey, raw, userInfo, useHeadToken);
            },
            "QueryBIDLoginResultTask")) {
        return status;
    }
    if (!WriteCert(args.get("cert-out"), cert) || !WriteCert(args.get("enc-cert-out"), encCert)) {
        return 1;
    }
    Json::Value out;
    out["taskId"] = taskId;
    out["ouid"] = ouid;
    out["orgId"] = orgId;
    out["orgName"] = orgName;
    out["token"] = token;
    out["publicKey"] = publicKey;
    Json::Value info;
    if (kxjson::Parse(userInfo, info)) out["userInfo"] = info;
    PrintJson(out);
    return 0;
}

int CmdBidSignFiles(const Args& args) {
    const char* command = "bid sign-files";
    int status = 0;
    if (!NeedToken(args, command, status)) return status;
    const std::string account = args.get("account");
    if (account.empty() || args.positional().empty()) {
        return UsageError(command, "give --account and at least one file");
    }
    std::vector<KXReceiveData> files;
    for (const std::string& path : args.positional()) {
        std::string content;
        if (!kxpki::ReadFile(path, content)) {
            std::cerr << "kxapi: cannot read " << path << "\n";
            return 1;
        }
        KXReceiveData file;
        file.fileName = IWK_GetBaseName(path.c_str());
        file.externalFileId = "file-" + std::to_string(files.size() + 1);
        file.signHash = IWK_Base64Encode(kxpki::Sha256(content));
        if (args.has("seal-id")) {
            _seal_Info_s pos;
            pos.sealId = args.get("seal-id");
            pos.posPage = 1;
            pos.signType = "1";
            file.vecSeals.push_back(pos);
        }
        files.push_back(file);
    }
    CCorvaneApi api;
    if ((status = OpenClient(args, api)) != 0) return status;
    // --signed: the project's signature instead of the token head.
    const int useHeadToken = args.has("signed") ? 0 : 1;
    const std::string token = args.get("token");
    std::string url, scanMode, taskId;
    int activated = 0;
    long rc = api.CreateBIDFileSignTask(account, args.get("auth-account"), "", "0", token, files,
                                        url, scanMode, taskId, activated, useHeadToken);
    if (rc != 0) return Fail("CreateBIDFileSignTask", rc);
    if ((status = RunTask(
             args, command, "sign " + std::to_string(files.size()) + " file(s)", url, scanMode,
             [&](int& st) {
                 return api.QueryBIDFileSignResultTask(taskId, token, files, st, useHeadToken);
             },
             "QueryBIDFileSignResultTask")) != 0) {
        return status;
    }
    Json::Value out;
    out["taskId"] = taskId;
    const std::string dir = args.get("sig-dir");
    for (size_t i = 0; i < files.size(); ++i) {
        Json::Value one;
        one["file"] = args.positional()[i];
        one["externalFileId"] = files[i].externalFileId;
        one["signHash"] = files[i].signHash;
        one["signLogId"] = files[i].signLogId;
        one["signature"] = files[i].signature;
        if (!dir.empty()) {
            const std::string path = dir + "/" + files[i].fileName + ".sig";
            if (!kxpki::WriteFile(path, IWK_Base64Decode(files[i].signature))) {
                std::cerr << "kxapi: cannot write " << path << "\n";
                return 1;
            }
            one["signatureFile"] = path;
        }
        out["files"].append(one);
    }
    PrintJson(out);
    return 0;
}

int CmdBidDecrypt(const Args& args) {
    const char* command = "bid decrypt";
    int status = 0;
    if (!NeedToken(args, command, status)) return status;
    if (args.positional().empty()) return UsageError(command, "give at least one envelope");
    // The poll always carries the token; --app-id opens the task without it.
    const std::string token = args.get("token");
    const std::string appId = args.get("app-id");
    std::vector<KXReceiveData> envelopes;
    for (const std::string& b64 : args.positional()) {
        KXReceiveData item;
        item.digitalEnvelopeB64 = b64;
        envelopes.push_back(item);
    }
    CCorvaneApi api;
    if ((status = OpenClient(args, api)) != 0) return status;
    std::string taskId, url, scanMode;
    long rc = !appId.empty()
                  ? api.CreateBIDDecryptTaskWithAppId(envelopes, appId, taskId, url, scanMode)
                  : api.CreateBIDDecryptTask(envelopes, token, taskId, url, scanMode);
    if (rc != 0) return Fail("CreateBIDDecryptTask", rc);
    if ((status = RunTask(
             args, command, "open " + std::to_string(envelopes.size()) + " envelope(s)", url,
             scanMode,
             [&](int& st) { return api.QueryBIDDecryptResultTask(taskId, token, st, envelopes); },
             "QueryBIDDecryptResultTask")) != 0) {
        return status;
    }
    Json::Value out;
    out["taskId"] = taskId;
    for (const KXReceiveData& item : envelopes) out["symmetricKeys"].append(item.symmetricKey);
    PrintJson(out);
    return 0;
}

int CmdBidAuth(const Args& args) {
    const char* command = "bid auth";
    int status = 0;
    if (!NeedToken(args, command, status)) return status;
    int seconds = 0;
    if (!kxascii::ParseInt(args.get("seconds", "0"), seconds)) {
        return UsageError(command, "--seconds is a number");
    }
    CCorvaneApi api;
    if ((status = OpenClient(args, api)) != 0) return status;
    api.m_stInitInfo.iAuthSeconds = seconds;
    const std::string token = args.get("token");
    std::string taskId, url, scanMode, authCode;
    long rc = api.CreateBIDAuthInfoTask(token, args.get("subject", "kxapi"), taskId, url, scanMode);
    if (rc != 0) return Fail("CreateBIDAuthInfoTask", rc);
    if ((status = RunTask(
             args, command, "authorise signing", url, scanMode,
             [&](int& st) { return api.QueryBIDAuthInfoResultTask(taskId, token, st, authCode); },
             "QueryBIDAuthInfoResultTask")) != 0) {
        return status;
    }
    Json::Value out;
    out["taskId"] = taskId;
    out["authCode"] = authCode;
    PrintJson(out);
    return 0;
}

int CmdBidSignText(const Args& args) {
    const char* command = "bid sign-text";
    int status = 0;
    if (!NeedToken(args, command, status)) return status;
    const std::string authCode = args.get("auth-code");
    const bool base64 = args.has("base64");
    if (authCode.empty() || args.has("text") == base64) {
        return UsageError(command, "give --auth-code and one of --text and --base64");
    }
    const std::string text = base64 ? args.get("base64") : args.get("text");
    CCorvaneApi api;
    if ((status = OpenClient(args, api)) != 0) return status;
    std::string signature;
    const long rc =
        api.GetBIDSignDataTask(args.get("token"), authCode, text, signature, base64 ? "1" : "0",
                               args.get("alg-oid", "1.2.840.113549.1.1.11"));
    if (rc != 0) return Fail("GetBIDSignDataTask", rc);
    Json::Value out;
    out["signature"] = signature;
    PrintJson(out);
    return 0;
}

int CmdBidVerify(const Args& args) {
    const char* command = "bid verify";
    int status = 0;
    if (!NeedToken(args, command, status)) return status;
    if (args.get("signature").empty() || !args.has("text")) {
        return UsageError(command, "give --text and --signature");
    }
    CCorvaneApi api;
    if ((status = OpenClient(args, api)) != 0) return status;
    std::string cert;
    bool verified = false;
    const long rc = api.GetBIDVerifyResultTask(args.get("token"), args.get("text"),
                                               args.get("signature"), cert, verified);
    if (rc != 0) return Fail("GetBIDVerifyResultTask", rc);
    Json::Value out;
    out["verifyResult"] = verified;
    out["certBase64"] = cert;
    PrintJson(out);
    if (!verified) std::cerr << "kxapi: the signature does not verify over this text\n";
    return verified ? 0 : 1;
}

int CmdBidSeals(const Args& args) {
    const char* command = "bid seals";
    int type = 0;
    if (!kxascii::ParseInt(args.get("type", "0"), type)) {
        return UsageError(command, "--type is a number");
    }
    const std::string token = args.get("token");
    const std::string account = args.get("account");
    const std::string authCode = args.get("auth-code");
    // --init: by account at the /v1/ endpoint, signed; no token needed.
    if (args.has("init") ? account.empty()
                         : token.empty() || (authCode.empty() && account.empty())) {
        return UsageError(command,
                          "give --init --account, or --token with --auth-code or --account");
    }
    CCorvaneApi api;
    if (const int status = OpenClient(args, api)) return status;
    if (args.has("init")) {
        std::string seals;
        const long rc = api.GetBIDSealTask(account, args.get("org"), seals);
        if (rc != 0) return Fail("GetBIDSealTask", rc);
        Json::Value out;
        if (!kxjson::Parse(seals, out)) out = seals;
        PrintJson(out);
        return 0;
    }
    std::vector<_seal_Info_s> seals;
    const long rc = authCode.empty()
                        ? api.GetBIDSealByOrgIdTask(token, account, args.get("org"), type, seals)
                        : api.GetBIDSealByAuthCodeTask(token, authCode, type, seals);
    if (rc != 0)
        return Fail(authCode.empty() ? "GetBIDSealByOrgIdTask" : "GetBIDSealByAuthCodeTask", rc);
    Json::Value out(Json::arrayValue);
    for (const _seal_Info_s& seal : seals) {
        Json::Value s;
        s["sealId"] = seal.sealId;
        s["sealName"] = seal.sealName;
        s["sealType"] = seal.sealType;
        s["width"] = seal.width;
        s["height"] = seal.height;
        s["fileUrl"] = seal.fileUrl;
        s["purchaseStatus"] = seal.purchaseStatus;
        for (int t : seal.purchaseSealTypes) s["purchaseSealTypes"].append(t);
        out.append(s);
    }
    PrintJson(out);
    return 0;
}

int CmdBidLogout(const Args& args) {
    int status = 0;
    if (!NeedToken(args, "bid logout", status)) return status;
    CCorvaneApi api;
    if ((status = OpenClient(args, api)) != 0) return status;
    const long rc = api.GetBIDLoginOutTask(args.get("token"));
    if (rc != 0) return Fail("GetBIDLoginOutTask", rc);
    std::cerr << "kxapi: logged out\n";
    return 0;
}

}  // namespace kxapi
