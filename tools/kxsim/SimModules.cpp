// Every service module of the simulator. A new service adds one line here.
#include "SimServer.h"

namespace kxsim {

void InstallCertServices(Sim& sim);
std::string CertServicesConfig(const Sim& sim);
void InstallCloudCheck(Sim& sim);
std::string CloudCheckConfig(const Sim& sim);
void InstallCertExpand(Sim& sim);
std::string CertExpandConfig(const Sim& sim);
void InstallInkwellCerts(Sim& sim);
void InstallPlatformService(Sim& sim);
std::string PlatformServiceConfig(const Sim& sim);
void InstallSealServer(Sim& sim);
std::string SealServerConfig(const Sim& sim);
void InstallPrintCtrlService(Sim& sim);
std::string PrintCtrlServiceConfig(const Sim& sim);
void InstallBidService(Sim& sim);
std::string BidServiceConfig(const Sim& sim);
void InstallRecordsService(Sim& sim);
std::string RecordsServiceConfig(const Sim& sim);
void InstallConvertService(Sim& sim);
std::string ConvertServiceConfig(const Sim& sim);
void InstallSealLists(Sim& sim);
std::string SealListsConfig(const Sim& sim);
void InstallDashboard(Sim& sim);

const std::vector<Module>& Modules() {
    static const std::vector<Module> modules = {
        {"cert-services", InstallCertServices, CertServicesConfig},
        {"cloud-check", InstallCloudCheck, CloudCheckConfig},
        {"cert-expand", InstallCertExpand, CertExpandConfig},
        {"inkwell-certs", InstallInkwellCerts, nullptr},  // uses [KXInkwell] of cert-services
        {"platform", InstallPlatformService, PlatformServiceConfig},
        {"seal-server", InstallSealServer, SealServerConfig},
        {"print-ctrl", InstallPrintCtrlService, PrintCtrlServiceConfig},
        {"bid", InstallBidService, BidServiceConfig},
        {"records", InstallRecordsService, RecordsServiceConfig},
        {"convert", InstallConvertService, ConvertServiceConfig},
        {"seal-lists", InstallSealLists, SealListsConfig},
        {"dashboard", InstallDashboard, nullptr},
    };
    return modules;
}

}  // namespace kxsim
