// The seal open API: discovery, login sessions, seal lists, hash signing with
// the seals' real keys, the sign log, and print counts on a separate
// seal-management server (own port).
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <cctype>
#include <map>
#include <sstream>
#include <thread>

#include "KXUtils.h"
#include "SimServer.h"

namespace kxsim {

namespace {

const char kDiscoveryPath[] = "/kxmonitor/rest/app!getAPIInfo";
const char kLoginPath[] = "/kxseal/openapi/login";
const char kLogoutPath[] = "/kxseal/openapi/logout";
const char kSealListPath[] = "/kxseal/openapi/getSealList";
const char kSignHashPath[] = "/kxseal/openapi/signHash";
const char kSignLogPath[] = "/kxseal/openapi/saveSignLog";
// Not part of the service: lets tests and the demo read the sign log back.
const char kSignLogViewPath[] = "/kxsim/seal/signLogs";
const char kPrintCountPath[] = "/sealmanage/print/getPrintCount";
const char kUpdatePrintPath[] = "/sealmanage/print/updatePrint";

// Codes of this server's flat errCode/msg replies.
enum SealCode {
    kBadProject = 1001,
    kBadLogin = 1002,
    kBadToken = 1003,
    kBadEquipment = 1004,
    kBadSignPassword = 1005,
    kBadHash = 1006,
    kNoPrintId = 1007,
    kBadPrintCount = 1008,
    kBadRequest = 1009,
    kSignFailed = 1010,
};

struct Session {
    std::string accountId;
    std::string equipId;
    std::string sealId;  // the seal that signs: the first of the last list sent
};

struct PrintCount {
    int total;
    int remain;
};

// One simulator per process: the module's own state, under Sim::mutex().
struct SealServerState {
    std::map<std::string, Session> sessions;  // by token
    Json::Value signLogs{Json::arrayValue};
    std::map<std::string, PrintCount> printCounts{{"print-0001", {5, 5}}, {"print-0002", {3, 0}}};
    std::unique_ptr<httplib::Server> manageServer;
    int managePort = 0;
};

SealServerState& State() {
    static SealServerState* state = new SealServerState();  // lives until exit
    return *state;
}

void Reply(httplib::Response& res, int code, const std::string& msg,
           const Json::Value& payload = Json::Value(Json::objectValue)) {
    Json::Value body = payload;
    body["errCode"] = code;
    body["msg"] = msg;
    ReplyJson(res, body);
}

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string UrlDecode(const std::string& s) {
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '+') {
            out += ' ';
        } else if (s[i] == '%' && i + 2 < s.size() && HexValue(s[i + 1]) >= 0 &&
                   HexValue(s[i + 2]) >= 0) {
            out += static_cast<char>(HexValue(s[i + 1]) * 16 + HexValue(s[i + 2]));
            i += 2;
        } else {
            out += s[i];
        }
    }
    return out;
}

// The library sends its forms with values as they are; split them the same way.
std::map<std::string, std::string> ParseForm(const std::string& body) {
    std::map<std::string, std::string> form;
    std::istringstream in(body);
    std::string pair;
    while (std::getline(in, pair, '&')) {
        const size_t eq = pair.find('=');
        if (eq == std::string::npos) continue;
        form[pair.substr(0, eq)] = pair.substr(eq + 1);
    }
    return form;
}

std::string Md5Hex(const std::string& text) {
    return IWK_CharToHex(IWK_Digest(text, KX_HASH_MD5));
}

// The numeric id of a seal in requests: its position among the seeded seals, from 1.
int SealNumber(const SimState& state, const std::string& sealId) {
    for (size_t i = 0; i < state.seals.size(); ++i) {
        if (state.seals[i].sealId == sealId) return static_cast<int>(i) + 1;
    }
    return 0;
}

std::string PictureSvg() {
    return "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"160\" height=\"160\">"
           "<circle cx=\"80\" cy=\"80\" r=\"76\" fill=\"none\" stroke=\"red\" "
           "stroke-width=\"6\"/></svg>";
}

}  // namespace

// The seal document the client decodes: Base64 of XML. The certificate-keyed
// seal lists (SealLists.cpp) send it too.
std::string SealDocument(const Seal& seal) {
    const std::string certB64 = IWK_Base64Encode(kxpki::CertToDer(seal.cert.get()));
    std::ostringstream xml;
    xml << "<?xml version=\"1.0\" encoding=\"GBK\"?>\n<Seal><SealInfo><esID>" << seal.sealId
        << "</esID><PropertyInfo><name>" << seal.name << "</name><cert>" << certB64
        << "</cert><type>" << seal.sealType << "</type></PropertyInfo><PictrueInfo><data>"
        << IWK_Base64Encode(PictureSvg())
        << "</data><type>svg</type><width>160</width><height>160</height></PictrueInfo>"
           "</SealInfo></Seal>";
    return IWK_Base64Encode(xml.str());
}

namespace {

const EVP_MD* DigestOfLength(size_t length) {
    switch (length) {
        case 16:
            return EVP_md5();
        case 20:
            return EVP_sha1();
        case 32:
            return EVP_sha256();
        case 48:
            return EVP_sha384();
        case 64:
            return EVP_sha512();
        default:
            return nullptr;
    }
}

// RSA PKCS#1 v1.5 over a digest the caller already made; empty on failure.
std::string SignDigest(EVP_PKEY* key, const std::string& digest, const EVP_MD* md) {
    std::string signature;
    EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new(key, nullptr);
    size_t length = 0;
    const auto* in = reinterpret_cast<const unsigned char*>(digest.data());
    if (ctx != nullptr && EVP_PKEY_sign_init(ctx) > 0 &&
        EVP_PKEY_CTX_set_rsa_padding(ctx, RSA_PKCS1_PADDING) > 0 &&
        EVP_PKEY_CTX_set_signature_md(ctx, md) > 0 &&
        EVP_PKEY_sign(ctx, nullptr, &length, in, digest.size()) > 0) {
        signature.resize(length);
        if (EVP_PKEY_sign(ctx, reinterpret_cast<unsigned char*>(&signature[0]), &length, in,
                          digest.size()) > 0) {
            signature.resize(length);
        } else {
            signature.clear();
        }
    }
    EVP_PKEY_CTX_free(ctx);
    return signature;
}

// The session of a JSON request, checked against its token and equipId (and
// md5 when the operation carries one); null after writing the refusal.
Session* CheckSession(const Json::Value& body, httplib::Response& res, bool withMd5) {
    const std::string token = kxjson::String(body, "token");
    auto it = State().sessions.find(token);
    if (token.empty() || it == State().sessions.end()) {
        Reply(res, kBadToken, "token is not valid");
        return nullptr;
    }
    const std::string equipId = kxjson::String(body, "equipId");
    if (equipId != it->second.equipId) {
        Reply(res, kBadEquipment, "equipId does not match the session");
        return nullptr;
    }
    if (withMd5 && kxjson::String(body, "md5") != Md5Hex(equipId + token)) {
        Reply(res, kBadEquipment, "md5 does not match the session");
        return nullptr;
    }
    return &it->second;
}

// The print count a request of a logged-in session names; null, with the
// refusal written, otherwise. The caller holds the simulator's mutex.
PrintCount* FindPrintCount(const Json::Value& body, httplib::Response& res) {
    if (State().sessions.count(kxjson::String(body, "token")) == 0) {
        Reply(res, kBadToken, "token is not valid");
        return nullptr;
    }
    auto it = State().printCounts.find(kxjson::String(body, "printId"));
    if (it == State().printCounts.end()) {
        Reply(res, kNoPrintId, "no such print id");
        return nullptr;
    }
    return &it->second;
}

bool ReadBody(const httplib::Request& req, httplib::Response& res, Json::Value& body) {
    if (kxjson::Parse(req.body, body) && body.isObject()) return true;
    Reply(res, kBadRequest, "request body is no JSON object");
    return false;
}

void InstallSessions(Sim& sim) {
    sim.Post(kDiscoveryPath, [&sim](const httplib::Request& req, httplib::Response& res) {
        auto form = ParseForm(req.body);
        std::string secret;
        if (!sim.FindSecret(form["project_id"], secret) || secret != form["project_secret"]) {
            Reply(res, kBadProject, "unknown project or wrong secret");
            return;
        }
        Json::Value api;
        api["host"] = sim.hostUrl();
        api["port"] = std::to_string(sim.port());
        api["loginUrl"] = kLoginPath;
        api["logoutUrl"] = kLogoutPath;
        api["getSealListUrl"] = kSealListPath;
        api["signHashUrl"] = kSignHashPath;
        api["saveSignLogUrl"] = kSignLogPath;
        Reply(res, 0, "success", api);
    });

    sim.Post(kLoginPath, [&sim](const httplib::Request& req, httplib::Response& res) {
        auto form = ParseForm(req.body);
        std::string secret;
        if (!sim.FindSecret(form["project_id"], secret) || secret != form["project_secret"]) {
            Reply(res, kBadProject, "unknown project or wrong secret");
            return;
        }
        if (form["equipId"].empty() || form["response_type"] != "post") {
            Reply(res, kBadRequest, "equipId and response_type=post are required");
            return;
        }
        const std::string loginType = form["loginType"];
        std::string user = form["username"];
        std::string pwd = form["userpwd"];
        if (loginType == "1") {
            user = UrlDecode(user);
            pwd = UrlDecode(pwd);
        }
        std::lock_guard<std::mutex> lock(sim.mutex());
        const Account* account = sim.state().FindAccount(user);
        bool ok = account != nullptr;
        if (ok && (loginType == "0" || loginType == "3")) {
            ok = pwd == Md5Hex(account->password);
        } else if (ok && (loginType == "1" || loginType == "2")) {
            ok = pwd == account->password;
        } else {
            ok = false;
        }
        if (!ok) {
            Reply(res, kBadLogin, "wrong user name or password");
            return;
        }
        const std::string token = IWK_CharToHex(IWK_GenRand(16));
        Session session{account->accountId, form["equipId"], ""};
        for (const Seal& seal : sim.state().seals) {
            if (seal.accountId == account->accountId) {
                session.sealId = seal.sealId;
                break;
            }
        }
        State().sessions[token] = session;
        Json::Value payload;
        payload["token"] = token;
        Reply(res, 0, "success", payload);
    });

    sim.Post(kLogoutPath, [&sim](const httplib::Request& req, httplib::Response& res) {
        auto form = ParseForm(req.body);
        std::lock_guard<std::mutex> lock(sim.mutex());
        auto it = State().sessions.find(form["token"]);
        if (it == State().sessions.end()) {
            Reply(res, kBadToken, "token is not valid");
            return;
        }
        if (it->second.equipId != form["equipId"]) {
            Reply(res, kBadEquipment, "equipId does not match the session");
            return;
        }
        State().sessions.erase(it);
        Reply(res, 0, "success");
    });
}

void InstallSigning(Sim& sim) {
    sim.Post(kSealListPath, [&sim](const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadBody(req, res, body)) return;
        std::lock_guard<std::mutex> lock(sim.mutex());
        Session* session = CheckSession(body, res, false);
        if (session == nullptr) return;
        int wanted = 0;
        kxjson::Int(kxjson::Member(body, "sealId"), wanted);
        const std::string serial = kxjson::String(body, "certSerial");
        Json::Value seals(Json::arrayValue);
        for (const Seal& seal : sim.state().seals) {
            if (seal.accountId != session->accountId) continue;
            if (wanted != 0 && SealNumber(sim.state(), seal.sealId) != wanted) continue;
            if (!serial.empty() && IWK_Compare(serial, SerialHex(seal.cert.get()), true) != 0) {
                continue;
            }
            Json::Value item;
            item["certB64"] = IWK_Base64Encode(kxpki::CertToDer(seal.cert.get()));
            item["data"] = SealDocument(seal);
            item["sesealId"] = std::to_string(SealNumber(sim.state(), seal.sealId));
            item["type"] = seal.sealType;
            item["certId"] = std::to_string(SealNumber(sim.state(), seal.sealId));
            if (seals.empty()) session->sealId = seal.sealId;
            seals.append(item);
        }
        Json::Value payload;
        payload["seals"] = seals;
        Reply(res, 0, "success", payload);
    });

    sim.Post(kSignHashPath, [&sim](const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadBody(req, res, body)) return;
        std::lock_guard<std::mutex> lock(sim.mutex());
        Session* session = CheckSession(body, res, true);
        if (session == nullptr) return;
        const Account* account = sim.state().FindAccountById(session->accountId);
        const Seal* seal = sim.state().FindSeal(session->sealId);
        if (account == nullptr || seal == nullptr) {
            Reply(res, kSignFailed, "the account holds no seal");
            return;
        }
        if (kxjson::String(body, "signPwd") != account->signPassword) {
            Reply(res, kBadSignPassword, "wrong sign password");
            return;
        }
        const std::string digest = IWK_Base64Decode(kxjson::String(body, "hash"));
        const EVP_MD* md = DigestOfLength(digest.size());
        if (md == nullptr) {
            Reply(res, kBadHash, "hash is no Base64 digest of 16, 20, 32, 48 or 64 bytes");
            return;
        }
        const std::string signature = SignDigest(seal->key.get(), digest, md);
        if (signature.empty()) {
            Reply(res, kSignFailed, "signing failed");
            return;
        }
        Json::Value payload;
        payload["signResult"] = IWK_Base64Encode(signature);
        Reply(res, 0, "success", payload);
    });

    sim.Post(kSignLogPath, [&sim](const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadBody(req, res, body)) return;
        std::lock_guard<std::mutex> lock(sim.mutex());
        Session* session = CheckSession(body, res, true);
        if (session == nullptr) return;
        Json::Value entry = body;
        entry.removeMember("token");
        entry.removeMember("md5");
        entry["accountId"] = session->accountId;
        State().signLogs.append(entry);
        Json::Value payload;
        payload["logId"] = static_cast<int>(State().signLogs.size());
        Reply(res, 0, "success", payload);
    });

    sim.Get(kSignLogViewPath, [&sim](const httplib::Request&, httplib::Response& res) {
        std::lock_guard<std::mutex> lock(sim.mutex());
        Json::Value payload;
        payload["signLogs"] = State().signLogs;
        Reply(res, 0, "success", payload);
    });
}

// The seal-management endpoints, on their own server as a site runs them.
void InstallPrintCounts(Sim& sim) {
    SealServerState& state = State();
    const Options& options = sim.options();
    if (options.http) {
        state.manageServer = std::make_unique<httplib::Server>();
    } else {
        const kxpki::Authority& ca = sim.authority();
        state.manageServer =
            std::make_unique<httplib::SSLServer>(ca.certFile().c_str(), ca.keyFile().c_str());
    }
    httplib::Server& server = *state.manageServer;
    server.set_tcp_nodelay(true);

    server.Post(kPrintCountPath, [&sim](const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadBody(req, res, body)) return;
        std::lock_guard<std::mutex> lock(sim.mutex());
        PrintCount* count = FindPrintCount(body, res);
        if (count == nullptr) return;
        Json::Value payload;
        payload["printCount"] = count->remain;
        payload["printTotalCount"] = count->total;
        Reply(res, 0, "success", payload);
    });

    server.Post(kUpdatePrintPath, [&sim](const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadBody(req, res, body)) return;
        std::lock_guard<std::mutex> lock(sim.mutex());
        PrintCount* count = FindPrintCount(body, res);
        if (count == nullptr) return;
        int remain = -1;
        if (!kxjson::Int(kxjson::Member(body, "printCount"), remain) || remain < 0 ||
            remain > count->total) {
            Reply(res, kBadPrintCount, "printCount must lie between 0 and the total");
            return;
        }
        count->remain = remain;
        Reply(res, 0, "success");
    });

    state.managePort = server.bind_to_any_port(options.host.c_str());
    if (state.managePort > 0) {
        // Serves until the process ends; the simulator's own Stop() ends the main server.
        std::thread([&server]() { server.listen_after_bind(); }).detach();
    }
}
}  // namespace

void InstallSealServer(Sim& sim) {
    sim.AddStateView([](Json::Value& state) {
        for (const Json::Value& entry : State().signLogs) state["signLogs"].append(entry);
        for (const auto& [id, count] : State().printCounts) {
            Json::Value allowance;
            allowance["service"] = "seal-manage";
            allowance["printId"] = id;
            allowance["total"] = count.total;
            allowance["remain"] = count.remain;
            state["printAllowances"].append(allowance);
        }
    });
    InstallSessions(sim);
    InstallSigning(sim);
    InstallPrintCounts(sim);
}

std::string SealServerConfig(const Sim& sim) {
    const Project& project = sim.projects()[0];
    std::ostringstream ini;
    ini << "[OpenApiURL]\nSerType=3\nHost=" << sim.hostUrl() << "\nPort=" << sim.port()
        << "\nProjectID=" << project.id << "\nProjectSecret=" << project.secret
        << "\nServerFlag=0\nInitUrl=" << sim.baseUrl() << "\nsealManageHost=" << sim.hostUrl()
        << "\nsealManagePort=" << State().managePort << "\ngetPrintCount=" << kPrintCountPath
        << "\nupdatePrint=" << kUpdatePrintPath << "\n";
    return ini.str();
}

}  // namespace kxsim
