#include "SimState.h"

#include <openssl/bn.h>

namespace kxsim {

namespace {

// "张三", "李四", "示例科技有限公司", "合同专用章", "公章" in GBK.
const char kNameZhang[] = "\xD5\xC5\xC8\xFD";
const char kNameLi[] = "\xC0\xEE\xCB\xC4";
const char kOrgName[] = "\xCA\xBE\xC0\xFD\xBF\xC6\xBC\xBC\xD3\xD0\xCF\xDE\xB9\xAB\xCB\xBE";
const char kContractSeal[] = "\xBA\xCF\xCD\xAC\xD7\xA8\xD3\xC3\xD5\xC2";
const char kOfficialSeal[] = "\xB9\xAB\xD5\xC2";

}  // namespace

std::string SerialHex(X509* cert) {
    std::string hex;
    if (cert == nullptr) return hex;
    BIGNUM* bn = ASN1_INTEGER_to_BN(X509_get_serialNumber(cert), nullptr);
    if (bn == nullptr) return hex;
    char* text = BN_bn2hex(bn);
    if (text != nullptr) hex = text;
    OPENSSL_free(text);
    BN_free(bn);
    return hex;
}

bool SimState::Seed(X509* caCert, EVP_PKEY* caKey) {
    organisations = {{"org-0001", kOrgName, "91110000KXDEMO0001"}};
    accounts = {
        {"acc-0001", "demo", "demo-password", "demo-pin", kNameZhang, "13812345678",
         "110101199001011234", "org-0001"},
        {"acc-0002", "demo2", "demo2-password", "demo2-pin", kNameLi, "13987654321",
         "110101198502025678", "org-0001"},
    };

    struct SealSeed {
        const char* id;
        const char* name;
        int type;
        const char* account;
    };
    const SealSeed seeds[] = {{"seal-0001", kOfficialSeal, 1, "acc-0001"},
                              {"seal-0002", kContractSeal, 2, "acc-0001"},
                              {"seal-0003", kOfficialSeal, 1, "acc-0002"}};
    seals.clear();
    for (const SealSeed& seed : seeds) {
        Seal seal;
        seal.sealId = seed.id;
        seal.name = seed.name;
        seal.sealType = seed.type;
        seal.accountId = seed.account;
        seal.key = kxpki::MakeRsaKey(2048);
        kxpki::CertRequest req;
        req.commonName = std::string("KXSim seal ") + seed.id;
        req.organisation = "KXSim";
        seal.cert = kxpki::IssueCert(req, seal.key.get(), caCert, caKey);
        if (!seal.key || !seal.cert) return false;
        seals.push_back(std::move(seal));
    }

    certificates.clear();
    for (const Account& account : accounts) {
        UserCertificate uc;
        uc.accountId = account.accountId;
        uc.key = kxpki::MakeRsaKey(2048);
        kxpki::CertRequest req;
        req.commonName = "KXSim user " + account.loginName;
        req.organisation = "KXSim";
        uc.cert = kxpki::IssueCert(req, uc.key.get(), caCert, caKey);
        if (!uc.key || !uc.cert) return false;
        uc.serialHex = SerialHex(uc.cert.get());
        certificates.push_back(std::move(uc));
    }
    return true;
}

const Account* SimState::FindAccount(const std::string& loginName) const {
    for (const Account& a : accounts) {
        if (a.loginName == loginName) return &a;
    }
    return nullptr;
}

const Account* SimState::FindAccountById(const std::string& accountId) const {
    for (const Account& a : accounts) {
        if (a.accountId == accountId) return &a;
    }
    return nullptr;
}

const Organisation* SimState::FindOrganisation(const std::string& orgId) const {
    for (const Organisation& o : organisations) {
        if (o.orgId == orgId) return &o;
    }
    return nullptr;
}

const Seal* SimState::FindSeal(const std::string& sealId) const {
    for (const Seal& s : seals) {
        if (s.sealId == sealId) return &s;
    }
    return nullptr;
}

}  // namespace kxsim
