// What the simulator knows at start: demo accounts, organisations, seals and
// certificates. Keys and certificates are real, issued by the simulator's CA,
// so that what the demo signs can be verified.
#pragma once

#include <string>
#include <vector>

#include "KXPki.h"

namespace kxsim {

struct Organisation {
    std::string orgId;
    std::string name;        // GBK bytes, as the suite's servers send names
    std::string creditCode;  // unified social credit code
};

struct Account {
    std::string accountId;
    std::string loginName;
    std::string password;
    std::string signPassword;  // the PIN that seal signing asks for
    std::string name;          // GBK bytes
    std::string mobile;
    std::string idNo;
    std::string orgId;
};

struct Seal {
    std::string sealId;
    std::string name;  // GBK bytes
    int sealType = 1;
    std::string accountId;
    kxpki::Key key;    // RSA 2048
    kxpki::Cert cert;  // issued by the simulator's CA for the seal's holder
};

struct UserCertificate {
    std::string accountId;
    kxpki::Key key;
    kxpki::Cert cert;
    std::string serialHex;  // upper-case hex, as certificate serials are shown
};

struct SimState {
    std::vector<Organisation> organisations;
    std::vector<Account> accounts;
    std::vector<Seal> seals;
    std::vector<UserCertificate> certificates;

    // Seeds the demo data, issuing keys and certificates with the CA.
    bool Seed(X509* caCert, EVP_PKEY* caKey);

    const Account* FindAccount(const std::string& loginName) const;
    const Account* FindAccountById(const std::string& accountId) const;
    const Organisation* FindOrganisation(const std::string& orgId) const;
    const Seal* FindSeal(const std::string& sealId) const;
};

// Upper-case hex of a certificate's serial number.
std::string SerialHex(X509* cert);

}  // namespace kxsim
