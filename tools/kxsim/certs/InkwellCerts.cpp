// The legacy server's certificate application and its UKey try counting. The
// signing certificate certifies the CSR's key; for an RSA applicant the CA
// makes the encryption key pair itself and hands it out enciphered, as a
// double-certificate CA does.
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <map>
#include <memory>

#include "KXUtils.h"
#include "SimServer.h"

namespace kxsim {

namespace {

const char kApplyPath[] = "/openapi/rest/cert/ukeyCertApply";
// Any context path: sites deploy the legacy web application under their own.
const char kTryTimePattern[] = R"(/([^/]+)/rest/authentication/updateUkeyTryTime)";
const char kResetPath[] = "/kxsim/ukey/reset";
// The value the legacy authorization URL of this simulator hands out.
const char kAuthorization[] = "kxsim-legacy-authorization";

const int kMaxTries = 5;

struct UkeyTries {
    int remaining = kMaxTries;
    bool locked = false;
};

struct InkwellState {
    int nextCertId = 7001;
    std::map<std::string, UkeyTries> ukeys;
};

// One simulator per process.
InkwellState& State() {
    static InkwellState state;
    return state;
}

const char kSymmAlg[] = "AES-256-CBC";

struct CipherCtxFree {
    void operator()(EVP_CIPHER_CTX* ctx) const { EVP_CIPHER_CTX_free(ctx); }
};
struct PkeyCtxFree {
    void operator()(EVP_PKEY_CTX* ctx) const { EVP_PKEY_CTX_free(ctx); }
};

// A fresh RSA key pair for encryption, delivered as symmCipher (a random
// AES-256 key enciphered with RSA-OAEP under the applicant's key) and
// encryptedKeypair (IV followed by the PKCS#8 DER of the pair under that AES
// key in CBC mode), both Base64. False for an applicant key that is not RSA.
bool DeliverKeyPair(EVP_PKEY* applicant, kxpki::Key& pair, std::string& symmCipher,
                    std::string& encryptedKeypair) {
    if (applicant == nullptr || EVP_PKEY_get_base_id(applicant) != EVP_PKEY_RSA) return false;
    pair = kxpki::MakeRsaKey(2048);
    PKCS8_PRIV_KEY_INFO* info = pair ? EVP_PKEY2PKCS8(pair.get()) : nullptr;
    unsigned char* der = nullptr;
    const int derLen = info != nullptr ? i2d_PKCS8_PRIV_KEY_INFO(info, &der) : -1;
    PKCS8_PRIV_KEY_INFO_free(info);
    if (derLen <= 0) return false;
    const std::string plain(reinterpret_cast<char*>(der), static_cast<size_t>(derLen));
    OPENSSL_clear_free(der, static_cast<size_t>(derLen));

    unsigned char key[32], iv[16];
    if (RAND_bytes(key, sizeof key) != 1 || RAND_bytes(iv, sizeof iv) != 1) return false;
    std::unique_ptr<EVP_CIPHER_CTX, CipherCtxFree> cipher(EVP_CIPHER_CTX_new());
    std::string sealed(plain.size() + 16, '\0');
    int len = 0, tail = 0;
    if (!cipher || EVP_EncryptInit_ex(cipher.get(), EVP_aes_256_cbc(), nullptr, key, iv) != 1 ||
        EVP_EncryptUpdate(cipher.get(), reinterpret_cast<unsigned char*>(&sealed[0]), &len,
                          reinterpret_cast<const unsigned char*>(plain.data()),
                          static_cast<int>(plain.size())) != 1 ||
        EVP_EncryptFinal_ex(cipher.get(), reinterpret_cast<unsigned char*>(&sealed[len]), &tail) !=
            1) {
        return false;
    }
    sealed.resize(static_cast<size_t>(len + tail));

    std::unique_ptr<EVP_PKEY_CTX, PkeyCtxFree> rsa(EVP_PKEY_CTX_new(applicant, nullptr));
    size_t outLen = 0;
    if (!rsa || EVP_PKEY_encrypt_init(rsa.get()) != 1 ||
        EVP_PKEY_CTX_set_rsa_padding(rsa.get(), RSA_PKCS1_OAEP_PADDING) != 1 ||
        EVP_PKEY_encrypt(rsa.get(), nullptr, &outLen, key, sizeof key) != 1) {
        return false;
    }
    std::string wrapped(outLen, '\0');
    if (EVP_PKEY_encrypt(rsa.get(), reinterpret_cast<unsigned char*>(&wrapped[0]), &outLen, key,
                         sizeof key) != 1) {
        return false;
    }
    wrapped.resize(outLen);
    OPENSSL_cleanse(key, sizeof key);
    symmCipher = IWK_Base64Encode(wrapped);
    encryptedKeypair =
        IWK_Base64Encode(std::string(reinterpret_cast<char*>(iv), sizeof iv) + sealed);
    return true;
}

Json::Value Issue(Sim& sim, kxpki::Csr& csr, const std::string& ukeyNum, int certId,
                  std::string& error) {
    kxpki::CertRequest request;
    request.commonName = ukeyNum;
    request.organisation = "kxsim";
    request.days = 365;
    const char* encUsage = "critical,keyEncipherment,dataEncipherment,keyAgreement";
    kxpki::Cert sign =
        kxpki::IssueCertForCsr(request, csr.get(), "critical,digitalSignature,nonRepudiation",
                               sim.authority().caCert(), sim.authority().caKey());
    Json::Value extension;
    extension["authCode"] = IWK_CharToHex(IWK_GenRand(4));
    kxpki::Key pair;
    std::string symmCipher, encryptedKeypair;
    kxpki::Cert enc;
    if (DeliverKeyPair(X509_REQ_get0_pubkey(csr.get()), pair, symmCipher, encryptedKeypair)) {
        request.commonName = kxpki::CsrCommonName(csr.get());
        if (request.commonName.empty()) request.commonName = ukeyNum;
        enc = kxpki::IssueCertWithUsage(request, pair.get(), encUsage, sim.authority().caCert(),
                                        sim.authority().caKey());
        extension["symmAlg"] = kSymmAlg;
        extension["symmCipher"] = symmCipher;
        extension["encryptedKeypair"] = encryptedKeypair;
    } else {
        // No key transport for this key type: the encryption certificate
        // certifies the CSR's own key.
        enc = kxpki::IssueCertForCsr(request, csr.get(), encUsage, sim.authority().caCert(),
                                     sim.authority().caKey());
    }
    if (!sign || !enc) {
        error = "cannot issue the certificates";
        return Json::Value();
    }
    Json::Value data;
    // The server sends its identifier as decimal text, and the extension as JSON text.
    data["certId_openca"] = std::to_string(certId);
    data["uKeyNum"] = ukeyNum;
    data["signCert"] = kxpki::CertToBase64(sign.get());
    data["signSn"] = SerialHex(sign.get());
    data["encCert"] = kxpki::CertToBase64(enc.get());
    data["encSn"] = SerialHex(enc.get());
    data["extention"] = kxjson::Write(extension);
    return data;
}

}  // namespace

void InstallInkwellCerts(Sim& sim) {
    sim.Post(kApplyPath, [&sim](const httplib::Request& req, httplib::Response& res) {
        if (!sim.CheckInkwellHead(req, res, nullptr)) return;
        Json::Value body;
        if (!kxjson::Parse(req.body, body) || !body.isObject())
            return ReplyErrCode(res, 40000, "request body is no JSON object");
        kxpki::Csr csr = kxpki::CsrFromPem(kxjson::String(body, "csr"));
        if (!csr) return ReplyErrCode(res, 40001, "csr is no valid certificate request");
        std::string ukeyNum = kxjson::String(body, "ukeyNum");
        int certId = 0;
        {
            std::lock_guard<std::mutex> lock(sim.mutex());
            certId = State().nextCertId++;
        }
        if (ukeyNum.empty()) ukeyNum = "KXUKEY" + std::to_string(certId);
        std::string error;
        Json::Value data = Issue(sim, csr, ukeyNum, certId, error);
        if (data.isNull()) return ReplyErrCode(res, 50001, error);
        ReplyErrCode(res, 0, "success", data);
    });
    // A failed try counts down; at zero, or when the client reports the key
    // locked, the key stays locked until reset. A success resets the count of
    // a key that is not locked.
    sim.Post(kTryTimePattern, [&sim](const httplib::Request& req, httplib::Response& res) {
        std::string authorization;
        if (!sim.CheckInkwellHead(req, res, &authorization)) return;
        if (sim.options().checkHeads && authorization != kAuthorization)
            return ReplyErrCode(res, 401, "authorization value missing or wrong");
        Json::Value body;
        if (!kxjson::Parse(req.body, body) || !body.isObject())
            return ReplyErrCode(res, 40000, "request body is no JSON object");
        const std::string sn = kxjson::String(body, "sn");
        bool success = false, locked = false;
        if (sn.empty() || !kxjson::Bool(kxjson::Member(body, "isSuccess"), success) ||
            !kxjson::Bool(kxjson::Member(body, "isLocked"), locked)) {
            return ReplyErrCode(res, 40002, "sn, isSuccess and isLocked are required");
        }
        std::lock_guard<std::mutex> lock(sim.mutex());
        UkeyTries& tries = State().ukeys[sn];
        if (locked) {
            tries.locked = true;
            tries.remaining = 0;
        } else if (!tries.locked && success) {
            tries.remaining = kMaxTries;
        } else if (!tries.locked) {
            if (--tries.remaining <= 0) {
                tries.remaining = 0;
                tries.locked = true;
            }
        }
        Json::Value data;
        data["remainingTime"] = tries.remaining;
        data["locked"] = tries.locked;
        ReplyErrCode(res, 0, "success", data);
    });
    // {"sn":"..."}: the key is unlocked with its full count of tries.
    sim.Post(kResetPath, [&sim](const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body)) return;
        const std::string sn = kxjson::String(body, "sn");
        if (sn.empty()) return ReplyCode(res, 400, "give sn");
        std::lock_guard<std::mutex> lock(sim.mutex());
        State().ukeys[sn] = UkeyTries();
        Json::Value data;
        data["remainingTime"] = kMaxTries;
        ReplyCode(res, 0, "reset", data);
    });
}

}  // namespace kxsim
