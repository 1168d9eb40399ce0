// Commands of the seal open API: the road of one hash, the seal list and the
// print counts, each in one session (Init, Login, ..., Logout).

#include <ctime>
#include <iostream>

#include "Commands.h"
#include "KXAscii.h"
#include "KXPki.h"
#include "KXSealOpenApi.h"
#include "KXServerApi.h"
#include "KXUtils.h"

namespace kxapi {

namespace {

const char kSection[] = "OpenApiURL";

using kxascii::ParseInt;

// Prints one step of a session on stderr, so that stdout stays one JSON document.
void Step(Json::Value& steps, const std::string& name, long code) {
    std::cerr << "kxapi: " << name << ": " << (code == 0 ? "ok" : "code " + std::to_string(code))
              << "\n";
    Json::Value step;
    step["step"] = name;
    step["code"] = static_cast<Json::Int64>(code);
    steps.append(step);
}

Json::Value SealJson(const _seal_Info_s& seal) {
    Json::Value out;
    out["sealId"] = seal.sealId;
    out["sealName"] = seal.sealName;
    out["sealType"] = seal.sealType;
    out["certId"] = seal.certId;
    out["picType"] = seal.picType;
    out["width"] = seal.width;
    out["height"] = seal.height;
    out["certB64"] = seal.certB64;
    return out;
}

// Init and Login with --user, --password and --login-type; 0 or the failing
// step's exit status (already reported).
int OpenSession(const std::string& command, const Args& args, CKXSealOpenApi& api,
                Json::Value& steps) {
    const std::string user = args.get("user");
    const std::string password = Secret(args, "password", "KXAPI_PASSWORD");
    int loginType = 0;
    if (user.empty() || password.empty()) {
        return UsageError(command,
                          "give --user and a password (--password-file F, "
                          "$KXAPI_PASSWORD, a prompt, or --password P)");
    }
    if (!ParseInt(args.get("login-type", "0"), loginType)) {
        return UsageError(command, "--login-type is a number (0 to 3)");
    }
    if (const int status = OpenServer(api, kSection, "CKXSealOpenApi")) return status;
    Step(steps, "Init", 0);
    const long code = api.Login(user.c_str(), password.c_str(), loginType);
    Step(steps, "Login", code);
    if (code != 0) return Fail("CKXSealOpenApi::Login", code);
    return 0;
}

void CloseSession(CKXSealOpenApi& api, Json::Value& steps) {
    Step(steps, "Logout", api.Logout());
}

}  // namespace

int CmdSealSign(const Args& args) {
    const char* command = "seal sign";
    const bool hasHash = args.has("hash");
    const bool hasFile = args.has("file");
    if (hasHash == hasFile) return UsageError(command, "give one of --hash and --file");
    int sealId = 0;
    if (!ParseInt(args.get("seal-id", "0"), sealId)) {
        return UsageError(command, "--seal-id is a number");
    }
    std::string hashB64 = args.get("hash");
    std::string docName = "hash";
    if (hasFile) {
        std::string content;
        if (!kxpki::ReadFile(args.get("file"), content)) {
            return UsageError(command, "cannot read " + args.get("file"));
        }
        hashB64 = IWK_Base64Encode(kxpki::Sha256(content));
        docName = IWK_GetBaseName(args.get("file").c_str());
    }

    CKXSealOpenApi api;
    Json::Value steps(Json::arrayValue);
    int status = OpenSession(command, args, api, steps);
    if (status != 0) return status;

    std::vector<_seal_Info_s> seals;
    long code = api.GetSealList(sealId, "", seals);
    Step(steps, "GetSealList", code);
    if (code != 0) {
        CloseSession(api, steps);
        return Fail("CKXSealOpenApi::GetSealList", code);
    }
    const _seal_Info_s& seal = seals.front();

    // The sign PIN is the password unless one is given of its own.
    const bool ownPin =
        args.has("sign-pwd") || args.has("sign-pwd-file") || std::getenv("KXAPI_SIGN_PWD");
    const std::string signPwd = ownPin ? Secret(args, "sign-pwd", "KXAPI_SIGN_PWD")
                                       : Secret(args, "password", "KXAPI_PASSWORD");
    std::string signature;
    code = api.SignHash(hashB64.c_str(), signPwd.c_str(), signature);
    Step(steps, "SignHash", code);
    if (code != 0) {
        CloseSession(api, steps);
        return Fail("CKXSealOpenApi::SignHash", code);
    }

    const std::string timestamp = std::to_string(static_cast<long long>(std::time(nullptr)));
    code = api.ReportSignResult(timestamp.c_str(), docName.c_str(), hashB64.c_str(), "",
                                signature.c_str(), seal.certId.c_str(), seal.sealId.c_str());
    Step(steps, "ReportSignResult", code);
    if (code != 0) {
        CloseSession(api, steps);
        return Fail("CKXSealOpenApi::ReportSignResult", code);
    }
    code = api.Logout();
    Step(steps, "Logout", code);
    if (code != 0) return Fail("CKXSealOpenApi::Logout", code);

    // The certificate of the list, else the one inside the seal document.
    const std::string certB64 = seal.certB64.empty() ? seal.cert : seal.certB64;
    if (args.has("cert-out") &&
        !kxpki::WriteFile(args.get("cert-out"), kxpki::CertPemFromBase64(certB64))) {
        std::cerr << "kxapi: cannot write " << args.get("cert-out") << "\n";
        return 1;
    }
    if (args.has("sig-out") &&
        !kxpki::WriteFile(args.get("sig-out"), IWK_Base64Decode(signature))) {
        std::cerr << "kxapi: cannot write " << args.get("sig-out") << "\n";
        return 1;
    }

    Json::Value out;
    out["steps"] = steps;
    out["seal"] = SealJson(seal);
    out["hash"] = hashB64;
    out["hashAlgorithm"] = hasFile ? "SHA-256" : "as given";
    out["signature"] = signature;
    PrintJson(out);
    return 0;
}

int CmdSealList(const Args& args) {
    const char* command = "seal list";
    int sealId = 0;
    if (!ParseInt(args.get("seal-id", "0"), sealId)) {
        return UsageError(command, "--seal-id is a number");
    }
    CKXSealOpenApi api;
    Json::Value steps(Json::arrayValue);
    int status = OpenSession(command, args, api, steps);
    if (status != 0) return status;
    std::vector<_seal_Info_s> seals;
    const std::string serial = args.get("cert-serial");
    long code = api.GetSealList(sealId, serial.c_str(), seals);
    Step(steps, "GetSealList", code);
    CloseSession(api, steps);
    if (code != 0) return Fail("CKXSealOpenApi::GetSealList", code);
    Json::Value out;
    out["steps"] = steps;
    out["seals"] = Json::Value(Json::arrayValue);
    for (const _seal_Info_s& seal : seals) out["seals"].append(SealJson(seal));
    PrintJson(out);
    return 0;
}

int CmdSealPrintCount(const Args& args) {
    const char* command = "seal print-count";
    const auto& p = args.positional();
    int remain = 0;
    const bool get = p.size() == 2 && p[0] == "get";
    const bool set = p.size() == 3 && p[0] == "set";
    if (!get && !set) return UsageError(command, "give get PRINT_ID or set PRINT_ID REMAIN");
    if (set && !ParseInt(p[2], remain)) return UsageError(command, "REMAIN is a number");

    CKXSealOpenApi api;
    Json::Value steps(Json::arrayValue);
    int status = OpenSession(command, args, api, steps);
    if (status != 0) return status;
    int total = 0;
    long code = 0;
    if (get) {
        code = api.QueryPrintInfo(p[1], total, remain);
        Step(steps, "QueryPrintInfo", code);
    } else {
        code = api.UpdatePrintInfo(p[1], remain);
        Step(steps, "UpdatePrintInfo", code);
    }
    CloseSession(api, steps);
    if (code != 0) return Fail(get ? "QueryPrintInfo" : "UpdatePrintInfo", code);
    Json::Value out;
    out["steps"] = steps;
    out["printId"] = p[1];
    out["remain"] = remain;
    if (get) out["total"] = total;
    PrintJson(out);
    return 0;
}

}  // namespace kxapi
