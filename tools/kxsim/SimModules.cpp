// Every service module of the simulator. A new service adds one line here.
#include "SimServer.h"

namespace kxsim {

void InstallCertServices(Sim& sim);
std::string CertServicesConfig(const Sim& sim);
void InstallSealServer(Sim& sim);
std::string SealServerConfig(const Sim& sim);

const std::vector<Module>& Modules() {
    static const std::vector<Module> modules = {
        {"cert-services", InstallCertServices, CertServicesConfig},
        {"seal-server", InstallSealServer, SealServerConfig},
    };
    return modules;
}

}  // namespace kxsim
