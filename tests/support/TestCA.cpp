#include "TestCA.h"

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <vector>

namespace kxtest {
namespace {

struct KeyFree {
    void operator()(EVP_PKEY* k) const { EVP_PKEY_free(k); }
};
struct CertFree {
    void operator()(X509* c) const { X509_free(c); }
};
using Key = std::unique_ptr<EVP_PKEY, KeyFree>;
using Cert = std::unique_ptr<X509, CertFree>;

void Check(bool ok, const char* what) {
    if (!ok) throw std::runtime_error(std::string("TestCA: ") + what + " failed");
}

Key NewKey() {
    Key key(EVP_EC_gen("P-256"));
    Check(key != nullptr, "EC key generation");
    return key;
}

void AddExtension(X509* cert, X509* issuer, int nid, const char* value) {
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, issuer, cert, nullptr, nullptr, 0);
    X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value);
    Check(ext != nullptr, value);
    int added = X509_add_ext(cert, ext, -1);
    X509_EXTENSION_free(ext);
    Check(added == 1, "X509_add_ext");
}

// issuer null: self-signed authority. Otherwise a server certificate for
// localhost signed by issuer/issuerKey.
Cert NewCert(EVP_PKEY* key, const std::string& commonName, X509* issuer, EVP_PKEY* issuerKey) {
    Cert cert(X509_new());
    Check(cert != nullptr, "X509_new");
    X509* x = cert.get();
    Check(X509_set_version(x, 2) == 1, "X509_set_version");

    BIGNUM* serial = BN_new();
    Check(serial != nullptr && BN_rand(serial, 63, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) == 1,
          "serial");
    bool serialSet = BN_to_ASN1_INTEGER(serial, X509_get_serialNumber(x)) != nullptr;
    BN_free(serial);
    Check(serialSet, "serial");

    Check(X509_gmtime_adj(X509_getm_notBefore(x), -3600) != nullptr, "notBefore");
    Check(X509_gmtime_adj(X509_getm_notAfter(x), 30L * 24 * 3600) != nullptr, "notAfter");
    Check(X509_set_pubkey(x, key) == 1, "X509_set_pubkey");

    X509_NAME* name = X509_get_subject_name(x);
    Check(X509_NAME_add_entry_by_txt(name, "O", MBSTRING_ASC,
                                     reinterpret_cast<const unsigned char*>("KXServerApi tests"),
                                     -1, -1, 0) == 1,
          "subject O");
    Check(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                                     reinterpret_cast<const unsigned char*>(commonName.c_str()), -1,
                                     -1, 0) == 1,
          "subject CN");
    Check(X509_set_issuer_name(x, issuer != nullptr ? X509_get_subject_name(issuer) : name) == 1,
          "issuer");

    X509* signer = issuer != nullptr ? issuer : x;
    if (issuer == nullptr) {
        AddExtension(x, signer, NID_basic_constraints, "critical,CA:TRUE");
        AddExtension(x, signer, NID_key_usage, "critical,keyCertSign,cRLSign");
        AddExtension(x, signer, NID_subject_key_identifier, "hash");
        AddExtension(x, signer, NID_authority_key_identifier, "keyid:always");
    } else {
        AddExtension(x, signer, NID_basic_constraints, "critical,CA:FALSE");
        AddExtension(x, signer, NID_key_usage, "critical,digitalSignature,keyEncipherment");
        AddExtension(x, signer, NID_ext_key_usage, "serverAuth");
        AddExtension(x, signer, NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1");
        AddExtension(x, signer, NID_subject_key_identifier, "hash");
        AddExtension(x, signer, NID_authority_key_identifier, "keyid:always");
    }
    Check(X509_sign(x, issuerKey != nullptr ? issuerKey : key, EVP_sha256()) > 0, "X509_sign");
    return cert;
}

void WriteCert(const std::string& path, X509* cert) {
    FILE* f = std::fopen(path.c_str(), "w");
    Check(f != nullptr, "open certificate file");
    bool ok = PEM_write_X509(f, cert) == 1;
    ok = std::fclose(f) == 0 && ok;
    Check(ok, "write certificate");
}

void WriteKey(const std::string& path, EVP_PKEY* key) {
    FILE* f = std::fopen(path.c_str(), "w");
    Check(f != nullptr, "open key file");
    bool ok = PEM_write_PrivateKey(f, key, nullptr, nullptr, 0, nullptr, nullptr) == 1;
    ok = std::fclose(f) == 0 && ok;
    Check(ok, "write key");
}

std::string MakeTempDir() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern =
        std::string(base != nullptr && base[0] != '\0' ? base : "/tmp") + "/kxtestca.XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    Check(mkdtemp(buffer.data()) != nullptr, "mkdtemp");
    return buffer.data();
}

}  // namespace

TestCA::TestCA(const std::string& name) {
    Key caKey = NewKey();
    Cert ca = NewCert(caKey.get(), name + " CA", nullptr, nullptr);
    Key serverKey = NewKey();
    Cert server = NewCert(serverKey.get(), "localhost", ca.get(), caKey.get());

    dir_ = MakeTempDir();
    caFile_ = dir_ + "/ca.pem";
    certFile_ = dir_ + "/server.pem";
    keyFile_ = dir_ + "/server.key";
    try {
        WriteCert(caFile_, ca.get());
        WriteCert(certFile_, server.get());
        WriteKey(keyFile_, serverKey.get());
    } catch (...) {
        removeFiles();
        throw;
    }
}

TestCA::~TestCA() {
    removeFiles();
}

void TestCA::removeFiles() {
    for (const std::string* path : {&caFile_, &certFile_, &keyFile_}) {
        if (!path->empty()) ::unlink(path->c_str());
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
