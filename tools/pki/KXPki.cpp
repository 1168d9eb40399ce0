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

std::string CertPemFromBase64(const std::string& derB64) {
    std::string pem = "-----BEGIN CERTIFICATE-----\n";
    for (size_t i = 0; i < derB64.size(); i += 64) pem += derB64.substr(i, 64) + "\n";
    return pem + "-----END CERTIFICATE-----\n";
}

std::string Sha256(const std::string& data) {
    unsigned char md[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(data.data(), data.size(), md, &length, EVP_sha256(), nullptr) != 1) return "";
    return std::string(reinterpret_cast<char*>(md), length);
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

namespace {

// Base64 text without PEM armour lines or white space, decoded; empty on failure.
std::string DecodeBase64Body(const std::string& text) {
    std::string clean;
    size_t pos = 0;
    while (pos < text.size()) {
        size_t end = text.find('\n', pos);
        if (end == std::string::npos) end = text.size();
        const std::string line = text.substr(pos, end - pos);
        if (line.find("-----") == std::string::npos) {
            for (char c : line) {
                if (c != '\r' && c != ' ' && c != '\t') clean += c;
            }
        }
        pos = end + 1;
    }
    if (clean.empty() || clean.size() % 4 != 0) return std::string();
    std::string out(clean.size() / 4 * 3, '\0');
    const int len = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(&out[0]),
                                    reinterpret_cast<const unsigned char*>(clean.data()),
                                    static_cast<int>(clean.size()));
    if (len < 0) return std::string();
    size_t padding = 0;
    if (clean[clean.size() - 1] == '=') ++padding;
    if (clean[clean.size() - 2] == '=') ++padding;
    out.resize(static_cast<size_t>(len) - padding);
    return out;
}

}  // namespace

Csr CsrFromPem(const std::string& text) {
    Csr csr;
    if (text.find("-----BEGIN") != std::string::npos) {
        Bio bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
        if (bio) csr.reset(PEM_read_bio_X509_REQ(bio.get(), nullptr, nullptr, nullptr));
    }
    if (!csr) {
        const std::string der = DecodeBase64Body(text);
        const unsigned char* p = reinterpret_cast<const unsigned char*>(der.data());
        if (!der.empty()) csr.reset(d2i_X509_REQ(nullptr, &p, static_cast<long>(der.size())));
    }
    if (!csr) return nullptr;
    EVP_PKEY* key = X509_REQ_get0_pubkey(csr.get());
    if (key == nullptr || X509_REQ_verify(csr.get(), key) != 1) return nullptr;
    return csr;
}

std::string CsrCommonName(X509_REQ* csr) {
    X509_NAME* name = csr != nullptr ? X509_REQ_get_subject_name(csr) : nullptr;
    const int index = name != nullptr ? X509_NAME_get_index_by_NID(name, NID_commonName, -1) : -1;
    if (index < 0) return std::string();
    ASN1_STRING* data = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, index));
    unsigned char* utf8 = nullptr;
    const int len = ASN1_STRING_to_UTF8(&utf8, data);
    if (len < 0) return std::string();
    std::string out(reinterpret_cast<char*>(utf8), static_cast<size_t>(len));
    OPENSSL_free(utf8);
    return out;
}

Cert IssueCertForCsr(const CertRequest& request, X509_REQ* csr, const std::string& keyUsage,
                     X509* issuerCert, EVP_PKEY* issuerKey) {
    if (csr == nullptr) return nullptr;
    CertRequest own = request;
    const std::string commonName = CsrCommonName(csr);
    if (!commonName.empty()) own.commonName = commonName;
    return IssueCertWithUsage(own, X509_REQ_get0_pubkey(csr), keyUsage, issuerCert, issuerKey);
}

Cert IssueCertWithUsage(const CertRequest& request, EVP_PKEY* publicKey,
                        const std::string& keyUsage, X509* issuerCert, EVP_PKEY* issuerKey) {
    Cert cert = IssueCert(request, publicKey, issuerCert, issuerKey);
    if (!cert || keyUsage.empty()) return cert;
    const int index = X509_get_ext_by_NID(cert.get(), NID_key_usage, -1);
    if (index >= 0) X509_EXTENSION_free(X509_delete_ext(cert.get(), index));
    if (!AddExtension(cert.get(), issuerCert, NID_key_usage, keyUsage) ||
        X509_sign(cert.get(), issuerKey, EVP_sha256()) == 0) {
        return nullptr;
    }
    return cert;
}

bool VerifyIssuedBy(X509* cert, X509* caCert) {
    if (cert == nullptr || caCert == nullptr) return false;
    X509_STORE* store = X509_STORE_new();
    X509_STORE_CTX* ctx = X509_STORE_CTX_new();
    bool ok = store != nullptr && ctx != nullptr && X509_STORE_add_cert(store, caCert) == 1 &&
              X509_STORE_CTX_init(ctx, store, cert, nullptr) == 1 && X509_verify_cert(ctx) == 1;
    X509_STORE_CTX_free(ctx);
    X509_STORE_free(store);
    return ok;
}

std::string CertToBase64(X509* cert) {
    const std::string der = CertToDer(cert);
    if (der.empty()) return std::string();
    std::string out((der.size() + 2) / 3 * 4 + 1, '\0');
    const int len = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&out[0]),
                                    reinterpret_cast<const unsigned char*>(der.data()),
                                    static_cast<int>(der.size()));
    out.resize(len > 0 ? static_cast<size_t>(len) : 0);
    return out;
}

Cert CertFromText(const std::string& text) {
    if (text.find("-----BEGIN") != std::string::npos) return CertFromPem(text);
    const std::string der = DecodeBase64Body(text);
    if (der.empty()) return nullptr;
    const unsigned char* p = reinterpret_cast<const unsigned char*>(der.data());
    return Cert(d2i_X509(nullptr, &p, static_cast<long>(der.size())));
}

}  // namespace kxpki
