// Document conversion and the certificate-keyed seal lists.
#include <iostream>

#include "Commands.h"
#include "KXAscii.h"
#include "KXPki.h"
#include "KXSealOpenApi.h"
#include "KXUtils.h"

namespace kxapi {

namespace {

// One line on stderr, redrawn as bytes move: which way, a bar, the share.
bool ProgressBar(long long downTotal, long long downNow, long long upTotal, long long upNow) {
    static int shown = -1;
    const bool down = downTotal > 0;
    const long long total = down ? downTotal : upTotal;
    const long long now = down ? downNow : upNow;
    if (total <= 0 || !ShowsProgress()) return true;
    const int percent = static_cast<int>(now * 100 / total);
    const int key = (down ? 1000 : 0) + percent;
    if (key == shown) return true;
    shown = key;
    const int width = 30;
    std::cerr << "\rkxapi: " << (down ? "download " : "upload   ") << "["
              << std::string(percent * width / 100, '#')
              << std::string(width - percent * width / 100, ' ') << "] " << percent << "% " << now
              << "/" << total << " bytes" << (percent == 100 ? "\n" : "") << std::flush;
    return true;
}

// A certificate file (PEM, DER or Base64) as Base64 of its DER, with its serial.
bool ReadCert(const std::string& path, std::string& certB64, std::string& serial) {
    std::string data;
    if (!kxpki::ReadFile(path, data)) return false;
    kxpki::Cert cert = kxpki::CertFromText(data);
    if (!cert) cert = kxpki::CertFromText(IWK_Base64Encode(data));
    if (!cert) return false;
    certB64 = kxpki::CertToBase64(cert.get());
    const ASN1_INTEGER* number = X509_get0_serialNumber(cert.get());
    BIGNUM* bn = ASN1_INTEGER_to_BN(number, nullptr);
    char* hex = bn != nullptr ? BN_bn2hex(bn) : nullptr;
    serial = hex != nullptr ? hex : "";
    OPENSSL_free(hex);
    BN_free(bn);
    return true;
}

Json::Value SealsJson(const std::vector<_seal_Info_s>& seals) {
    Json::Value list(Json::arrayValue);
    for (const _seal_Info_s& seal : seals) {
        Json::Value out;
        out["sealId"] = seal.sealId;
        out["sealName"] = seal.sealName;
        out["sealType"] = seal.sealType;
        out["width"] = seal.width;
        out["height"] = seal.height;
        out["sealDataType"] = seal.sealDataType;
        out["sealDataBytes"] = static_cast<Json::UInt64>(IWK_Base64Decode(seal.sealData).size());
        out["certBytes"] = static_cast<Json::UInt64>(IWK_Base64Decode(seal.certB64).size());
        list.append(out);
    }
    return list;
}

}  // namespace

int CmdConvert(const Args& args) {
    const char* command = "convert";
    if (args.positional().size() != 2) return UsageError(command, "give SRC DST.pdf");
    const std::string& src = args.positional()[0];
    const std::string& dst = args.positional()[1];
    CKXSealOpenApi api;
    if (const int status = OpenServer(api, args.get("section", "OpenApiURL"), "CKXSealOpenApi"))
        return status;
    const KXProgressCallback previous = IWK_SetDefaultProgress(&ProgressBar);
    const long code = api.Conv2PDF(IWK_Utf8ToWideChar(src), IWK_Utf8ToWideChar(dst),
                                   IWK_Utf8ToWideChar(args.get("url")));
    IWK_SetDefaultProgress(previous);
    if (code != 0) return Fail("CKXSealOpenApi::Conv2PDF", code);
    std::string pdf;
    kxpki::ReadFile(dst, pdf);
    Json::Value out;
    out["source"] = src;
    out["pdf"] = dst;
    out["bytes"] = static_cast<Json::UInt64>(pdf.size());
    PrintJson(out);
    return 0;
}

int CmdSealsByCert(const Args& args) {
    const char* command = "seals by-cert";
    const int services = args.has("ypt") + args.has("sn") + args.has("rbn");
    if (services != 1) return UsageError(command, "give one of --ypt, --sn, --rbn");
    std::string certB64, serial;
    const std::string path = args.get("cert");
    if (path.empty() || !ReadCert(path, certB64, serial))
        return UsageError(command, "give --cert FILE, a certificate (PEM, DER or Base64)");
    int sealType = 0;
    if (!kxascii::ParseInt(args.get("seal-type", "0"), sealType))
        return UsageError(command, "--seal-type is a number");
    std::vector<_seal_Info_s> seals;
    long code = 0;
    std::string function;
    if (args.has("ypt")) {
        function = "KX_GetSealListByYPT";
        const std::string origin = IWK_Base64Encode(args.get("origin", "kxapi seals by-cert"));
        code =
            KX_GetSealListByYPT(certB64.c_str(), args.get("ukey-num").c_str(),
                                args.get("algorithm", "SHA256withRSA").c_str(), origin.c_str(),
                                args.get("signature").c_str(), 0, seals, args.has("keep-pixels"));
    } else if (args.has("sn")) {
        function = "KX_GetSealListByCertSN";
        code = KX_GetSealListByCertSN(args.get("serial", serial).c_str(), seals);
    } else {
        function = "KX_GetSealListByCert_RBN";
        code =
            KX_GetSealListByCert_RBN(certB64.c_str(), args.get("ukey-sn").c_str(), sealType, seals);
    }
    if (code != 0) return Fail(function, code);
    Json::Value out;
    out["function"] = function;
    out["serial"] = serial;
    out["seals"] = SealsJson(seals);
    PrintJson(out);
    return 0;
}

}  // namespace kxapi
