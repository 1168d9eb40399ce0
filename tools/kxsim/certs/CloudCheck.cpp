// The cloud platform's XML certificate check and the agent's JSON one. A
// certificate passes when it chains to the simulator's CA, is valid now and
// has not been revoked here.
#include <cctype>
#include <set>
#include <sstream>

#include "KXAscii.h"
#include "KXUtils.h"
#include "SimServer.h"

namespace kxsim {

namespace {

const char kCloudPath[] = "/kxsign/rest/seal-rest!SOF_GetCertSeals.xml";
const char kAgentPath[] = "/agent/integrate/getCertSealInfos";
const char kRevokePath[] = "/kxsim/cert/revoke";

// Serials revoked since start, upper-case hex. One simulator per process.
std::set<std::string>& Revoked() {
    static std::set<std::string> revoked;
    return revoked;
}

enum Verdict { kPass = 0, kMalformed = 1, kUntrusted = 2, kRevoked = 3 };

const char* VerdictText(Verdict verdict) {
    switch (verdict) {
        case kPass:
            return "certificate is valid";
        case kMalformed:
            return "no certificate in the request";
        case kUntrusted:
            return "certificate not issued by a trusted CA or not valid now";
        case kRevoked:
            return "certificate revoked";
    }
    return "";
}

Verdict Judge(Sim& sim, const std::string& certB64, std::string* serial) {
    kxpki::Cert cert = kxpki::CertFromText(certB64);
    if (!cert) return kMalformed;
    if (serial != nullptr) *serial = SerialHex(cert.get());
    if (!kxpki::VerifyIssuedBy(cert.get(), sim.authority().caCert())) return kUntrusted;
    std::lock_guard<std::mutex> lock(sim.mutex());
    return Revoked().count(SerialHex(cert.get())) != 0 ? kRevoked : kPass;
}

// The text between <tag> and </tag>, as the platform's small request holds it.
std::string Element(const std::string& xml, const std::string& tag) {
    const std::string open = "<" + tag + ">";
    const size_t start = xml.find(open);
    if (start == std::string::npos) return std::string();
    const size_t end = xml.find("</" + tag + ">", start);
    if (end == std::string::npos) return std::string();
    return xml.substr(start + open.size(), end - start - open.size());
}

}  // namespace

void InstallCloudCheck(Sim& sim) {
    sim.Post(kCloudPath, [&sim](const httplib::Request& req, httplib::Response& res) {
        const Verdict verdict = Judge(sim, Element(req.body, "userCert"), nullptr);
        std::ostringstream xml;
        xml << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<result><retcode>"
            << static_cast<int>(verdict) << "</retcode><retmsg>" << VerdictText(verdict)
            << "</retmsg></result>";
        res.set_content(xml.str(), "application/xml");
    });
    sim.Post(kAgentPath, [&sim](const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!kxjson::Parse(req.body, body) || !body.isObject()) {
            ReplyErrCode(res, 40000, "request body is no JSON object");
            return;
        }
        std::string serial;
        const Verdict verdict = Judge(sim, kxjson::String(body, "certB64"), &serial);
        if (verdict != kPass) {
            ReplyErrCode(res, 40000 + static_cast<int>(verdict), VerdictText(verdict));
            return;
        }
        Json::Value data;
        data["certSn"] = serial;
        data["seals"] = Json::Value(Json::arrayValue);
        ReplyErrCode(res, 0, "success", data);
    });
    // {"sn":"<hex serial>"} or {"certB64":"..."}: later checks of it fail.
    sim.Post(kRevokePath, [&sim](const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body)) return;
        std::string serial = kxjson::String(body, "sn");
        if (serial.empty()) {
            kxpki::Cert cert = kxpki::CertFromText(kxjson::String(body, "certB64"));
            if (cert) serial = SerialHex(cert.get());
        }
        if (serial.empty()) {
            ReplyCode(res, 400, "give sn or certB64");
            return;
        }
        serial = kxascii::Upper(serial);
        {
            std::lock_guard<std::mutex> lock(sim.mutex());
            Revoked().insert(serial);
        }
        Json::Value data;
        data["sn"] = serial;
        ReplyCode(res, 0, "revoked", data);
    });
}

std::string CloudCheckConfig(const Sim& sim) {
    std::ostringstream ini;
    ini << "[KXCloudCheck]\nSerType=2\nHost=" << sim.hostUrl() << "\nPort=" << sim.port() << "\n"
        << "\n[KXCloudCheckAgent]\nSerType=4\nHost=" << sim.hostUrl() << "\nPort=" << sim.port()
        << "\n";
    return ini.str();
}

}  // namespace kxsim
