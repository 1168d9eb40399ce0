#include "TestCA.h"

#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "KXPki.h"

namespace kxtest {

namespace {

std::string MakeTempDir() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern =
        std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/kxtest-ca.XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (mkdtemp(buffer.data()) == nullptr) throw std::runtime_error("TestCA: mkdtemp failed");
    return buffer.data();
}

}  // namespace

TestCA::TestCA(const std::string& name) : dir_(MakeTempDir()) {
    kxpki::Authority authority;
    if (!authority.Load(dir_, name)) {
        removeFiles();
        throw std::runtime_error("TestCA: cannot make the authority " + name);
    }
    caFile_ = authority.caFile();
    certFile_ = authority.certFile();
    keyFile_ = authority.keyFile();
}

TestCA::TestCA(const TestCA& issuer, Flaw flaw) : dir_(MakeTempDir()) {
    std::string caPem, caKeyPem;
    kxpki::ReadFile(issuer.caFile_, caPem);
    kxpki::ReadFile(issuer.dir_ + "/ca.key", caKeyPem);
    const kxpki::Cert caCert = kxpki::CertFromPem(caPem);
    const kxpki::Key caKey = kxpki::KeyFromPem(caKeyPem);
    const kxpki::Key key = kxpki::MakeEcKey();
    kxpki::CertRequest req;
    req.commonName = "localhost";
    req.forServer = true;
    req.dnsNames = {"localhost"};
    req.ipAddresses = {"127.0.0.1", "::1"};
    if (flaw == Flaw::Expired) req.days = -1;
    if (flaw == Flaw::WrongHost) {
        req.commonName = "other.example";
        req.dnsNames = {"other.example"};
        req.ipAddresses = {"192.0.2.1"};
    }
    const bool self = flaw == Flaw::SelfSigned;
    const kxpki::Cert cert = kxpki::IssueCert(req, key.get(), self ? nullptr : caCert.get(),
                                              self ? key.get() : caKey.get());
    caFile_ = issuer.caFile_;
    certFile_ = dir_ + "/server.pem";
    keyFile_ = dir_ + "/server.key";
    if (!caKey || !cert || !kxpki::WriteFile(keyFile_, kxpki::KeyToPem(key.get()), 0600) ||
        !kxpki::WriteFile(certFile_, kxpki::CertToPem(cert.get()))) {
        removeFiles();
        throw std::runtime_error("TestCA: cannot make a flawed server certificate");
    }
}

const TestCA& TestCA::flawed(Flaw flaw) {
    static const TestCA expired(instance(), Flaw::Expired);
    static const TestCA wrongHost(instance(), Flaw::WrongHost);
    static const TestCA selfSigned(instance(), Flaw::SelfSigned);
    return flaw == Flaw::Expired ? expired : flaw == Flaw::WrongHost ? wrongHost : selfSigned;
}

TestCA::~TestCA() {
    removeFiles();
}

void TestCA::removeFiles() {
    for (const char* name : {"ca.pem", "ca.key", "server.pem", "server.key"}) {
        ::unlink((dir_ + "/" + name).c_str());
    }
    if (!dir_.empty()) ::rmdir(dir_.c_str());
}

const TestCA& TestCA::instance() {
    static const TestCA ca("KXServerApi test");
    return ca;
}

const TestCA& TestCA::unrelated() {
    static const TestCA ca("Unrelated test");
    return ca;
}

}  // namespace kxtest
