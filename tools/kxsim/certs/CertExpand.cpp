// The certificate-expansion service: a request with a CSR walks from pending
// to done over a few polls, then carries a signing and an encryption
// certificate issued by the simulator's CA for the CSR's key.
#include <cstdlib>
#include <map>
#include <sstream>

#include "KXUtils.h"
#include "SimServer.h"

namespace kxsim {

namespace {

const char kBase[] = "/v1/orbis/ukey/client";

enum Status { kPending = 0, kProcessing = 1, kDone = 2 };

struct Operation {
    std::string ukeyNum;
    std::string csr;
    long logId = 0;
    int polls = 0;
    std::string signCert;  // Base64 DER, once done
    std::string encCert;
    std::string serial;
    std::string authCode;
    bool finished = false;
};

struct ExpandState {
    long nextOptId = 1001;
    long nextLogId = 5001;
    std::map<long, Operation> operations;
};

// One simulator per process.
ExpandState& State() {
    static ExpandState state;
    return state;
}

bool Issue(Sim& sim, Operation& op) {
    kxpki::Csr csr = kxpki::CsrFromPem(op.csr);
    if (!csr) return false;
    kxpki::CertRequest request;
    request.commonName = op.ukeyNum;
    request.organisation = "kxsim";
    request.days = 365;
    kxpki::Cert sign =
        kxpki::IssueCertForCsr(request, csr.get(), "critical,digitalSignature,nonRepudiation",
                               sim.authority().caCert(), sim.authority().caKey());
    kxpki::Cert enc = kxpki::IssueCertForCsr(
        request, csr.get(), "critical,keyEncipherment,dataEncipherment,keyAgreement",
        sim.authority().caCert(), sim.authority().caKey());
    if (!sign || !enc) return false;
    op.signCert = kxpki::CertToBase64(sign.get());
    op.encCert = kxpki::CertToBase64(enc.get());
    op.serial = SerialHex(sign.get());
    op.authCode = IWK_CharToHex(IWK_GenRand(4));
    return true;
}

// A UKey number that starts with "0000" belongs to a key whose service time ran out.
bool Expired(const std::string& id) {
    return id.compare(0, 4, "0000") == 0;
}

}  // namespace

void InstallCertExpand(Sim& sim) {
    // The pre-routing check has verified the signature head of every /v1/ path.
    sim.Get(std::string(kBase) + R"(/cert/serviceTime/([^/]*))",
            [](const httplib::Request& req, httplib::Response& res) {
                Json::Value data;
                data["expired"] = Expired(req.matches[1].str());
                data["ukeyNum"] = req.matches[1].str();
                ReplyCode(res, 0, "success", data);
            });
    sim.Post(std::string(kBase) + "/certOpt/doubleCertRequest",
             [&sim](const httplib::Request& req, httplib::Response& res) {
                 Json::Value body;
                 if (!ReadJsonBody(req, res, body)) return;
                 const std::string ukeyNum = kxjson::String(body, "ukeyNum");
                 const std::string csr = kxjson::String(body, "csr");
                 if (ukeyNum.empty()) return ReplyCode(res, 4001, "ukeyNum is required");
                 if (Expired(ukeyNum)) return ReplyCode(res, 4003, "service time has expired");
                 if (!kxpki::CsrFromPem(csr))
                     return ReplyCode(res, 4002, "csr is no valid certificate request");
                 std::lock_guard<std::mutex> lock(sim.mutex());
                 ExpandState& state = State();
                 const long id = state.nextOptId++;
                 Operation& op = state.operations[id];
                 op.ukeyNum = ukeyNum;
                 op.csr = csr;
                 op.logId = state.nextLogId++;
                 Json::Value data;
                 data["certOptId"] = static_cast<Json::Int64>(id);
                 data["logId"] = static_cast<Json::Int64>(op.logId);
                 ReplyCode(res, 0, "success", data);
             });
    sim.Get(std::string(kBase) + R"(/certOpt/doubleCertInfo/(-?\d+))",
            [&sim](const httplib::Request& req, httplib::Response& res) {
                const long id = std::atol(req.matches[1].str().c_str());
                std::lock_guard<std::mutex> lock(sim.mutex());
                auto it = State().operations.find(id);
                if (it == State().operations.end())
                    return ReplyCode(res, 4004, "no such certificate operation");
                Operation& op = it->second;
                // Pending on the first poll, processing on the second, done after.
                const int status = op.polls >= 2 ? kDone : op.polls;
                ++op.polls;
                if (status == kDone && op.signCert.empty() && !Issue(sim, op))
                    return ReplyCode(res, 5001, "cannot issue the certificates");
                Json::Value data;
                data["status"] = status;
                if (status == kDone) {
                    data["signCert"] = op.signCert;
                    data["encCert"] = op.encCert;
                    data["sn"] = op.serial;
                    data["authCode"] = op.authCode;
                }
                ReplyCode(res, 0, "success", data);
            });
    sim.Post(std::string(kBase) + "/certOpt/finishCert",
             [&sim](const httplib::Request& req, httplib::Response& res) {
                 Json::Value body;
                 if (!ReadJsonBody(req, res, body)) return;
                 long long id = 0, logId = 0;
                 kxjson::Int64(kxjson::Member(body, "certOptId"), id);
                 kxjson::Int64(kxjson::Member(body, "logId"), logId);
                 std::lock_guard<std::mutex> lock(sim.mutex());
                 auto it = State().operations.find(static_cast<long>(id));
                 if (it == State().operations.end())
                     return ReplyCode(res, 4004, "no such certificate operation");
                 Operation& op = it->second;
                 if (op.signCert.empty())
                     return ReplyCode(res, 4005, "certificates not issued yet");
                 if (op.logId != logId || op.ukeyNum != kxjson::String(body, "ukeyNum") ||
                     op.signCert != kxjson::String(body, "signCert") ||
                     op.encCert != kxjson::String(body, "encryptCert")) {
                     return ReplyCode(res, 4006, "finish does not match the operation");
                 }
                 op.finished = true;
                 ReplyCode(res, 0, "success");
             });
}

std::string CertExpandConfig(const Sim& sim) {
    const Project& project = sim.projects()[0];
    std::ostringstream ini;
    // The expansion client's URL templates carry the scheme and take the host
    // with its port from Host alone.
    ini << "[KXCertExpand]\nSerType=3\nHost=" << sim.options().host << ":" << sim.port()
        << "\nPort=" << sim.port() << "\nProjectID=" << project.id
        << "\nProjectSecret=" << project.secret << "\n";
    return ini.str();
}

}  // namespace kxsim
