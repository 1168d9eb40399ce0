#include "KXPki.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

namespace kxpki {

namespace {

struct BioFree {
    void operator()(BIO* bio) const { BIO_free(bio); }
};
using Bio = std::unique_ptr<BIO, BioFree>;

std::string BioText(BIO* bio) {
    char* data = nullptr;
    long len = BIO_get_mem_data(bio, &data);
    return len > 0 ? std::string(data, static_cast<size_t>(len)) : std::string();
}

bool AddExtension(X509* cert, X509* issuer, int nid, const std::string& value) {
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, issuer != nullptr ? issuer : cert, cert, nullptr, nullptr, 0);
    X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value.c_str());
    if (ext == nullptr) return false;
    bool ok = X509_add_ext(cert, ext, -1) == 1;
    X509_EXTENSION_free(ext);
    return ok;
}

}  // namespace

Key MakeRsaKey(int bits) {
    EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr);
    EVP_PKEY* key = nullptr;
    if (ctx != nullptr && EVP_PKEY_keygen_init(ctx) == 1 &&
        EVP_PKEY_CTX_set_rsa_keygen_bits(ctx, bits) == 1) {
        EVP_PKEY_keygen(ctx, &key);
    }
    EVP_PKEY_CTX_free(ctx);
    return Key(key);
}

Key MakeEcKey() {
    return Key(EVP_EC_gen("P-256"));
}

Cert IssueCert(const CertRequest& request, EVP_PKEY* publicKey, X509* issuerCert,
               EVP_PKEY* issuerKey) {
    Cert cert(X509_new());
    if (!cert || publicKey == nullptr || issuerKey == nullptr) return nullptr;
    X509_set_version(cert.get(), 2);

    long serial = request.serial;
    if (serial == 0) {
        unsigned char bytes[6];
        RAND_bytes(bytes, sizeof bytes);
        serial = 1;
        for (unsigned char b : bytes) serial = (serial << 8) | b;
        if (serial < 0) serial = -serial;
    }
    ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), serial);
    X509_gmtime_adj(X509_getm_notBefore(cert.get()), -3600);
    X509_gmtime_adj(X509_getm_notAfter(cert.get()), 60L * 60 * 24 * request.days);
    X509_set_pubkey(cert.get(), publicKey);

    X509_NAME* name = X509_get_subject_name(cert.get());
    if (!request.organisation.empty()) {
        X509_NAME_add_entry_by_txt(
            name, "O", MBSTRING_UTF8,
            reinterpret_cast<const unsigned char*>(request.organisation.c_str()), -1, -1, 0);
    }
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(request.commonName.c_str()),
                               -1, -1, 0);
    X509_set_issuer_name(cert.get(),
                         issuerCert != nullptr ? X509_get_subject_name(issuerCert) : name);

    bool ok = AddExtension(cert.get(), issuerCert, NID_basic_constraints,
                           request.isCA ? "critical,CA:TRUE" : "critical,CA:FALSE");
    std::string usage;
    if (request.isCA) {
        usage = "critical,keyCertSign,cRLSign,digitalSignature";
    } else if (request.forServer) {
        usage = "critical,digitalSignature,keyEncipherment,keyAgreement";
    } else {
        usage = "critical,digitalSignature,nonRepudiation";
    }
    ok = ok && AddExtension(cert.get(), issuerCert, NID_key_usage, usage);
    ok = ok && AddExtension(cert.get(), issuerCert, NID_subject_key_identifier, "hash");
    if (issuerCert != nullptr) {
        ok = ok &&
             AddExtension(cert.get(), issuerCert, NID_authority_key_identifier, "keyid:always");
    }
    if (request.forServer) {
        ok = ok && AddExtension(cert.get(), issuerCert, NID_ext_key_usage, "serverAuth");
        std::string san;
        for (const auto& dns : request.dnsNames) san += (san.empty() ? "" : ",") + ("DNS:" + dns);
        for (const auto& ip : request.ipAddresses) san += (san.empty() ? "" : ",") + ("IP:" + ip);
        if (!san.empty())
            ok = ok && AddExtension(cert.get(), issuerCert, NID_subject_alt_name, san);
    }
    if (!ok || X509_sign(cert.get(), issuerKey, EVP_sha256()) == 0) return nullptr;
    return cert;
}

std::string KeyToPem(EVP_PKEY* key) {
    Bio bio(BIO_new(BIO_s_mem()));
    if (!bio || key == nullptr ||
        PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr) != 1) {
        return std::string();
    }
    return BioText(bio.get());
}

std::string CertToPem(X509* cert) {
    Bio bio(BIO_new(BIO_s_mem()));
    if (!bio || cert == nullptr || PEM_write_bio_X509(bio.get(), cert) != 1) return std::string();
    return BioText(bio.get());
}

std::string CertToDer(X509* cert) {
    unsigned char* der = nullptr;
    int len = cert != nullptr ? i2d_X509(cert, &der) : -1;
    if (len <= 0) return std::string();
    std::string out(reinterpret_cast<char*>(der), static_cast<size_t>(len));
    OPENSSL_free(der);
    return out;
}

Key KeyFromPem(const std::string& pem) {
    Bio bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    return Key(bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr) : nullptr);
}

Cert CertFromPem(const std::string& pem) {
    Bio bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    return Cert(bio ? PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr) : nullptr);
}

bool WriteFile(const std::string& path, const std::string& data, int mode) {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    if (fd < 0) return false;
    size_t done = 0;
    while (done < data.size()) {
        ssize_t n = ::write(fd, data.data() + done, data.size() - done);
        if (n <= 0) {
            ::close(fd);
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return ::close(fd) == 0;
}

bool ReadFile(const std::string& path, std::string& data) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream text;
    text << in.rdbuf();
    data = text.str();
    return true;
}

bool Authority::Load(const std::string& dir, const std::string& name) {
    caFile_ = dir + "/ca.pem";
    certFile_ = dir + "/server.pem";
    keyFile_ = dir + "/server.key";
    const std::string caKeyFile = dir + "/ca.key";
    ::mkdir(dir.c_str(), 0700);

    std::string caPem, caKeyPem;
    if (ReadFile(caFile_, caPem) && ReadFile(caKeyFile, caKeyPem)) {
        caCert_ = CertFromPem(caPem);
        caKey_ = KeyFromPem(caKeyPem);
    }
    if (!caCert_ || !caKey_) {
        caKey_ = MakeEcKey();
        CertRequest req;
        req.commonName = name + " Root CA";
        req.organisation = name;
        req.isCA = true;
        req.days = 3650;
        caCert_ = IssueCert(req, caKey_.get(), nullptr, caKey_.get());
        if (!caCert_ || !WriteFile(caKeyFile, KeyToPem(caKey_.get()), 0600) ||
            !WriteFile(caFile_, CertToPem(caCert_.get()))) {
            return false;
        }
        ::unlink(certFile_.c_str());  // a new CA invalidates the old server certificate
    }

    std::string certPem, keyPem;
    if (ReadFile(certFile_, certPem) && ReadFile(keyFile_, keyPem) && CertFromPem(certPem) &&
        KeyFromPem(keyPem)) {
        return true;
    }
    Key serverKey = MakeEcKey();
    CertRequest req;
    req.commonName = "localhost";
    req.organisation = name;
    req.forServer = true;
    req.dnsNames = {"localhost"};
    req.ipAddresses = {"127.0.0.1", "::1"};
    Cert serverCert = IssueCert(req, serverKey.get(), caCert_.get(), caKey_.get());
    return serverCert && WriteFile(keyFile_, KeyToPem(serverKey.get()), 0600) &&
           WriteFile(certFile_, CertToPem(serverCert.get()));
}

}  // namespace kxpki
