// The platform REST service: OAuth2 code exchange, account and organisation
// data, encryption tasks, mobile-shield willingness and witness flows with
// signing. Confirmations wait for a person on the simulator's confirmation
// page (the QR content's URL), or, with --auto-approve, for a few polls.
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <map>
#include <memory>
#include <sstream>

#include "KXUtils.h"
#include "SimServer.h"

namespace kxsim {

namespace {

const char kConfirmPath[] = "/mobile/confirm/";
// Polls of a pending confirmation after which --auto-approve approves it.
const int kAutoApprovePolls = 3;
// The code a code-exchange accepts: this prefix and a demo login name.
const char kCodePrefix[] = "kxcode-";
const char kMobileShieldClientId[] = "kxsim-mobile-shield";

// Server codes of this service besides 0.
enum {
    kBadRequest = 400,
    kUnknownApp = 4010,
    kBadCode = 4011,
    kUnknownAccount = 4040,
    kUnknownOrganisation = 4041,
    kUnknownTask = 4042,
    kUnknownFlow = 4043,
    kWrongState = 4090,
    kWillNotGiven = 3301,
    kDeclined = 1438,
};

// One confirmation a person gives on the mobile device: a willingness
// request or a sign task.
struct Confirmation {
    std::string kind;  // "will" or "sign"
    std::string accountId;
    std::string text;                // what the page shows
    std::string status = "WAITING";  // WAITING, PASSED, REJECTED
    int polls = 0;
};

struct Document {
    std::string docHash;
    std::string algorithm;
    bool entered = false;
};

struct SignJob {
    std::string flowId;
    std::string ticket;
    std::string thirdDocId;
    std::string hash;
    std::string accountId;
    std::string confirmationId;
    std::string signlogId;
    std::string signature;
};

struct Flow {
    std::string payer;
    std::map<std::string, Document> documents;
    std::map<std::string, std::string> tickets;  // ticket -> account
    std::string signStatus = "SIGNING";
    std::vector<std::string> confirmedLogs;
};

struct EncryptionTask {
    std::string accountId;
    int type = 0;
    std::string state = "CREATED";  // CREATED, EXECUTED, ENDED
    int result = 0;
};

struct PlatformState {
    int next = 0;
    std::map<std::string, Confirmation> confirmations;  // by id (willAuthId or sign task id)
    std::map<std::string, std::string> bizIds;          // willAuthId -> bizId
    std::map<std::string, EncryptionTask> encryptions;
    std::map<std::string, Flow> flows;
    std::map<std::string, SignJob> signJobs;  // by task id

    std::string NewId(const char* prefix) {
        std::ostringstream id;
        id << prefix << "-" << ++next << "-" << IWK_CharToHex(IWK_GenRand(4));
        return id.str();
    }
};

std::string Base64Url(const std::string& data) {
    std::string text = IWK_Base64Encode(data);
    for (char& c : text) {
        if (c == '+') c = '-';
        if (c == '/') c = '_';
    }
    while (!text.empty() && text.back() == '=') text.pop_back();
    return text;
}

std::string HmacSha256(const std::string& key, const std::string& data) {
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
         reinterpret_cast<const unsigned char*>(data.data()), data.size(), out, &length);
    return std::string(reinterpret_cast<char*>(out), length);
}

// A JWT signed with the project's secret, naming the account.
std::string MakeToken(const std::string& appId, const std::string& secret,
                      const std::string& accountId) {
    Json::Value payload;
    payload["authorizer"] = accountId;
    payload["aud"] = appId;
    payload["iss"] = "kxsim";
    payload["exp"] = static_cast<Json::Int64>(IWK_GetCurTime() / 1000 + 3600);
    std::string text = kxjson::Write(payload);
    text.pop_back();  // the writer's line feed
    const std::string signingInput =
        Base64Url(R"({"alg":"HS256","typ":"JWT"})") + "." + Base64Url(text);
    return signingInput + "." + Base64Url(HmacSha256(secret, signingInput));
}

// RSA PKCS #1 v1.5 signature over a SHA-256 digest.
bool SignDigest(EVP_PKEY* key, const std::string& digest, std::string& signature) {
    EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new(key, nullptr);
    if (ctx == nullptr) return false;
    size_t length = 0;
    bool ok =
        EVP_PKEY_sign_init(ctx) > 0 && EVP_PKEY_CTX_set_rsa_padding(ctx, RSA_PKCS1_PADDING) > 0 &&
        EVP_PKEY_CTX_set_signature_md(ctx, EVP_sha256()) > 0 &&
        EVP_PKEY_sign(ctx, nullptr, &length, reinterpret_cast<const unsigned char*>(digest.data()),
                      digest.size()) > 0;
    if (ok) {
        signature.resize(length);
        ok =
            EVP_PKEY_sign(ctx, reinterpret_cast<unsigned char*>(&signature[0]), &length,
                          reinterpret_cast<const unsigned char*>(digest.data()), digest.size()) > 0;
        signature.resize(length);
    }
    EVP_PKEY_CTX_free(ctx);
    return ok;
}

// Base64 of the DER SubjectPublicKeyInfo of a certificate's key.
std::string PublicKeyBase64(X509* cert) {
    EVP_PKEY* key = X509_get0_pubkey(cert);
    unsigned char* der = nullptr;
    const int length = key != nullptr ? i2d_PUBKEY(key, &der) : -1;
    if (length <= 0) return std::string();
    std::string out(reinterpret_cast<char*>(der), static_cast<size_t>(length));
    OPENSSL_free(der);
    return IWK_Base64Encode(out);
}

// A poll of a pending confirmation; with --auto-approve the few-th poll approves.
void Poll(const Sim& sim, Confirmation& c) {
    if (c.status != "WAITING") return;
    ++c.polls;
    if (sim.options().autoApprove && c.polls >= kAutoApprovePolls) c.status = "PASSED";
}

class Service {
public:
    explicit Service(Sim& sim) : sim_(sim) {}

    void Install() {
        sim_.Get("/v1/oauth2/access_token", Bind(&Service::AccessToken));
        sim_.Get("/v1/accounts/([^/]*)/getIdentityInfo", Bind(&Service::IdentityInfo));
        sim_.Get("/v1/accounts/([^/]*)/getAllInfo", Bind(&Service::AllInfo));
        sim_.Get("/v1/organizations/([^/]*)/getFinalRealnameOrgInfo", Bind(&Service::OrgInfo));
        sim_.Post("/v1/encryptions", Bind(&Service::CreateEncryption));
        sim_.Put("/v1/encryptions/([^/]*)/execute", Bind(&Service::ExecuteEncryption));
        sim_.Put("/v1/encryptions/([^/]*)", Bind(&Service::EndEncryption));
        sim_.Post("/v1/willingness/createMobShieldAuth", Bind(&Service::CreateWill));
        sim_.Put("/v1/willingness/verifyMobShieldAuth", Bind(&Service::VerifyWill));
        sim_.Post("/v1/witnessflows", Bind(&Service::CreateFlow));
        sim_.Post("/v1/witnessflows/([^/]*)/saveSnapshot", Bind(&Service::Snapshot));
        sim_.Post("/v1/witnessflows/([^/]*)/checkSignAccess", Bind(&Service::CheckAccess));
        sim_.Post("/v1/witnessflows/([^/]*)/sign", Bind(&Service::Sign));
        sim_.Get("/v1/witnessflows/([^/]*)/mobileShield/signResult", Bind(&Service::SignResult));
        sim_.Post("/v1/witnessflows/([^/]*)/confirm", Bind(&Service::Confirm));
        sim_.Get(std::string(kConfirmPath) + "([^/]+)", Bind(&Service::ConfirmPage));
        sim_.Post(std::string(kConfirmPath) + "([^/]+)", Bind(&Service::ConfirmAnswer));
        sim_.AddStateView([this](Json::Value& state) { View(state); });
    }

private:
    using Method = void (Service::*)(const httplib::Request&, httplib::Response&);
    Sim::Handler Bind(Method method) {
        return [this, method](const httplib::Request& req, httplib::Response& res) {
            std::lock_guard<std::mutex> lock(sim_.mutex());
            (this->*method)(req, res);
        };
    }

    std::string ConfirmUrl(const std::string& id) const {
        return sim_.baseUrl() + kConfirmPath + id;
    }

    void AccessToken(const httplib::Request& req, httplib::Response& res) {
        const std::string appId = req.get_param_value("appId");
        std::string secret;
        if (!sim_.FindSecret(appId, secret) || secret != req.get_param_value("secret")) {
            return ReplyCode(res, kUnknownApp, "unknown application or wrong secret");
        }
        if (req.get_param_value("grantType") != "authorization_code") {
            return ReplyCode(res, kBadRequest, "grantType must be authorization_code");
        }
        const std::string code = req.get_param_value("code");
        const Account* account = nullptr;
        if (code.compare(0, sizeof(kCodePrefix) - 1, kCodePrefix) == 0) {
            account = sim_.state().FindAccount(code.substr(sizeof(kCodePrefix) - 1));
        }
        if (account == nullptr) return ReplyCode(res, kBadCode, "authorization code not valid");
        Json::Value data;
        data["token"] = MakeToken(appId, secret, account->accountId);
        data["expiresIn"] = 3600;
        ReplyCode(res, 0, "success", data);
    }

    const Account* AccountOr404(const std::string& id, httplib::Response& res) {
        const Account* account = sim_.state().FindAccountById(id);
        if (account == nullptr) ReplyCode(res, kUnknownAccount, "account not found");
        return account;
    }

    void IdentityInfo(const httplib::Request& req, httplib::Response& res) {
        const Account* account = AccountOr404(Match(req, 1), res);
        if (account == nullptr) return;
        Json::Value data;
        data["code"] = account->idNo;
        data["name"] = account->name;
        ReplyCode(res, 0, "success", data);
    }

    void AllInfo(const httplib::Request& req, httplib::Response& res) {
        const Account* account = AccountOr404(Match(req, 1), res);
        if (account == nullptr) return;
        Json::Value data;
        data["accountId"] = account->accountId;
        data["baseRealname"]["code"] = account->idNo;
        data["baseRealname"]["name"] = account->name;
        data["loginInfo"]["idcard"]["mobile"] = account->mobile;
        data["loginInfo"]["loginName"] = account->loginName;
        ReplyCode(res, 0, "success", data);
    }

    void OrgInfo(const httplib::Request& req, httplib::Response& res) {
        const Organisation* org = sim_.state().FindOrganisation(Match(req, 1));
        if (org == nullptr) return ReplyCode(res, kUnknownOrganisation, "organisation not found");
        Json::Value data;
        data["base"]["ouid"] = org->creditCode;
        data["base"]["name"] = org->name;
        ReplyCode(res, 0, "success", data);
    }

    void CreateEncryption(const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body)) return;
        const std::string accountId = kxjson::String(body, "accountId");
        if (AccountOr404(accountId, res) == nullptr) return;
        EncryptionTask task;
        task.accountId = accountId;
        kxjson::Int(kxjson::Member(body, "type"), task.type);
        const std::string id = state_.NewId("enc");
        state_.encryptions[id] = task;
        Json::Value data;
        data["taskId"] = id;
        ReplyCode(res, 0, "success", data);
    }

    // The will code is the id of a passed willingness request of the same account.
    void ExecuteEncryption(const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body)) return;
        auto task = state_.encryptions.find(Match(req, 1));
        if (task == state_.encryptions.end()) {
            return ReplyCode(res, kUnknownTask, "encryption task not found");
        }
        if (task->second.state != "CREATED") {
            return ReplyCode(res, kWrongState, "task already " + task->second.state);
        }
        auto will = state_.confirmations.find(kxjson::String(body, "willAuthCode"));
        if (will == state_.confirmations.end() || will->second.kind != "will" ||
            will->second.status != "PASSED" || will->second.accountId != task->second.accountId) {
            return ReplyCode(res, kWillNotGiven, "the will of the account is not confirmed");
        }
        task->second.state = "EXECUTED";
        Json::Value data;
        for (const UserCertificate& uc : sim_.state().certificates) {
            if (uc.accountId == task->second.accountId) {
                data["publicKey"] = PublicKeyBase64(uc.cert.get());
            }
        }
        data["symmetricKey"] = IWK_Base64Encode(IWK_GenRand(32));
        ReplyCode(res, 0, "success", data);
    }

    void EndEncryption(const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body)) return;
        auto task = state_.encryptions.find(Match(req, 1));
        if (task == state_.encryptions.end()) {
            return ReplyCode(res, kUnknownTask, "encryption task not found");
        }
        if (task->second.state == "ENDED") return ReplyCode(res, kWrongState, "task already ended");
        task->second.state = "ENDED";
        kxjson::Int(kxjson::Member(body, "result"), task->second.result);
        ReplyCode(res, 0, "success");
    }

    void CreateWill(const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body)) return;
        const Account* account = AccountOr404(kxjson::String(body, "accountId"), res);
        if (account == nullptr) return;
        Confirmation c;
        c.kind = "will";
        c.accountId = account->accountId;
        c.text = "Confirm your will: " + kxjson::String(body, "bizTypeDes") + " - " +
                 kxjson::String(body, "bizDes") + " (" + kxjson::String(body, "mobShieldScene") +
                 ")";
        const std::string willAuthId = state_.NewId("will");
        const std::string bizId = state_.NewId("biz");
        state_.confirmations[willAuthId] = c;
        state_.bizIds[willAuthId] = bizId;
        Json::Value data;
        data["bizId"] = bizId;
        data["willAuthId"] = willAuthId;
        data["qrcodeContent"] = ConfirmUrl(willAuthId);
        ReplyCode(res, 0, "success", data);
    }

    void VerifyWill(const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body)) return;
        const std::string willAuthId = kxjson::String(body, "willAuthId");
        auto c = state_.confirmations.find(willAuthId);
        if (c == state_.confirmations.end() || c->second.kind != "will" ||
            state_.bizIds[willAuthId] != kxjson::String(body, "bizId")) {
            return ReplyCode(res, kUnknownTask, "willingness request not found");
        }
        Poll(sim_, c->second);
        Json::Value data;
        data["status"] = c->second.status;
        data["passed"] = c->second.status == "PASSED";
        ReplyCode(res, 0, "success", data);
    }

    void CreateFlow(const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body)) return;
        Flow flow;
        flow.payer = kxjson::String(body, "payerAccountId");
        if (sim_.state().FindOrganisation(flow.payer) == nullptr &&
            sim_.state().FindAccountById(flow.payer) == nullptr) {
            return ReplyCode(res, kUnknownOrganisation, "payer not found");
        }
        const std::string id = state_.NewId("wf");
        state_.flows[id] = flow;
        Json::Value data;
        data["witnessFlowId"] = id;
        ReplyCode(res, 0, "success", data);
    }

    Flow* FlowOr404(const httplib::Request& req, httplib::Response& res) {
        auto flow = state_.flows.find(Match(req, 1));
        if (flow != state_.flows.end()) return &flow->second;
        ReplyCode(res, kUnknownFlow, "witness flow not found");
        return nullptr;
    }

    void Snapshot(const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body)) return;
        Flow* flow = FlowOr404(req, res);
        if (flow == nullptr) return;
        const Json::Value& doc = kxjson::Member(kxjson::Member(body, "data"), "doc");
        if (!doc.isArray() || doc.size() != 1) {
            return ReplyCode(res, kBadRequest, "data.doc must hold one document");
        }
        const std::string id = kxjson::String(doc[0], "thirdDocId");
        const std::string step = kxjson::String(body, "step");
        Document& d = flow->documents[id];
        d.docHash = kxjson::String(doc[0], "docHash");
        d.algorithm = kxjson::String(doc[0], "hashAlgorithm");
        if (step == "START") d.entered = true;
        if (step == "FINISH") {
            if (flow->confirmedLogs.empty()) {
                return ReplyCode(res, kWrongState, "no signature confirmed in this flow");
            }
            flow->signStatus =
                kxjson::String(kxjson::Member(kxjson::Member(body, "data"), "flow"), "signStatus");
        }
        ReplyCode(res, 0, "success");
    }

    void CheckAccess(const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body)) return;
        Flow* flow = FlowOr404(req, res);
        if (flow == nullptr) return;
        const std::string accountId = kxjson::String(body, "signerAccountId");
        if (AccountOr404(accountId, res) == nullptr) return;
        const Json::Value& docs = kxjson::Member(body, "docs");
        if (!docs.isArray() || docs.size() != 1) {
            return ReplyCode(res, kBadRequest, "docs must hold one document");
        }
        auto doc = flow->documents.find(kxjson::String(docs[0], "thirdDocId"));
        if (doc == flow->documents.end() || !doc->second.entered) {
            return ReplyCode(res, kWrongState, "document not entered into the flow");
        }
        if (doc->second.docHash != kxjson::String(docs[0], "docHash")) {
            return ReplyCode(res, kWrongState, "document hash differs from the snapshot");
        }
        const std::string ticket = state_.NewId("ticket");
        flow->tickets[ticket] = accountId;
        Json::Value data;
        data["signTicket"] = ticket;
        ReplyCode(res, 0, "success", data);
    }

    void Sign(const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body)) return;
        Flow* flow = FlowOr404(req, res);
        if (flow == nullptr) return;
        SignJob job;
        job.flowId = Match(req, 1);
        job.ticket = kxjson::String(body, "signTicket");
        job.accountId = kxjson::String(body, "subjectAccountId");
        job.thirdDocId = kxjson::String(body, "thirdDocId");
        job.hash = kxjson::String(body, "signHash");
        auto ticket = flow->tickets.find(job.ticket);
        if (ticket == flow->tickets.end() || ticket->second != job.accountId) {
            return ReplyCode(res, kWrongState, "sign ticket not valid for this account");
        }
        if (kxjson::String(body, "signPkcsType") != "pkcs1") {
            return ReplyCode(res, kBadRequest, "signPkcsType must be pkcs1");
        }
        if (IWK_Base64Decode(job.hash).size() != 32) {
            return ReplyCode(res, kBadRequest, "signHash must be Base64 of a SHA-256 digest");
        }
        const std::string taskId = state_.NewId("sign");
        Confirmation c;
        c.kind = "sign";
        c.accountId = job.accountId;
        c.text = "Sign document " + job.thirdDocId + " (SHA-256 " + job.hash + ")";
        job.confirmationId = taskId;
        state_.confirmations[taskId] = c;
        state_.signJobs[taskId] = job;
        Json::Value data;
        data["taskId"] = taskId;
        data["qrcodeContent"] = ConfirmUrl(taskId);
        ReplyCode(res, 0, "success", data);
    }

    // While the signer has not answered: code 0 without a result.
    void SignResult(const httplib::Request& req, httplib::Response& res) {
        auto job = state_.signJobs.find(req.get_param_value("taskId"));
        if (job == state_.signJobs.end() || job->second.flowId != Match(req, 1) ||
            job->second.ticket != req.get_param_value("signTicket")) {
            return ReplyCode(res, kUnknownTask, "sign task not found");
        }
        SignJob& j = job->second;
        Confirmation& c = state_.confirmations[j.confirmationId];
        Poll(sim_, c);
        Json::Value data;
        data["taskId"] = job->first;
        data["thirdDocId"] = j.thirdDocId;
        data["status"] = c.status;
        if (c.status == "REJECTED") return ReplyCode(res, kDeclined, "the signer declined");
        if (c.status == "PASSED") {
            const UserCertificate* cert = nullptr;
            for (const UserCertificate& uc : sim_.state().certificates) {
                if (uc.accountId == j.accountId) cert = &uc;
            }
            if (cert == nullptr)
                return ReplyCode(res, kUnknownAccount, "signer has no certificate");
            if (j.signature.empty()) {
                std::string signature;
                if (!SignDigest(cert->key.get(), IWK_Base64Decode(j.hash), signature)) {
                    return ReplyCode(res, 500, "signing failed");
                }
                j.signature = IWK_Base64Encode(signature);
                j.signlogId = state_.NewId("signlog");
            }
            data["signlogId"] = j.signlogId;
            data["signResult"] = j.signature;
            data["certBase64"] = IWK_Base64Encode(kxpki::CertToDer(cert->cert.get()));
            data["certAlgorithm"] = "RSA";
        }
        ReplyCode(res, 0, "success", data);
    }

    void Confirm(const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body)) return;
        Flow* flow = FlowOr404(req, res);
        if (flow == nullptr) return;
        const Json::Value& logs = kxjson::Member(body, "signlogIds");
        const std::string logId = logs.isArray() && logs.size() == 1 ? kxjson::String(logs[0]) : "";
        for (const auto& job : state_.signJobs) {
            if (job.second.flowId == Match(req, 1) && !logId.empty() &&
                job.second.signlogId == logId &&
                job.second.ticket == kxjson::String(body, "signTicket")) {
                flow->confirmedLogs.push_back(logId);
                return ReplyCode(res, 0, "success");
            }
        }
        ReplyCode(res, kWrongState, "no such signature in this flow");
    }

    void ConfirmPage(const httplib::Request& req, httplib::Response& res) {
        auto c = state_.confirmations.find(Match(req, 1));
        if (c == state_.confirmations.end()) {
            res.status = 404;
            res.set_content("<!doctype html><p>No such confirmation.</p>\n", "text/html");
            return;
        }
        const Account* account = sim_.state().FindAccountById(c->second.accountId);
        std::ostringstream page;
        page << "<!doctype html><html><head><meta charset=\"utf-8\">"
             << "<meta name=\"viewport\" content=\"width=device-width\">"
             << "<title>kxsim mobile shield</title></head><body>\n"
             << "<h1>kxsim mobile shield</h1>\n<p>Account: "
             << HtmlEscape(account != nullptr ? account->loginName : c->second.accountId)
             << "</p>\n<p>" << HtmlEscape(c->second.text) << "</p>\n<p>Status: <b>"
             << c->second.status << "</b></p>\n";
        if (c->second.status == "WAITING") {
            page << "<form method=\"post\"><button name=\"answer\" value=\"approve\">Approve"
                 << "</button> <button name=\"answer\" value=\"decline\">Decline</button>"
                 << "</form>\n";
        }
        page << "</body></html>\n";
        res.set_content(page.str(), "text/html; charset=utf-8");
    }

    void ConfirmAnswer(const httplib::Request& req, httplib::Response& res) {
        auto c = state_.confirmations.find(Match(req, 1));
        if (c == state_.confirmations.end()) {
            res.status = 404;
            res.set_content("<!doctype html><p>No such confirmation.</p>\n", "text/html");
            return;
        }
        if (c->second.status == "WAITING") {
            c->second.status = req.get_param_value("answer") == "approve" ? "PASSED" : "REJECTED";
        }
        res.status = 303;
        res.set_header("Location", std::string(kConfirmPath) + c->first);
    }

    // Willingness requests and witness-flow sign tasks for the dashboard.
    void View(Json::Value& state) const {
        for (const auto& [id, c] : state_.confirmations) {
            const Account* account = sim_.state().FindAccountById(c.accountId);
            AddTask(sim_, state,
                    {"platform", c.kind == "will" ? "willingness" : "witness-flow sign", id,
                     account != nullptr ? account->loginName : c.accountId, c.text,
                     c.status == "PASSED"     ? "approved"
                     : c.status == "REJECTED" ? "rejected"
                                              : "waiting",
                     kConfirmPath + id, "decline"});
        }
    }

    Sim& sim_;
    PlatformState state_;
};

}  // namespace

void InstallPlatformService(Sim& sim) {
    // Lives as long as the process: the routes keep pointing at it.
    static std::vector<std::unique_ptr<Service>> services;
    services.push_back(std::make_unique<Service>(sim));
    services.back()->Install();
}

std::string PlatformServiceConfig(const Sim& sim) {
    const Project& project = sim.projects()[0];
    std::ostringstream ini;
    // The platform client puts the host (with its port) after "https://".
    ini << "[KXPlatform]\nSerType=3\nHost=" << sim.options().host << ":" << sim.port()
        << "\nPort=" << sim.port() << "\nProjectID=" << project.id
        << "\nProjectSecret=" << project.secret
        << "\nMobileShieldClientId=" << kMobileShieldClientId << "\n";
    return ini.str();
}

}  // namespace kxsim
