// Commands of the server frame: service query, configuration, legacy probe,
// and a signed request to any path.
#include <iostream>
#include <iterator>

#include "Commands.h"
#include "KXServerApi.h"
#include "KXUtils.h"

namespace kxapi {

namespace {

// Replies are shown as JSON when they are JSON, else as a string.
Json::Value AsJson(const std::string& text) {
    Json::Value parsed;
    if (kxjson::Parse(text, parsed)) return parsed;
    return Json::Value(text);
}

}  // namespace

int CmdCertServices(const Args& args) {
    const std::string sn = args.get("cert-sn");
    const std::string ukey = args.get("ukey-num");
    if (sn.empty() && ukey.empty()) {
        return UsageError("cert-services", "give --cert-sn, --ukey-num or both");
    }
    std::string result;
    long code = KXSER_CertServiceQuery(sn.empty() ? nullptr : sn.c_str(),
                                       ukey.empty() ? nullptr : ukey.c_str(), result);
    if (code != 0) return Fail("KXSER_CertServiceQuery", code);
    PrintJson(AsJson(result));
    return 0;
}

int CmdConfigGet(const Args& args) {
    if (args.positional().size() != 2) return UsageError("config get", "give SECTION KEY");
    const std::string& section = args.positional()[0];
    const std::string& key = args.positional()[1];
    std::string value;
    Json::Value out;
    out["section"] = section;
    out["key"] = key;
    out["found"] = IWK_GetConfigByKey(section, key, value, "") != 0;
    out["value"] = value;
    out["file"] = IWK_GetConfigFilePath();
    PrintJson(out);
    return out["found"].asBool() ? 0 : 1;
}

int CmdConfigSet(const Args& args) {
    if (args.positional().size() != 3) return UsageError("config set", "give SECTION KEY VALUE");
    const auto& p = args.positional();
    if (IWK_SetConfigByKey(p[0], p[1], p[2]) == 0) {
        std::cerr << "kxapi: cannot write " << p[0] << "/" << p[1] << " to "
                  << IWK_GetConfigFilePath() << "\n";
        return 1;
    }
    Json::Value out;
    out["section"] = p[0];
    out["key"] = p[1];
    out["file"] = IWK_GetConfigFilePath();
    PrintJson(out);
    return 0;
}

int CmdConfigEncrypt(const Args&) {
    std::string secret((std::istreambuf_iterator<char>(std::cin)),
                       std::istreambuf_iterator<char>());
    while (!secret.empty() && (secret.back() == '\n' || secret.back() == '\r')) secret.pop_back();
    if (secret.empty()) return UsageError("config encrypt", "no secret on standard input");
    const std::string stored = IWK_EncryptConfigInfo(secret);
    if (stored.empty()) {
        std::cerr << "kxapi: cannot encipher (is the key file writable?)\n";
        return 1;
    }
    Json::Value out;
    out["value"] = stored;
    PrintJson(out);
    return 0;
}

int CmdServerConfig(const Args& args) {
    if (args.positional().size() != 1) return UsageError("server-config", "give SECTION");
    const _init_Info_s info = ReadServer(args.positional()[0]);
    Json::Value out;
    out["SerType"] = info.SerType;
    out["ServerIp"] = info.ServerIp;
    out["Port"] = info.Port;
    out["ProjectID"] = info.ProjectID;
    out["ProjectSecret"] = info.ProjectSecret.empty() ? "" : "******";
    out["complete"] = KXServerBase::CheckInitInfo(info) == 0;
    PrintJson(out);
    return 0;
}

int CmdLegacyAuth(const Args& args) {
    const std::string section = args.get("section", "KXInkwell");
    _init_Info_s info = ReadServer(section);
    std::string authorization;
    long code = KX_InkwellCompatible(info, authorization, section);
    if (code != 0) return Fail("KX_InkwellCompatible", code);
    Json::Value out;
    out["serverVer"] = info.serverVer;
    out["authorizationType"] = info.authorizationType;
    out["authorization"] = authorization;
    PrintJson(out);
    return 0;
}

int CmdCall(const Args& args) {
    const auto& p = args.positional();
    if (p.size() != 3) return UsageError("call", "give SECTION METHOD PATH");
    const _init_Info_s info = ReadServer(p[0]);
    const std::string& method = p[1];
    const std::string url =
        CIWKHttp::GetCompleteUrl(p[2], info.ServerIp, std::to_string(info.Port), false);
    const std::string body = args.get("body");
    KXReqResult result;
    long code = 0;
    if (method == "GET") {
        std::string head =
            CIWKHttp::GetSignatureHead(HTTP_FUNC_GET, url, info.ServerIp, info.ProjectID,
                                       info.ProjectSecret, {}, "application/json");
        code = CIWKHttp::Get(url, "", head, &result, HTTP_REQ_PLAIN, nullptr);
    } else if (method == "POST" || method == "PUT") {
        const bool post = method == "POST";
        std::string head =
            CIWKHttp::GetSignatureHead(post ? HTTP_FUNC_POST : HTTP_FUNC_PUT, url, info.ServerIp,
                                       info.ProjectID, info.ProjectSecret, {}, "application/json");
        code = post ? CIWKHttp::Post(url, body, head, &result, HTTP_CONTENT_JSON, HTTP_REQ_PLAIN,
                                     nullptr, nullptr, nullptr)
                    : CIWKHttp::Put(url, body, head, &result, HTTP_CONTENT_JSON, HTTP_REQ_PUT,
                                    nullptr, nullptr, nullptr);
    } else {
        return UsageError("call", "METHOD is GET, POST or PUT");
    }
    if (code != 0) {
        IWK_SetLastError(result.errCode, result.msg);
        return Fail(method + " " + url, code);
    }
    PrintJson(AsJson(result.msg));
    return 0;
}

}  // namespace kxapi
