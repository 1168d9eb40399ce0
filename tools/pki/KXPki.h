// A small certificate authority: keys, certificates, PEM files. The simulator
// keeps one in its state directory; the tests make one at test time.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <openssl/evp.h>
#include <openssl/x509.h>

namespace kxpki {

struct KeyFree {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
struct CertFree {
    void operator()(X509* cert) const { X509_free(cert); }
};
using Key = std::unique_ptr<EVP_PKEY, KeyFree>;
using Cert = std::unique_ptr<X509, CertFree>;

// An RSA key of the given size (seal and signing keys).
Key MakeRsaKey(int bits = 2048);
// An EC P-256 key: quick to make, used for the CA and the TLS server.
Key MakeEcKey();

struct CertRequest {
    std::string commonName;
    std::string organisation;
    bool isCA = false;
    bool forServer = false;  // adds serverAuth and the subjectAltName entries
    std::vector<std::string> dnsNames;
    std::vector<std::string> ipAddresses;
    int days = 825;
    long serial = 0;    // 0: a random serial
    int keyUsage = -1;  // -1: derived from isCA / forServer
};

// Signs a certificate for publicKey with issuer (null issuer: self-signed).
Cert IssueCert(const CertRequest& request, EVP_PKEY* publicKey, X509* issuerCert,
               EVP_PKEY* issuerKey);

std::string KeyToPem(EVP_PKEY* key);
std::string CertToPem(X509* cert);
std::string CertToDer(X509* cert);
Key KeyFromPem(const std::string& pem);
Cert CertFromPem(const std::string& pem);

bool WriteFile(const std::string& path, const std::string& data, int mode = 0644);
bool ReadFile(const std::string& path, std::string& data);
// PEM text of a certificate given as Base64 of its DER, lines of 64.
std::string CertPemFromBase64(const std::string& derB64);
// Raw SHA-256 digest of data; empty on failure.
std::string Sha256(const std::string& data);

// A CA with one server certificate for localhost / 127.0.0.1, kept as PEM files
// in a directory: ca.pem, ca.key, server.pem, server.key. Load() reuses files
// that are there and makes the missing ones.
class Authority {
public:
    bool Load(const std::string& dir, const std::string& name);
    const std::string& caFile() const { return caFile_; }
    const std::string& certFile() const { return certFile_; }
    const std::string& keyFile() const { return keyFile_; }
    X509* caCert() const { return caCert_.get(); }
    EVP_PKEY* caKey() const { return caKey_.get(); }

private:
    std::string caFile_, certFile_, keyFile_;
    Cert caCert_;
    Key caKey_;
};

// Certificate signing requests, for services that issue from a CSR.
struct CsrFree {
    void operator()(X509_REQ* csr) const { X509_REQ_free(csr); }
};
using Csr = std::unique_ptr<X509_REQ, CsrFree>;

// A CSR from PEM, or from the Base64 of its DER with or without PEM armour.
// Null when the text holds none or its self-signature does not verify.
Csr CsrFromPem(const std::string& text);
// The CSR's subject common name, empty when it has none.
std::string CsrCommonName(X509_REQ* csr);
// Issues a certificate for the CSR's public key and subject common name
// (request.commonName when the CSR has none). keyUsage replaces the key usage
// IssueCert derives, e.g. "critical,keyEncipherment,dataEncipherment".
Cert IssueCertForCsr(const CertRequest& request, X509_REQ* csr, const std::string& keyUsage,
                     X509* issuerCert, EVP_PKEY* issuerKey);
// IssueCert with keyUsage in place of the key usage it derives.
Cert IssueCertWithUsage(const CertRequest& request, EVP_PKEY* publicKey,
                        const std::string& keyUsage, X509* issuerCert, EVP_PKEY* issuerKey);
// Whether cert chains to caCert and is valid now.
bool VerifyIssuedBy(X509* cert, X509* caCert);
// Base64 of the DER, one line (no armour).
std::string CertToBase64(X509* cert);
// A certificate from PEM, or from the Base64 of its DER; null when none.
Cert CertFromText(const std::string& text);

}  // namespace kxpki
