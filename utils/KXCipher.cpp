// Enciphered configuration values: "KXENC1:" + Base64(IV || ciphertext || tag),
// AES-256-GCM under a per-user key file.
#include "KXUtils.h"
#include "os/KXOs.h"

#include <cstdint>
#include <cstring>
#include <string>

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

namespace {

const char kPrefix[] = "KXENC1:";
const size_t kPrefixLen = sizeof kPrefix - 1;
const char kAad[] = "KXServerApi-config-v1";
const size_t kKeyLen = 32;
const size_t kIvLen = 12;
const size_t kTagLen = 16;

// Key bytes that are wiped however the scope is left.
struct KeyBuffer {
    unsigned char bytes[kKeyLen];
    KeyBuffer() { std::memset(bytes, 0, sizeof bytes); }
    ~KeyBuffer() { OPENSSL_cleanse(bytes, sizeof bytes); }
    KeyBuffer(const KeyBuffer&) = delete;
    KeyBuffer& operator=(const KeyBuffer&) = delete;
};

struct CipherCtx {
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    ~CipherCtx() { EVP_CIPHER_CTX_free(ctx); }
    CipherCtx() = default;
    CipherCtx(const CipherCtx&) = delete;
    CipherCtx& operator=(const CipherCtx&) = delete;
};

// Next to the default store, whatever KX_CONFIG_FILE says: the key belongs
// to the user, not to one store.
std::string KeyFilePath() {
    const std::string explicitPath = kxos::GetEnv("KX_CONFIG_KEY_FILE");
    if (!explicitPath.empty()) return explicitPath;
    return kxos::UserFile(kxos::UserDir::Config, "config.key");
}

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

enum class KeyRead { Ok, Absent, Bad };

// The file holds 64 hex characters and at most one line end.
KeyRead ReadKey(const std::string& path, KeyBuffer& key) {
    kxos::File file = kxos::File::OpenRead(path);
    if (!file.ok()) return file.absent() ? KeyRead::Absent : KeyRead::Bad;
    char text[80];
    const long long len = file.Read(text, sizeof text);
    file.Close();
    KeyRead result = KeyRead::Bad;
    size_t hexLen = len > 0 ? static_cast<size_t>(len) : 0;
    if (hexLen > 0 && text[hexLen - 1] == '\n') --hexLen;
    if (hexLen > 0 && text[hexLen - 1] == '\r') --hexLen;
    if (hexLen == kKeyLen * 2) {
        result = KeyRead::Ok;
        for (size_t i = 0; i < kKeyLen; ++i) {
            const int hi = HexValue(text[2 * i]);
            const int lo = HexValue(text[2 * i + 1]);
            if (hi < 0 || lo < 0) {
                result = KeyRead::Bad;
                break;
            }
            key.bytes[i] = static_cast<unsigned char>(hi * 16 + lo);
        }
    }
    OPENSSL_cleanse(text, sizeof text);
    return result;
}

// Creates the key file when none exists. The key is written to a private
// temporary file first and then linked into place, which fails when another
// process got there first; a reader so never sees a half-written key.
KeyRead CreateKey(const std::string& path, KeyBuffer& key) {
    if (!kxos::MakeParentDirs(path)) return KeyRead::Bad;
    if (RAND_bytes(key.bytes, static_cast<int>(kKeyLen)) != 1) return KeyRead::Bad;
    static const char hex[] = "0123456789abcdef";
    char text[kKeyLen * 2 + 1];
    for (size_t i = 0; i < kKeyLen; ++i) {
        text[2 * i] = hex[key.bytes[i] >> 4];
        text[2 * i + 1] = hex[key.bytes[i] & 0x0F];
    }
    text[kKeyLen * 2] = '\n';
    const kxos::CreateResult created = kxos::CreateFileOnce(path, text, sizeof text, 0600);
    OPENSSL_cleanse(text, sizeof text);
    if (created == kxos::CreateResult::Created) return KeyRead::Ok;
    if (created == kxos::CreateResult::Exists) return ReadKey(path, key);
    return KeyRead::Bad;
}

bool Encrypt(const KeyBuffer& key, const std::string& clear, std::string& out) {
    unsigned char iv[kIvLen];
    if (RAND_bytes(iv, sizeof iv) != 1) return false;
    CipherCtx c;
    if (!c.ctx) return false;
    std::string buf(kIvLen + clear.size() + kTagLen, '\0');
    unsigned char* p = reinterpret_cast<unsigned char*>(&buf[0]);
    std::memcpy(p, iv, kIvLen);
    int len = 0;
    int total = 0;
    if (EVP_EncryptInit_ex(c.ctx, EVP_aes_256_gcm(), nullptr, nullptr, nullptr) != 1 ||
        EVP_CIPHER_CTX_ctrl(c.ctx, EVP_CTRL_GCM_SET_IVLEN, kIvLen, nullptr) != 1 ||
        EVP_EncryptInit_ex(c.ctx, nullptr, nullptr, key.bytes, iv) != 1 ||
        EVP_EncryptUpdate(c.ctx, nullptr, &len, reinterpret_cast<const unsigned char*>(kAad),
                          static_cast<int>(sizeof kAad - 1)) != 1) {
        return false;
    }
    if (!clear.empty()) {
        if (EVP_EncryptUpdate(c.ctx, p + kIvLen, &len,
                              reinterpret_cast<const unsigned char*>(clear.data()),
                              static_cast<int>(clear.size())) != 1) {
            return false;
        }
        total = len;
    }
    if (EVP_EncryptFinal_ex(c.ctx, p + kIvLen + total, &len) != 1) return false;
    total += len;
    if (static_cast<size_t>(total) != clear.size()) return false;
    if (EVP_CIPHER_CTX_ctrl(c.ctx, EVP_CTRL_GCM_GET_TAG, kTagLen, p + kIvLen + total) != 1) {
        return false;
    }
    out = kPrefix + IWK_Base64Encode(buf);
    return true;
}

bool Decrypt(const KeyBuffer& key, const std::string& raw, std::string& clear) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(raw.data());
    const size_t ctLen = raw.size() - kIvLen - kTagLen;
    CipherCtx c;
    if (!c.ctx) return false;
    std::string out(ctLen, '\0');
    unsigned char* o = reinterpret_cast<unsigned char*>(&out[0]);
    int len = 0;
    int total = 0;
    unsigned char tag[kTagLen];
    std::memcpy(tag, p + kIvLen + ctLen, kTagLen);
    if (EVP_DecryptInit_ex(c.ctx, EVP_aes_256_gcm(), nullptr, nullptr, nullptr) != 1 ||
        EVP_CIPHER_CTX_ctrl(c.ctx, EVP_CTRL_GCM_SET_IVLEN, kIvLen, nullptr) != 1 ||
        EVP_DecryptInit_ex(c.ctx, nullptr, nullptr, key.bytes, p) != 1 ||
        EVP_DecryptUpdate(c.ctx, nullptr, &len, reinterpret_cast<const unsigned char*>(kAad),
                          static_cast<int>(sizeof kAad - 1)) != 1) {
        return false;
    }
    if (ctLen > 0) {
        if (EVP_DecryptUpdate(c.ctx, o, &len, p + kIvLen, static_cast<int>(ctLen)) != 1) {
            OPENSSL_cleanse(o, ctLen);
            return false;
        }
        total = len;
    }
    if (EVP_CIPHER_CTX_ctrl(c.ctx, EVP_CTRL_GCM_SET_TAG, kTagLen, tag) != 1 ||
        EVP_DecryptFinal_ex(c.ctx, o + total, &len) != 1) {
        // Wrong key or altered text: nothing of the unauthenticated output leaves.
        if (ctLen > 0) OPENSSL_cleanse(o, ctLen);
        return false;
    }
    clear.swap(out);
    return true;
}

}  // namespace

std::string IWK_EncryptConfigInfo(const std::string& clear) {
    try {
        if (clear.size() > static_cast<size_t>(INT32_MAX) - kIvLen - kTagLen) return std::string();
        const std::string path = KeyFilePath();
        if (path.empty()) return std::string();
        KeyBuffer key;
        KeyRead state = ReadKey(path, key);
        if (state == KeyRead::Absent) state = CreateKey(path, key);
        if (state != KeyRead::Ok) return std::string();
        std::string out;
        if (!Encrypt(key, clear, out)) return std::string();
        return out;
    } catch (...) {
        return std::string();
    }
}

std::string IWK_DecryptEncryptedConfigInfo(const std::string& stored) {
    try {
        if (stored.compare(0, kPrefixLen, kPrefix) != 0) return std::string();
        const std::string raw = IWK_Base64Decode(stored.substr(kPrefixLen));
        if (raw.size() < kIvLen + kTagLen) return std::string();
        if (raw.size() - kIvLen - kTagLen > static_cast<size_t>(INT32_MAX)) return std::string();
        const std::string path = KeyFilePath();
        if (path.empty()) return std::string();
        KeyBuffer key;
        if (ReadKey(path, key) != KeyRead::Ok) return std::string();
        std::string clear;
        if (!Decrypt(key, raw, clear)) return std::string();
        return clear;
    } catch (...) {
        return std::string();
    }
}
