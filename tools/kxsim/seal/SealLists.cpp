// The three services that list a certificate's seals: the integrate service
// behind the public gateway (by certificate and by serial number), and the
// sister seal service with its access tokens. A certificate names its holder:
// one of a seal's own certificates or the holder's user certificate.
#include <map>
#include <string>
#include <vector>

#include "KXUtils.h"
#include "SimServer.h"

namespace kxsim {

std::string SealDocument(const Seal& seal);

namespace {

const char kGateway[] = "/gateway";
const char kByCertPath[] = "/v1/orbis/ukey/integrate/getSealWithUser";
const char kBySerialPath[] = "/integrate/getCertSealInfosBySn";
const char kRbn[] = "/rbn";
const char kTokenPath[] = "/v1/oauth/token";
const char kRbnListPath[] = "/v1/seal/getSealBySignCert";
const char kRbnAppId[] = "kxsim-rbn-app";

// Codes of the code/message/data replies.
enum ListCode {
    kBadApp = 4010,
    kBadToken = 4011,
    kBadRequest = 4000,
    kUnknownCert = 4040,
};

std::map<std::string, bool>& Tokens() {
    static auto* tokens = new std::map<std::string, bool>();  // lives until exit
    return *tokens;
}

std::string Der(unsigned char tag, const std::string& content) {
    std::string out(1, static_cast<char>(tag));
    const size_t n = content.size();
    if (n < 0x80) {
        out += static_cast<char>(n);
    } else {
        std::string length;
        for (size_t v = n; v != 0; v >>= 8) length.insert(0, 1, static_cast<char>(v & 0xFF));
        out += static_cast<char>(0x80 | length.size());
        out += length;
    }
    return out + content;
}

// An ASN.1 seal: SEQUENCE { "ES", sealId, name, certificate }.
std::string AsnSeal(const Seal& seal) {
    return IWK_Base64Encode(Der(0x30, Der(0x16, "ES") + Der(0x16, seal.sealId) +
                                          Der(0x04, seal.name) +
                                          Der(0x04, kxpki::CertToDer(seal.cert.get()))));
}

// The holder whose seal or user certificate matches; empty when none.
std::string HolderOf(const SimState& state, const std::string& certB64, const std::string& serial) {
    auto matches = [&](X509* cert) {
        return (!certB64.empty() && kxpki::CertToBase64(cert) == certB64) ||
               (!serial.empty() && SerialHex(cert) == serial);
    };
    for (const Seal& s : state.seals)
        if (matches(s.cert.get())) return s.accountId;
    for (const UserCertificate& c : state.certificates)
        if (matches(c.cert.get())) return c.accountId;
    return std::string();
}

// The certificate of a holder: its user certificate.
std::string HolderCert(const SimState& state, const std::string& accountId) {
    for (const UserCertificate& c : state.certificates)
        if (c.accountId == accountId) return kxpki::CertToBase64(c.cert.get());
    return std::string();
}

std::string UpperHex(std::string s) {
    for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

}  // namespace

void InstallSealLists(Sim& sim) {
    const std::string partner = sim.projects()[1].id;
    // The app id is checked where the library sends it: a header here...
    sim.Post(std::string(kGateway) + kByCertPath, [&sim, partner](const httplib::Request& req,
                                                                  httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body)) return;
        if (req.has_header("X-Vmark-Open-App-Id") &&
            req.get_header_value("X-Vmark-Open-App-Id") != partner)
            return ReplyCode(res, kBadApp, "unknown app id");
        if (kxjson::Text(body, "algorithm").empty() || kxjson::Text(body, "originB64").empty())
            return ReplyCode(res, kBadRequest, "algorithm and originB64 are required");
        std::lock_guard<std::mutex> lock(sim.mutex());
        const std::string holder =
            HolderOf(sim.state(), kxjson::Text(body, "certB64"), std::string());
        if (holder.empty()) return ReplyCode(res, kUnknownCert, "unknown certificate");
        Json::Value data(Json::objectValue);
        Json::Value& list = data["sealList"] = Json::Value(Json::arrayValue);
        for (const Seal& s : sim.state().seals) {
            if (s.accountId != holder) continue;
            Json::Value item(Json::objectValue);
            item["data"] = SealDocument(s);
            item["sealDataType"] = 0;
            list.append(item);
        }
        ReplyCode(res, 0, "success", data);
    });
    // ... and a body key there.
    sim.Post(std::string(kGateway) + kBySerialPath,
             [&sim, partner](const httplib::Request& req, httplib::Response& res) {
                 Json::Value body;
                 if (!ReadJsonBody(req, res, body)) return;
                 if (body.isMember("appId") && kxjson::Text(body, "appId") != partner)
                     return ReplyCode(res, kBadApp, "unknown app id");
                 std::lock_guard<std::mutex> lock(sim.mutex());
                 const std::string holder =
                     HolderOf(sim.state(), std::string(), UpperHex(kxjson::Text(body, "certSn")));
                 if (holder.empty()) return ReplyCode(res, kUnknownCert, "unknown certificate");
                 Json::Value data(Json::objectValue);
                 data["certB64"] = HolderCert(sim.state(), holder);
                 Json::Value& list = data["seals"] = Json::Value(Json::arrayValue);
                 for (const Seal& s : sim.state().seals) {
                     if (s.accountId != holder) continue;
                     Json::Value item(Json::objectValue);
                     item["data"] = SealDocument(s);
                     list.append(item);
                 }
                 ReplyCode(res, 0, "success", data);
             });

    sim.Get(std::string(kRbn) + kTokenPath,
            [&sim](const httplib::Request& req, httplib::Response& res) {
                if (req.get_header_value("appId") != kRbnAppId)
                    return ReplyCode(res, kBadApp, "unknown app id");
                Json::Value data(Json::objectValue);
                data["accessToken"] = IWK_CharToHex(IWK_GenRand(16));
                data["expiresIn"] = 7200;
                std::lock_guard<std::mutex> lock(sim.mutex());
                Tokens()[data["accessToken"].asString()] = true;
                ReplyCode(res, 0, "success", data);
            });
    sim.Post(std::string(kRbn) + kRbnListPath,
             [&sim](const httplib::Request& req, httplib::Response& res) {
                 Json::Value body;
                 if (!ReadJsonBody(req, res, body)) return;
                 std::lock_guard<std::mutex> lock(sim.mutex());
                 if (Tokens().count(req.get_header_value("accessToken")) == 0)
                     return ReplyCode(res, kBadToken, "access token is not valid");
                 // The UKey is known by the serial of the certificate on it.
                 const std::string holder = HolderOf(sim.state(), kxjson::Text(body, "signCert"),
                                                     UpperHex(kxjson::Text(body, "ukeySN")));
                 if (holder.empty()) return ReplyCode(res, kUnknownCert, "unknown certificate");
                 int sealType = 0;
                 kxjson::Int(kxjson::Member(body, "sealType"), sealType);
                 Json::Value data(Json::arrayValue);
                 for (const Seal& s : sim.state().seals) {
                     if (s.accountId != holder || (sealType != 0 && s.sealType != sealType))
                         continue;
                     Json::Value item(Json::objectValue);
                     item["sealId"] = s.sealId;
                     item["asnBase64"] = AsnSeal(s);
                     data.append(item);
                 }
                 ReplyCode(res, 0, "success", data);
             });
}

std::string SealListsConfig(const Sim& sim) {
    // [KXSign] serverUrl (the gateway) and [MobileShield] appId come with print control.
    return "[RbnSeal]\nserverUrl=" + sim.baseUrl() + kRbn + "\nappId=" + kRbnAppId + "\n";
}

}  // namespace kxsim
