// CKXSealOpenApi::Conv2PDF: a local document to a PDF at the seal server and
// back, with the dependent files of a PostScript document on request.
#include "KXSealOpenApi.h"
#include "KXUtils.h"
#include "frame/KXCall.h"

namespace {

const char kSource[] = "KXSeal";
// The server's errCode for a PostScript document that needs its dependent files.
const long kNeedsFiles = 4000;

}  // namespace

long CKXSealOpenApi::Conv2PDF(const std::wstring& srcPath, const std::wstring& pdfPath,
                              const std::wstring& convertUrl) {
    KXReqResult result;
    KXCall call(m_stInitInfo, KXReply::OpenApi);
    call.Require(!convertUrl.empty() || !strConvertToPdfUrl.empty(), KX_ERR_CONV_NO_URL);
    call.ResultInto(result);
    call.Run([&] {
        const std::string src = IWK_WideCharToUtf8(srcPath);
        std::string extension = IWK_SplitPath(src).ext;
        if (!extension.empty()) IWK_Upper(&extension[0], static_cast<int>(extension.size()));
        const bool postScript = IWK_Compare(extension, ".PS", false) == 0;
        if (convertUrl.empty()) {
            call.UrlAt(strConvertToPdfUrl, strHost, strPort);
        } else {
            call.UrlIs(IWK_WideCharToUtf8(convertUrl));
        }
        // Without Init the upload still names this machine.
        if (strEquipId.empty()) {
            strMac = IWK_GetMacAddress();
            strEquipId = IWK_CharToHex(IWK_Digest(strMac, KX_HASH_MD5));
        }
        Json::Value body(Json::objectValue);
        body["equipId"] = strEquipId;
        body["doctype"] = extension.empty() ? std::string() : extension.substr(1);
        body["saveToDisk"] = "1";

        std::string pdfUrl;
        call.ReadWith([&](const std::string& reply) {
            if (!postScript) return OnConv2PDF(reply, pdfUrl);
            // The next upload overwrites the reply: keep it.
            const std::string first = reply;
            Json::Value root;
            long code = ParseOpenApiReply(first, root);
            if (code == kNeedsFiles) {
                const size_t slash = src.find_last_of("/\\");
                const std::string dirPath = slash == std::string::npos ? src : src.substr(0, slash);
                code = UploadPSConvDepFiles(first, dirPath, result);
                if (code == KX_OK) code = OnConv2PDF(result.msg, pdfUrl);
                return code;
            }
            return code == KX_OK ? OnConv2PDF(first, pdfUrl) : code;
        });
        if (!call.PostMultipart(kxjson::Write(body), src)) return;

        Json::Value target(Json::objectValue);
        target["fileName"] = IWK_WideCharToUtf8(pdfPath);
        call.UrlIs(pdfUrl);
        call.Download(kxjson::Write(target));
    });
    KX_LOG(KX_LOG_TRACE, kSource, "CKXSealOpenApi::Conv2PDF", "lRes:%d", call.code());
    return call.lRes;
}

long CKXSealOpenApi::UploadPSConvDepFiles(const std::string& text, const std::string& dirPath,
                                          KXReqResult& result) {
    Json::Value root;
    if (!kxjson::Parse(text, root)) return KX_ERR_REPLY_UNPARSABLE;
    // ps_conv.php sits beside the configured conversion path, whatever URL
    // the caller gave for the document itself.
    const size_t slash = strConvertToPdfUrl.rfind('/');
    const std::string path =
        (slash == std::string::npos ? std::string() : strConvertToPdfUrl.substr(0, slash)) +
        "/ps_conv.php";
    // Each as the reply has it, a null included; "" only for a missing key.
    auto copied = [&root](const char* key) {
        return root.isObject() && root.isMember(key) ? kxjson::Member(root, key) : Json::Value("");
    };
    Json::Value body(Json::objectValue);
    body["res_file"] = copied("res_file");
    body["ps_file"] = copied("ps_file");

    KXCall call(m_stInitInfo, KXReply::OpenApi);
    call.ResultInto(result);
    call.ReadWith([](const std::string&) { return 0L; });
    call.UrlAt(path, strHost, strPort);
    call.PostMultipart(kxjson::Write(body), dirPath);
    return result.errCode;
}

long CKXSealOpenApi::OnConv2PDF(const std::string& text, std::string& pdfUrl) {
    Json::Value root;
    const long lRes = ParseOpenApiReply(text, root);
    if (lRes == KX_OK) pdfUrl = kxjson::String(root, "pdf_url");
    return lRes;
}
