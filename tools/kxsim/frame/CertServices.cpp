// The web service's certificate service query and the legacy server's
// authorization URL.
#include <sstream>

#include "KXUtils.h"
#include "SimServer.h"

namespace kxsim {

namespace {

const char kServicesPath[] = "/kxweb/v3/bid-sign/services";
const char kAuthorizationPath[] = "/inkwell/rest/authorization";

Json::Value Services(const std::string& certSn, const std::string& ukeyNum) {
    Json::Value data;
    if (!certSn.empty()) data["certSn"] = certSn;
    if (!ukeyNum.empty()) data["ukeyNum"] = ukeyNum;
    const char* names[][2] = {
        {"seal", "electronic seal"}, {"sign", "document signing"}, {"print", "print control"}};
    for (const auto& name : names) {
        Json::Value service;
        service["serviceCode"] = name[0];
        service["serviceName"] = name[1];
        service["status"] = 1;
        data["services"].append(service);
    }
    return data;
}

// A serial or UKey number that starts with "0000" is one the service does not know.
bool Unknown(const std::string& value) {
    return value.compare(0, 4, "0000") == 0;
}

}  // namespace

void InstallCertServices(Sim& sim) {
    // The library sends this query without a head, so nothing is verified here.
    sim.Get(kServicesPath, [](const httplib::Request& req, httplib::Response& res) {
        const std::string certSn = req.get_param_value("certSn");
        const std::string ukeyNum = req.get_param_value("ukeyNum");
        if (certSn.empty() && ukeyNum.empty()) {
            ReplyCode(res, 400, "certSn or ukeyNum is required");
        } else if (Unknown(certSn) || Unknown(ukeyNum)) {
            ReplyCode(res, 4004, "certificate or UKey not found");
        } else {
            ReplyCode(res, 0, "success", Services(certSn, ukeyNum));
        }
    });
    sim.Get(kAuthorizationPath, [](const httplib::Request&, httplib::Response& res) {
        ReplyErrCode(res, 0, "success", Json::Value("kxsim-legacy-authorization"));
    });
}

std::string CertServicesConfig(const Sim& sim) {
    const Project& project = sim.projects()[0];
    std::ostringstream ini;
    ini << "[KXServerApi]\nCertServiceQuery=" << sim.baseUrl() << "/kxweb\n"
        << "CertServiceQueryUri=/v3/bid-sign/services\n"
        << "\n[KXInkwell]\nSerType=3\nHost=" << sim.hostUrl() << "\nPort=" << sim.port()
        << "\nProjectID=" << project.id << "\nProjectSecret=" << project.secret
        << "\nserverVer=5.3\nauthorizationType=2\nauthorization=" << sim.baseUrl()
        << kAuthorizationPath << "\n";
    return ini.str();
}

}  // namespace kxsim
