// The BID sign service: login, file signing, digital-envelope, encrypt and
// authorisation tasks that a person approves on the approval page (the task's
// url), text-hash signing and verification, seals. Heads are checked per
// route as the library sends them: a token, the signature, or none.
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <map>
#include <memory>
#include <cstdlib>
#include <sstream>

#include "KXUtils.h"
#include "SimServer.h"

namespace kxsim {

namespace {

const char kApprovePath[] = "/mobile/bid/";
const char kTokenHeader[] = "X-KX-Token";
const char kSignatureHeader[] = "X-KX-Signature";

// Server codes of this service besides 0.
enum {
    kBadRequest = 400,
    kUnknownTask = 4042,
    kUnknownAccount = 4040,
    kAuthCodeRefused = 1490152,
};

// Task states as polls report them: only 1 carries results.
enum { kWaiting = 0, kDone = 1, kRejected = 2 };

// How a route wants to be authorised.
enum class Auth {
    Token,             // a valid token of a login
    None,              // nothing: the library sends no head
    Signature,         // the project's signature head
    TokenOrSignature,  // the caller's choice (file signing)
    NoneOrSignature,   // the caller's choice (login): a head that is there must verify
};

struct Task {
    std::string kind;  // login, file, decrypt, encrypt, auth
    std::string accountId;
    std::string text;  // what the approval page shows
    int status = kWaiting;
    Json::Value request;
    Json::Value result;  // the poll's data once done
};

struct EncCert {
    kxpki::Key key;
    kxpki::Cert cert;
};

std::string PublicKeyBase64(X509* cert) {
    unsigned char* der = nullptr;
    const int length = i2d_PUBKEY(X509_get0_pubkey(cert), &der);
    if (length <= 0) return std::string();
    std::string out(reinterpret_cast<char*>(der), static_cast<size_t>(length));
    OPENSSL_free(der);
    return IWK_Base64Encode(out);
}

// RSA PKCS #1 v1.5 over data hashed with md.
std::string SignData(EVP_PKEY* key, const EVP_MD* md, const std::string& data) {
    EVP_MD_CTX* ctx = EVP_MD_CTX_new();
    size_t length = 0;
    std::string out;
    if (ctx != nullptr && EVP_DigestSignInit(ctx, nullptr, md, nullptr, key) > 0 &&
        EVP_DigestSign(ctx, nullptr, &length, reinterpret_cast<const unsigned char*>(data.data()),
                       data.size()) > 0) {
        out.resize(length);
        if (EVP_DigestSign(ctx, reinterpret_cast<unsigned char*>(&out[0]), &length,
                           reinterpret_cast<const unsigned char*>(data.data()), data.size()) > 0) {
            out.resize(length);
        } else {
            out.clear();
        }
    }
    EVP_MD_CTX_free(ctx);
    return out;
}

bool VerifyData(X509* cert, const EVP_MD* md, const std::string& data, const std::string& sig) {
    EVP_MD_CTX* ctx = EVP_MD_CTX_new();
    const bool ok =
        ctx != nullptr &&
        EVP_DigestVerifyInit(ctx, nullptr, md, nullptr, X509_get0_pubkey(cert)) > 0 &&
        EVP_DigestVerify(ctx, reinterpret_cast<const unsigned char*>(sig.data()), sig.size(),
                         reinterpret_cast<const unsigned char*>(data.data()), data.size()) == 1;
    EVP_MD_CTX_free(ctx);
    return ok;
}

// RSA PKCS #1 v1.5 over a SHA-256 digest the caller computed.
std::string SignDigest(EVP_PKEY* key, const std::string& digest) {
    EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new(key, nullptr);
    size_t length = 0;
    std::string out;
    const unsigned char* in = reinterpret_cast<const unsigned char*>(digest.data());
    if (ctx != nullptr && EVP_PKEY_sign_init(ctx) > 0 &&
        EVP_PKEY_CTX_set_rsa_padding(ctx, RSA_PKCS1_PADDING) > 0 &&
        EVP_PKEY_CTX_set_signature_md(ctx, EVP_sha256()) > 0 &&
        EVP_PKEY_sign(ctx, nullptr, &length, in, digest.size()) > 0) {
        out.resize(length);
        if (EVP_PKEY_sign(ctx, reinterpret_cast<unsigned char*>(&out[0]), &length, in,
                          digest.size()) > 0) {
            out.resize(length);
        } else {
            out.clear();
        }
    }
    EVP_PKEY_CTX_free(ctx);
    return out;
}

// Opens an RSA envelope (the symmetric key enciphered to the certificate's
// key), OAEP or PKCS #1 v1.5 as OpenSSL's pkeyutl makes them.
bool OpenEnvelope(EVP_PKEY* key, const std::string& envelope, std::string& out) {
    for (int padding : {RSA_PKCS1_OAEP_PADDING, RSA_PKCS1_PADDING}) {
        EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new(key, nullptr);
        size_t length = 0;
        const unsigned char* in = reinterpret_cast<const unsigned char*>(envelope.data());
        bool ok = ctx != nullptr && EVP_PKEY_decrypt_init(ctx) > 0 &&
                  EVP_PKEY_CTX_set_rsa_padding(ctx, padding) > 0 &&
                  EVP_PKEY_decrypt(ctx, nullptr, &length, in, envelope.size()) > 0;
        if (ok) {
            out.resize(length);
            ok = EVP_PKEY_decrypt(ctx, reinterpret_cast<unsigned char*>(&out[0]), &length, in,
                                  envelope.size()) > 0;
            out.resize(ok ? length : 0);
        }
        EVP_PKEY_CTX_free(ctx);
        if (ok) return true;
    }
    return false;
}

class Service {
public:
    explicit Service(Sim& sim) : sim_(sim) {}

    bool Install() {
        // Every account also holds an encryption certificate for envelopes.
        for (const Account& account : sim_.state().accounts) {
            EncCert& enc = encCerts_[account.accountId];
            enc.key = kxpki::MakeRsaKey(2048);
            kxpki::CertRequest req;
            req.commonName = "KXSim encryption " + account.loginName;
            req.organisation = "KXSim";
            enc.cert = kxpki::IssueCertWithUsage(
                req, enc.key.get(), "critical,keyEncipherment,dataEncipherment",
                sim_.authority().caCert(), sim_.authority().caKey());
            if (!enc.key || !enc.cert) return false;
        }
        const std::string v3 = "/v3/bid-sign/";
        Route("POST", v3 + "loginTasks", Auth::NoneOrSignature, &Service::CreateLogin);
        Route("GET", v3 + "loginTasks/([^/]+)", Auth::NoneOrSignature, &Service::PollTask);
        Route("POST", v3 + "logout", Auth::Token, &Service::Logout);
        Route("POST", v3 + "signatures/fileSignTasks", Auth::TokenOrSignature,
              &Service::CreateFileSign);
        Route("GET", v3 + "signatures/fileSignTasks/([^/]+)", Auth::TokenOrSignature,
              &Service::PollTask);
        // Without a token the body names the application instead.
        Route("POST", v3 + "decryptTasks", Auth::None, &Service::CreateDecrypt);
        Route("GET", v3 + "decryptTasks/([^/]+)", Auth::Token, &Service::PollTask);
        Route("POST", v3 + "encryptTasks", Auth::None, &Service::CreateEncrypt);
        Route("GET", v3 + "encryptTasks/([^/]+)", Auth::None, &Service::PollTask);
        Route("POST", v3 + "authTasks", Auth::Token, &Service::CreateAuth);
        Route("GET", v3 + "authTasks/([^/]+)", Auth::Token, &Service::PollTask);
        Route("POST", v3 + "signatures/textHashSign", Auth::Token, &Service::TextHashSign);
        Route("POST", v3 + "signatures/verifyTextHashSign", Auth::Token, &Service::VerifyText);
        Route("POST", v3 + "seals", Auth::Token, &Service::SealsByAuthCode);
        Route("GET", v3 + "seals/([^/]+)", Auth::Token, &Service::SealsByOrg);
        Route("POST", "/v1/bid-sign/seal/([^/]+)/initAndGetSeals", Auth::Signature,
              &Service::InitAndGetSeals);
        sim_.Get(std::string(kApprovePath) + "([^/]+)", Bind(Auth::None, &Service::Page));
        sim_.Post(std::string(kApprovePath) + "([^/]+)", Bind(Auth::None, &Service::Answer));
        sim_.AddStateView([this](Json::Value& state) { View(state); });
        return true;
    }

private:
    using Method = void (Service::*)(const httplib::Request&, httplib::Response&);

    void Route(const char* verb, const std::string& path, Auth auth, Method method) {
        if (std::string(verb) == "GET") {
            sim_.Get(path, Bind(auth, method));
        } else {
            sim_.Post(path, Bind(auth, method));
        }
    }

    Sim::Handler Bind(Auth auth, Method method) {
        return [this, auth, method](const httplib::Request& req, httplib::Response& res) {
            std::lock_guard<std::mutex> lock(sim_.mutex());
            account_.clear();
            if (Authorised(req, res, auth)) (this->*method)(req, res);
        };
    }

    // A failed check has answered 401. account_ gets the token's account.
    bool Authorised(const httplib::Request& req, httplib::Response& res, Auth auth) {
        const bool hasToken = req.has_header(kTokenHeader);
        const bool hasSignature = req.has_header(kSignatureHeader);
        if (auth == Auth::TokenOrSignature) auth = hasToken ? Auth::Token : Auth::Signature;
        if (auth == Auth::NoneOrSignature) auth = hasSignature ? Auth::Signature : Auth::None;
        if (auth == Auth::Signature) return sim_.CheckSignatureHead(req, res);
        if (auth == Auth::None) return true;
        auto token = tokens_.find(req.get_header_value(kTokenHeader));
        if (token != tokens_.end()) {
            account_ = token->second;
            return true;
        }
        if (!sim_.options().checkHeads) return true;
        ReplyCode(res, 401, hasToken ? "token not valid or logged out" : "token missing",
                  Json::Value(), 401);
        return false;
    }

    // Who acts: the token's account, else the first demo account (the one
    // whose phone approves tasks that name nobody).
    const Account& Actor() const {
        const Account* account = sim_.state().FindAccountById(account_);
        return account != nullptr ? *account : sim_.state().accounts.front();
    }
    const UserCertificate* SignCert(const std::string& accountId) const {
        for (const UserCertificate& uc : sim_.state().certificates) {
            if (uc.accountId == accountId) return &uc;
        }
        return nullptr;
    }

    std::string NewId(const char* prefix) {
        std::ostringstream id;
        id << prefix << "-" << ++next_ << "-" << IWK_CharToHex(IWK_GenRand(4));
        return id.str();
    }

    // Opens a task and answers with its url and scanMode.
    void Open(httplib::Response& res, const std::string& kind, const std::string& text,
              const Json::Value& request) {
        const std::string id = NewId(kind.c_str());
        Task& task = tasks_[id];
        task.kind = kind;
        task.accountId = Actor().accountId;
        task.text = text;
        task.request = request;
        Json::Value data;
        data["taskId"] = id;
        data["url"] = sim_.baseUrl() + kApprovePath + id;
        data["scanMode"] = "QRCODE";
        ReplyCode(res, 0, "success", data);
    }

    void CreateLogin(const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body)) return;
        int type = -1;
        kxjson::Int(kxjson::Member(body, "type"), type);
        if (type != 0 && type != 1) return ReplyCode(res, kBadRequest, "type must be 0 or 1");
        Open(res, "login",
             type == 0 ? "Log in on the desktop"
                       : "Log in to application " + kxjson::String(body, "appId") + " (challenge " +
                             kxjson::String(body, "signRawData") + ")",
             body);
    }

    void CreateFileSign(const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body)) return;
        const Json::Value& files = kxjson::Member(body, "signFiles");
        std::string text = "Sign as " + kxjson::String(body, "signerAccountId") + ":";
        for (Json::ArrayIndex i = 0; files.isArray() && i < files.size(); ++i) {
            if (IWK_Base64Decode(kxjson::String(files[i], "signHash")).size() != 32) {
                return ReplyCode(res, kBadRequest, "signHash must be Base64 of a SHA-256 digest");
            }
            text += " " + kxjson::String(files[i], "fileName");
        }
        if (!files.isArray() || files.size() == 0) {
            return ReplyCode(res, kBadRequest, "no file to sign");
        }
        Open(res, "file", text, body);
    }

    void CreateDecrypt(const httplib::Request& req, httplib::Response& res) {
        // A token, when there is one, must be valid; else the body names the app.
        if (req.has_header(kTokenHeader) && !Authorised(req, res, Auth::Token)) return;
        Json::Value body;
        if (!ReadJsonBody(req, res, body)) return;
        if (!req.has_header(kTokenHeader) && kxjson::String(body, "appId").empty()) {
            return ReplyCode(res, 401, "token or appId needed", Json::Value(), 401);
        }
        const Json::Value& list = kxjson::Member(body, "digitalEnvelopeList");
        if (!list.isArray() || list.size() == 0) {
            return ReplyCode(res, kBadRequest, "no digital envelope");
        }
        Open(res, "decrypt", "Open " + std::to_string(list.size()) + " digital envelope(s)", body);
    }

    void CreateEncrypt(const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body)) return;
        Open(res, "encrypt", "Hand out your encryption key to " + kxjson::String(body, "appId"),
             body);
    }

    void CreateAuth(const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body)) return;
        Open(res, "auth", "Authorise signing for " + kxjson::String(body, "subjectName"), body);
    }

    void PollTask(const httplib::Request& req, httplib::Response& res) {
        auto it = tasks_.find(Match(req, 1));
        const std::string kind = req.path.find("loginTasks") != std::string::npos ? "login"
                                 : req.path.find("fileSign") != std::string::npos ? "file"
                                 : req.path.find("decrypt") != std::string::npos  ? "decrypt"
                                 : req.path.find("encrypt") != std::string::npos  ? "encrypt"
                                                                                  : "auth";
        if (it == tasks_.end() || it->second.kind != kind) {
            return ReplyCode(res, kUnknownTask, "task not found");
        }
        Task& task = it->second;
        if (task.status == kWaiting && sim_.options().autoApprove) Decide(task, true);
        Json::Value data = task.status == kDone ? task.result : Json::Value();
        data["status"] = task.status;
        ReplyCode(res, 0, "success", data);
    }

    // Approval makes the task's results: real signatures, opened envelopes.
    void Decide(Task& task, bool approve) {
        task.status = approve ? kDone : kRejected;
        if (!approve) return;
        const Account* account = sim_.state().FindAccountById(task.accountId);
        const UserCertificate* cert = SignCert(task.accountId);
        const EncCert& enc = encCerts_[task.accountId];
        Json::Value& r = task.result;
        if (task.kind == "login") {
            const std::string token = NewId("bidtok");
            tokens_[token] = account->accountId;
            const Organisation* org = sim_.state().FindOrganisation(account->orgId);
            r["ouid"] = account->accountId;
            r["orgId"] = account->orgId;
            r["orgName"] = org != nullptr ? org->name : "";
            r["name"] = account->name;
            r["idNo"] = account->idNo;
            r["loginAccount"] = account->mobile;
            r["orgCertNo"] = org != nullptr ? org->creditCode : "";
            r["cert"] = IWK_Base64Encode(kxpki::CertToDer(cert->cert.get()));
            r["encCert"] = IWK_Base64Encode(kxpki::CertToDer(enc.cert.get()));
            r["publicKey"] = PublicKeyBase64(cert->cert.get());
            r["token"] = token;
            r["serviceEndTime"] = static_cast<Json::Int64>(IWK_GetCurTime() + 365LL * 86400000);
            int needAddress = 0;
            kxjson::Int(kxjson::Member(task.request, "isNeedUserAddress"), needAddress);
            if (needAddress == 1) {
                r["addressInfo"]["provinceName"] = "Anhui";
                r["addressInfo"]["cityName"] = "Hefei";
                r["addressInfo"]["districtName"] = "Shushan";
                r["addressInfo"]["latitude"] = "31.86";
                r["addressInfo"]["longitude"] = "117.28";
            }
            int services = 0;
            kxjson::Int(kxjson::Member(task.request, "withServicesInProject"), services);
            if (services != 0) {
                Json::Value service;
                service["licenseId"] = "kxsim-license-1";
                service["startTime"] = static_cast<Json::Int64>(IWK_GetCurTime());
                service["endTime"] = r["serviceEndTime"];
                service["status"] = 1;
                r["servicesInProject"].append(service);
            }
        } else if (task.kind == "file") {
            const Json::Value& files = task.request["signFiles"];
            for (Json::ArrayIndex i = 0; i < files.size(); ++i) {
                Json::Value one;
                one["externalFileId"] = kxjson::String(files[i], "externalFileId");
                one["signLogId"] = NewId("signlog");
                one["signature"] = IWK_Base64Encode(SignDigest(
                    cert->key.get(), IWK_Base64Decode(kxjson::String(files[i], "signHash"))));
                r["signResults"].append(one);
            }
            r["certBase64"] = IWK_Base64Encode(kxpki::CertToDer(cert->cert.get()));
        } else if (task.kind == "decrypt") {
            const Json::Value& list = task.request["digitalEnvelopeList"];
            for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
                Json::Value one;
                const std::string b64 = kxjson::String(list[i]);
                std::string key;
                one["digitalEnvelopeB64"] = b64;
                // An envelope that does not open gets an empty key.
                one["symmetricKey"] = OpenEnvelope(enc.key.get(), IWK_Base64Decode(b64), key)
                                          ? IWK_Base64Encode(key)
                                          : "";
                r["symmetricKeys"].append(one);
            }
        } else if (task.kind == "encrypt") {
            r["publicKey"] = PublicKeyBase64(enc.cert.get());
            r["authInfo"]["accountId"] = task.accountId;
            r["authInfo"]["certBase64"] = IWK_Base64Encode(kxpki::CertToDer(enc.cert.get()));
            r["authInfo"]["appId"] = kxjson::String(task.request, "appId");
        } else if (task.kind == "auth") {
            const std::string code = NewId("authcode");
            authCodes_[code] = task.accountId;
            r["bizData"]["authCode"] = code;
        }
    }

    void Logout(const httplib::Request& req, httplib::Response& res) {
        tokens_.erase(req.get_header_value(kTokenHeader));
        ReplyCode(res, 0, "success");
    }

    // The authCode must be one given to the token's account.
    bool AuthCodeOk(const std::string& code, httplib::Response& res) {
        auto it = authCodes_.find(code);
        if (it != authCodes_.end() && it->second == Actor().accountId) return true;
        ReplyCode(res, kAuthCodeRefused, "authCode not valid for this account");
        return false;
    }

    void TextHashSign(const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body) || !AuthCodeOk(kxjson::String(body, "authCode"), res)) {
            return;
        }
        const std::string alg = kxjson::String(body, "hashAlg");
        const EVP_MD* md = alg == "SHA1" ? EVP_sha1() : EVP_sha256();
        const std::string data = body.isMember("rawBase64")
                                     ? IWK_Base64Decode(kxjson::String(body, "rawBase64"))
                                     : kxjson::String(body, "text");
        Json::Value out;
        out["signature"] =
            IWK_Base64Encode(SignData(SignCert(Actor().accountId)->key.get(), md, data));
        ReplyCode(res, 0, "success", out);
    }

    // Checks under SHA-256 and SHA-1, over the text and, for Base64 text, the
    // bytes it stands for.
    void VerifyText(const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body)) return;
        const UserCertificate* cert = SignCert(Actor().accountId);
        const std::string text = kxjson::String(body, "text");
        const std::string sig = IWK_Base64Decode(kxjson::String(body, "signResult"));
        bool ok = false;
        for (const EVP_MD* md : {EVP_sha256(), EVP_sha1()}) {
            ok = ok || VerifyData(cert->cert.get(), md, text, sig) ||
                 VerifyData(cert->cert.get(), md, IWK_Base64Decode(text), sig);
        }
        Json::Value out;
        out["certBase64"] = IWK_Base64Encode(kxpki::CertToDer(cert->cert.get()));
        out["verifyResult"] = ok;
        ReplyCode(res, 0, "success", out);
    }

    Json::Value SealJson(const Seal& seal, bool purchase) const {
        Json::Value s;
        s["sealId"] = seal.sealId;
        s["sealName"] = seal.name;
        s["sealType"] = seal.sealType;
        s["height"] = 40;
        s["width"] = 40;
        s["fileKey"] = "filekey-" + seal.sealId;
        s["fileUrl"] = sim_.baseUrl() + "/kxsim/seal-image/" + seal.sealId;
        if (purchase) {
            s["purchaseStatus"] = 1;
            s["purchaseUrl"] = sim_.baseUrl() + "/kxsim/purchase";
            s["scanModel"] = "QRCODE";
            s["purchaseSealTypes"].append(3);
        }
        return s;
    }

    Json::Value SealsOf(const std::string& accountId, int type, bool purchase) const {
        Json::Value list(Json::arrayValue);
        for (const Seal& seal : sim_.state().seals) {
            if (seal.accountId == accountId && (type == 0 || seal.sealType == type)) {
                list.append(SealJson(seal, purchase));
            }
        }
        return list;
    }

    // One seal comes as the object itself, more as a list.
    void SealsByAuthCode(const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body) || !AuthCodeOk(kxjson::String(body, "authCode"), res)) {
            return;
        }
        int type = 0;
        kxjson::Int(kxjson::Member(body, "sealType"), type);
        Json::Value list = SealsOf(Actor().accountId, type, false);
        ReplyCode(res, 0, "success", list.size() == 1 ? list[0] : list);
    }

    void SealsByOrg(const httplib::Request& req, httplib::Response& res) {
        const std::string accountId = req.get_param_value("accountId");
        if (sim_.state().FindAccountById(accountId) == nullptr) {
            return ReplyCode(res, kUnknownAccount, "account not found");
        }
        int type = 0;
        if (req.has_param("sealType")) type = std::atoi(req.get_param_value("sealType").c_str());
        ReplyCode(res, 0, "success", SealsOf(accountId, type, true));
    }

    void InitAndGetSeals(const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body)) return;
        const std::string accountId = kxjson::String(body, "accountId");
        if (sim_.state().FindAccountById(accountId) == nullptr) {
            return ReplyCode(res, kUnknownAccount, "account not found");
        }
        Json::Value data;
        data["ownerId"] = Match(req, 1);
        data["seals"] = SealsOf(accountId, 0, false);
        ReplyCode(res, 0, "success", data);
    }

    void Page(const httplib::Request& req, httplib::Response& res) {
        auto it = tasks_.find(Match(req, 1));
        if (it == tasks_.end()) {
            res.status = 404;
            res.set_content("<!doctype html><p>No such task.</p>\n", "text/html");
            return;
        }
        const Task& task = it->second;
        const Account* account = sim_.state().FindAccountById(task.accountId);
        static const char* const kStates[] = {"waiting", "approved", "rejected"};
        std::ostringstream page;
        page << "<!doctype html><html><head><meta charset=\"utf-8\">"
             << "<meta name=\"viewport\" content=\"width=device-width\">"
             << "<title>kxsim BID</title></head><body>\n<h1>kxsim BID: " << task.kind
             << " task</h1>\n<p>Account: "
             << HtmlEscape(account != nullptr ? account->loginName : task.accountId) << "</p>\n<p>"
             << HtmlEscape(task.text) << "</p>\n<p>Status: <b>" << kStates[task.status]
             << "</b></p>\n";
        if (task.status == kWaiting) {
            page << "<form method=\"post\"><button name=\"answer\" value=\"approve\">Approve"
                 << "</button> <button name=\"answer\" value=\"reject\">Reject</button>"
                 << "</form>\n";
        }
        page << "</body></html>\n";
        res.set_content(page.str(), "text/html; charset=utf-8");
    }

    void Answer(const httplib::Request& req, httplib::Response& res) {
        auto it = tasks_.find(Match(req, 1));
        if (it == tasks_.end()) {
            res.status = 404;
            res.set_content("<!doctype html><p>No such task.</p>\n", "text/html");
            return;
        }
        if (it->second.status == kWaiting) {
            Decide(it->second, req.get_param_value("answer") == "approve");
        }
        res.status = 303;
        res.set_header("Location", std::string(kApprovePath) + it->first);
    }

    void View(Json::Value& state) const {
        static const char* const kStates[] = {"waiting", "approved", "rejected"};
        for (const auto& [id, task] : tasks_) {
            const Account* account = sim_.state().FindAccountById(task.accountId);
            AddTask(sim_, state,
                    {"bid", task.kind, id, account != nullptr ? account->loginName : task.accountId,
                     task.text, kStates[task.status], kApprovePath + id, "reject"});
        }
    }

    Sim& sim_;
    int next_ = 0;
    std::string account_;  // of the request being served
    std::map<std::string, Task> tasks_;
    std::map<std::string, std::string> tokens_;     // token -> account
    std::map<std::string, std::string> authCodes_;  // authCode -> account
    std::map<std::string, EncCert> encCerts_;       // by account
};

}  // namespace

void InstallBidService(Sim& sim) {
    // Lives as long as the process: the routes keep pointing at it.
    static std::vector<std::unique_ptr<Service>> services;
    services.push_back(std::make_unique<Service>(sim));
    services.back()->Install();
}

std::string BidServiceConfig(const Sim&) {
    // Logins ask for the user's address, so that the demo shows it.
    return "[MobileBIDShield]\nneedUserAddress=1\n";
}

}  // namespace kxsim
