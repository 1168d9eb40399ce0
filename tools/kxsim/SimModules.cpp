// Every service module of the simulator. A new service adds one line here.
#include "SimServer.h"

namespace kxsim {

void InstallCertServices(Sim& sim);
std::string CertServicesConfig(const Sim& sim);
void InstallPlatformService(Sim& sim);
std::string PlatformServiceConfig(const Sim& sim);

const std::vector<Module>& Modules() {
    static const std::vector<Module> modules = {
        {"cert-services", InstallCertServices, CertServicesConfig},
        {"platform", InstallPlatformService, PlatformServiceConfig},
    };
    return modules;
}

}  // namespace kxsim
