// The print-control service: the encryption certificates of accounts, files
// registered with a print allowance per certificate, SMS codes checked per
// certificate, and the organisation of a certificate. Every request carries
// the legacy head over its body; the SMS check is also served behind the
// public gateway, signed there with the signature head.
#include <map>
#include <sstream>

#include "KXUtils.h"
#include "SimServer.h"

namespace kxsim {

namespace {

const char kCertsPath[] = "/seal/v1/account/getEncryptionCerts";
const char kSavePath[] = "/seal/v1/print/savePrintInfo";
const char kQueryPath[] = "/seal/v1/print/getPrintInfo";
const char kUpdatePath[] = "/seal/v1/print/updatePrintInfo";
const char kSmsPath[] = "/seal/api/authentication/verifySMSKaptchaForClient";
const char kOrgPath[] = "/seal/api/seal/queryOrganizeCodeByCertSn";
const char kGateway[] = "/gateway";
const char kSmsCodePattern[] = "/kxsim/sms/([0-9A-Fa-f]+)";

struct PrintRecord {
    std::string sn;
    std::string fileName;
    int total = 0;
    int remain = 0;
};

struct PrintState {
    long long nextPrintId = 4200000001LL;         // beyond 32 bits, as the service's ids are
    std::map<std::string, PrintRecord> prints;    // by print id as text
    std::map<std::string, std::string> smsCodes;  // pending code by certificate serial
};

PrintState& State() {
    static PrintState state;
    return state;
}

const UserCertificate* FindCert(const SimState& state, const std::string& sn) {
    for (const UserCertificate& c : state.certificates) {
        if (c.serialHex == sn) return &c;
    }
    return nullptr;
}

// The body as JSON after the legacy head passed; false when a reply was written.
bool Read(Sim& sim, const httplib::Request& req, httplib::Response& res, Json::Value& body) {
    if (!sim.CheckInkwellHead(req, res, nullptr)) return false;
    if (kxjson::Parse(req.body, body)) return true;
    ReplyErrCode(res, 2000, "request body is no JSON");
    return false;
}

Json::Value EncryptionCerts(const SimState& state, const Json::Value& accounts) {
    Json::Value data(Json::arrayValue);
    if (!accounts.isArray()) return data;
    for (const Json::Value& item : accounts) {
        const std::string code = kxjson::String(item, "accountCode");
        Json::Value entry;
        entry["accountCode"] = code;
        entry["certList"] = Json::Value(Json::arrayValue);
        const Account* account = state.FindAccount(code);
        for (const UserCertificate& c : state.certificates) {
            if (account == nullptr || c.accountId != account->accountId) continue;
            Json::Value cert;
            cert["sn"] = c.serialHex;
            cert["data"] = kxpki::CertToBase64(c.cert.get());
            entry["certList"].append(cert);
        }
        data.append(entry);
    }
    return data;
}

void Save(Sim& sim, const Json::Value& body, httplib::Response& res) {
    const Json::Value& list = kxjson::Member(body, "printList");
    if (!list.isArray() || list.empty())
        return ReplyErrCode(res, 2001, "printList names no certificate");
    std::lock_guard<std::mutex> lock(sim.mutex());
    for (const Json::Value& item : list) {
        int count = -1;
        if (FindCert(sim.state(), kxjson::String(item, "sn")) == nullptr)
            return ReplyErrCode(res, 2002, "unknown certificate " + kxjson::String(item, "sn"));
        if (!kxjson::Int(kxjson::Member(item, "printCount"), count) || count < 0)
            return ReplyErrCode(res, 2004, "printCount must be a count of 0 or more");
    }
    Json::Value data;
    data["printList"] = Json::Value(Json::arrayValue);
    for (const Json::Value& item : list) {
        PrintRecord record;
        record.sn = kxjson::String(item, "sn");
        record.fileName = kxjson::String(body, "fileName");
        kxjson::Int(kxjson::Member(item, "printCount"), record.total);
        record.remain = record.total;
        const long long id = State().nextPrintId++;
        State().prints[std::to_string(id)] = record;
        Json::Value out;
        out["sn"] = record.sn;
        out["printId"] = Json::Int64(id);
        data["printList"].append(out);
    }
    ReplyErrCode(res, 0, "success", data);
}

// The record of the request's printId, which must come as text; null when a
// reply was written.
PrintRecord* FindPrint(const Json::Value& body, httplib::Response& res) {
    const Json::Value& id = kxjson::Member(body, "printId");
    if (!id.isString()) {
        ReplyErrCode(res, 2000, "printId must be text");
        return nullptr;
    }
    auto found = State().prints.find(kxjson::String(id));
    if (found != State().prints.end()) return &found->second;
    ReplyErrCode(res, 2003, "unknown printId");
    return nullptr;
}

Json::Value Counts(const PrintRecord& record) {
    Json::Value data;
    data["totalPrintCount"] = record.total;
    data["remainPrintCount"] = record.remain;
    return data;
}

// A pending code is used once: right or wrong, the person asks for a new one.
void CheckSms(Sim& sim, const Json::Value& body, httplib::Response& res) {
    const std::string sn = kxjson::String(body, "certSn");
    std::lock_guard<std::mutex> lock(sim.mutex());
    if (FindCert(sim.state(), sn) == nullptr) return ReplyErrCode(res, 3001, "unknown certificate");
    auto pending = State().smsCodes.find(sn);
    if (pending == State().smsCodes.end())
        return ReplyErrCode(res, 3003, "no SMS code was sent for this certificate");
    const bool right = pending->second == kxjson::String(body, "code");
    State().smsCodes.erase(pending);
    if (!right) return ReplyErrCode(res, 3002, "wrong SMS code");
    ReplyErrCode(res, 0, "success");
}

}  // namespace

void InstallPrintCtrlService(Sim& sim) {
    sim.AddStateView([](Json::Value& state) {
        for (const auto& [id, record] : State().prints) {
            Json::Value allowance;
            allowance["service"] = "print-ctrl";
            allowance["printId"] = id;
            allowance["file"] = record.fileName;
            allowance["cert"] = record.sn;
            allowance["total"] = record.total;
            allowance["remain"] = record.remain;
            state["printAllowances"].append(allowance);
        }
    });
    sim.Post(kCertsPath, [&sim](const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!Read(sim, req, res, body)) return;
        std::lock_guard<std::mutex> lock(sim.mutex());
        ReplyErrCode(res, 0, "success", EncryptionCerts(sim.state(), body));
    });
    sim.Post(kSavePath, [&sim](const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (Read(sim, req, res, body)) Save(sim, body, res);
    });
    sim.Post(kQueryPath, [&sim](const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!Read(sim, req, res, body)) return;
        std::lock_guard<std::mutex> lock(sim.mutex());
        if (PrintRecord* record = FindPrint(body, res))
            ReplyErrCode(res, 0, "success", Counts(*record));
    });
    // The caller sends the new remaining count; it may only go down, never below zero.
    sim.Post(kUpdatePath, [&sim](const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!Read(sim, req, res, body)) return;
        std::lock_guard<std::mutex> lock(sim.mutex());
        PrintRecord* record = FindPrint(body, res);
        if (record == nullptr) return;
        int remain = -1;
        if (!kxjson::Int(kxjson::Member(body, "remainPrintCount"), remain) || remain < 0 ||
            remain > record->remain)
            return ReplyErrCode(res, 2004,
                                "remainPrintCount must be 0 to " + std::to_string(record->remain));
        record->remain = remain;
        ReplyErrCode(res, 0, "success", Counts(*record));
    });
    sim.Post(kSmsPath, [&sim](const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (Read(sim, req, res, body)) CheckSms(sim, body, res);
    });
    sim.Post(std::string(kGateway) + kSmsPath,
             [&sim](const httplib::Request& req, httplib::Response& res) {
                 Json::Value body;
                 if (!sim.CheckSignatureHead(req, res)) return;
                 if (!kxjson::Parse(req.body, body))
                     return ReplyErrCode(res, 2000, "request body is no JSON");
                 CheckSms(sim, body, res);
             });
    sim.Post(kOrgPath, [&sim](const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!Read(sim, req, res, body)) return;
        std::lock_guard<std::mutex> lock(sim.mutex());
        const UserCertificate* cert = FindCert(sim.state(), kxjson::String(body, "certSn"));
        const Account* account = cert ? sim.state().FindAccountById(cert->accountId) : nullptr;
        const Organisation* org = account ? sim.state().FindOrganisation(account->orgId) : nullptr;
        if (org == nullptr) return ReplyErrCode(res, 3001, "unknown certificate");
        Json::Value data;
        data["organizeCode"] = org->creditCode;
        ReplyErrCode(res, 0, "success", data);
    });
    // Stands in for the person's phone: sends (makes) a fresh code for the
    // certificate and shows it.
    sim.Post(kSmsCodePattern, [&sim](const httplib::Request& req, httplib::Response& res) {
        const std::string sn = req.matches[1];
        std::lock_guard<std::mutex> lock(sim.mutex());
        if (FindCert(sim.state(), sn) == nullptr)
            return ReplyErrCode(res, 3001, "unknown certificate");
        const std::string random = IWK_GenRand(4);
        unsigned long number = 0;
        for (unsigned char c : random) number = number * 256 + c;
        std::string code = std::to_string(number % 1000000);
        code.insert(0, 6 - code.size(), '0');
        State().smsCodes[sn] = code;
        Json::Value data;
        data["code"] = code;
        ReplyErrCode(res, 0, "sent", data);
    });
}

std::string PrintCtrlServiceConfig(const Sim& sim) {
    const Project& project = sim.projects()[0];
    const Project& partner = sim.projects()[1];
    std::ostringstream ini;
    ini << "[KXPrintCtrl]\nSerType=3\nHost=" << sim.hostUrl() << "\nPort=" << sim.port()
        << "\nProjectID=" << project.id << "\nProjectSecret=" << project.secret
        << "\nisGoGateWay=0\nVerifySMSKaptchaForClient=" << kSmsPath
        << "\n\n[MobileShield]\npublicServer=" << sim.options().host
        << "\npublicPort=" << sim.port() << "\nappId=" << partner.id
        << "\nappSecret=" << partner.secret << "\n\n[KXSign]\nserverUrl=" << sim.baseUrl()
        << kGateway << "\n";
    return ini.str();
}

}  // namespace kxsim
