// Commands of the platform client: who a code stands for, an encryption task
// under a confirmed will, and one signing under a witness flow.
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <functional>
#include <iostream>

#include "Commands.h"
#include "KXAscii.h"
#include "KXPki.h"
#include "CorvaneApi.h"
#include "KXServerApi.h"
#include "KXUtils.h"

namespace kxapi {

namespace {

const long kSignTypePkcs1 = 0x10000;

// Where the user confirms: the QR content, drawn and as text.
void ShowQrContent(const std::string& what, const std::string& content) {
    ShowQr(what, content, true);
}

// Polls until step says confirmed (1) or failed (-1), with a dot per poll on
// stderr; 0 when the time limit passed first.
int WaitForConfirmation(const PollLimits& limits, const std::function<int()>& step) {
    std::cerr << "kxapi: waiting for the confirmation (" << limits.timeoutS << " s at most) ";
    int polls = 0;
    const int outcome = Poll(
        limits,
        [&] {
            const int answer = step();
            if (ShowsProgress()) std::cerr << "." << std::flush;
            return answer;
        },
        polls);
    std::cerr << (outcome > 0   ? " confirmed\n"
                  : outcome < 0 ? " failed\n"
                                : " time limit reached\n");
    return outcome;
}

// Checks a PKCS #1 v1.5 signature over a SHA-256 digest with the
// certificate's key; the certificate's subject goes to subject.
bool VerifySignature(const std::string& certDer, const std::string& digest,
                     const std::string& signature, std::string& subject) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(certDer.data());
    X509* cert = d2i_X509(nullptr, &p, static_cast<long>(certDer.size()));
    if (cert == nullptr) return false;
    char name[512] = {0};
    X509_NAME_oneline(X509_get_subject_name(cert), name, sizeof(name) - 1);
    subject = name;
    EVP_PKEY* key = X509_get_pubkey(cert);
    EVP_PKEY_CTX* ctx = key != nullptr ? EVP_PKEY_CTX_new(key, nullptr) : nullptr;
    const bool ok =
        ctx != nullptr && EVP_PKEY_verify_init(ctx) > 0 &&
        EVP_PKEY_CTX_set_rsa_padding(ctx, RSA_PKCS1_PADDING) > 0 &&
        EVP_PKEY_CTX_set_signature_md(ctx, EVP_sha256()) > 0 &&
        EVP_PKEY_verify(ctx, reinterpret_cast<const unsigned char*>(signature.data()),
                        signature.size(), reinterpret_cast<const unsigned char*>(digest.data()),
                        digest.size()) == 1;
    EVP_PKEY_CTX_free(ctx);
    EVP_PKEY_free(key);
    X509_free(cert);
    return ok;
}

}  // namespace

int CmdPlatformWhoami(const Args& args) {
    const std::string code = args.get("code");
    const std::string redirect = args.get("redirect-uri");
    if (code.empty() || redirect.empty()) {
        return UsageError("platform whoami", "give --code and --redirect-uri");
    }
    CCorvaneApi api;
    if (const int status = OpenClient(args, api)) return status;
    std::string accountId;
    long rc = api.GetRealAccoutIdByCode(redirect, code, accountId);
    if (rc != 0) return Fail("GetRealAccoutIdByCode", rc);
    std::string identity, realname, mobile;
    if ((rc = api.GetIdentityInfo(accountId, identity)) != 0) return Fail("GetIdentityInfo", rc);
    if ((rc = api.GetAllInfo(accountId, realname, mobile)) != 0) return Fail("GetAllInfo", rc);
    Json::Value out;
    out["accountId"] = accountId;
    out["identityCode"] = identity;
    out["realnameCode"] = realname;
    out["mobile"] = mobile;
    if (args.has("org")) {
        std::string ouid;
        if ((rc = api.GetFinalRealnameOrgInfo(args.get("org"), ouid)) != 0) {
            return Fail("GetFinalRealnameOrgInfo", rc);
        }
        out["orgOuid"] = ouid;
    }
    PrintJson(out);
    return 0;
}

int CmdPlatformEncryptTask(const Args& args) {
    const char* command = "platform encrypt-task";
    const std::string account = args.get("account");
    if (account.empty()) return UsageError(command, "give --account");
    PollLimits limits = {1000, 120};
    int status = 0;
    int type = 0;
    if (!ReadPollLimits(args, command, limits, status)) return status;
    if (!kxascii::ParseInt(args.get("type", "1"), type)) {
        return UsageError(command, "--type is a number");
    }
    const std::string description = args.get("description", "kxapi encryption task");
    CCorvaneApi api;
    if ((status = OpenClient(args, api)) != 0) return status;

    // The user's will first: its id is the will code of the task.
    std::string bizId, qr, willAuthId;
    const std::string bizType = type == 2 ? "DECRYPT" : "ENCRYPT";
    long rc =
        api.CreateMobShieldAuth(account, bizType, bizType == "ENCRYPT" ? "encrypt" : "decrypt",
                                description, bizId, qr, willAuthId, type != 2, args.get("space"));
    if (rc != 0) return Fail("CreateMobShieldAuth", rc);
    ShowQrContent("confirm your will", qr);
    std::string willStatus;
    const int confirmed = WaitForConfirmation(limits, [&] {
        bool passed = false;
        rc = api.VerifyMobShieldAuth(bizId, bizType, willAuthId, willStatus, passed);
        if (rc != 0 || willStatus == "REJECTED") return -1;
        return passed ? 1 : 0;
    });
    if (confirmed == 0) {
        std::cerr << "kxapi: the will was not confirmed in time\n";
        return 1;
    }
    if (rc != 0) return Fail("VerifyMobShieldAuth", rc);
    if (confirmed < 0) {
        std::cerr << "kxapi: the will was declined (" << willStatus << ")\n";
        return 1;
    }

    std::string taskId, publicKey, symmetricKey;
    rc = api.CreateEncOrDecTask(account, args.get("org"), description, args.get("ref-task"), type,
                                taskId);
    if (rc != 0) return Fail("CreateEncOrDecTask", rc);
    rc = api.ExecuteEncOrDecTask(taskId, args.get("key"), willAuthId, publicKey, symmetricKey);
    const long executed = rc;
    // The task is closed whatever the execution gave.
    rc = api.EndEncOrDecTask(taskId, executed == 0 ? 0 : 1,
                             executed == 0 ? "done" : "execution failed");
    if (executed != 0) return Fail("ExecuteEncOrDecTask", executed);
    if (rc != 0) return Fail("EndEncOrDecTask", rc);
    Json::Value out;
    out["willAuthId"] = willAuthId;
    out["taskId"] = taskId;
    out["publicKey"] = publicKey;
    out["symmetricKey"] = symmetricKey;
    PrintJson(out);
    return 0;
}

int CmdPlatformSign(const Args& args) {
    const char* command = "platform sign";
    const std::string org = args.get("org");
    const std::string account = args.get("account");
    const std::string path = args.get("doc");
    if (org.empty() || account.empty() || path.empty()) {
        return UsageError(command, "give --org, --account and --doc");
    }
    PollLimits limits = {1000, 120};
    int status = 0;
    if (!ReadPollLimits(args, command, limits, status)) return status;
    std::string content;
    if (!kxpki::ReadFile(path, content)) {
        std::cerr << "kxapi: cannot read " << path << "\n";
        return 1;
    }
    const std::string digest = kxpki::Sha256(content);
    const std::string hash = IWK_Base64Encode(digest);
    const std::string docId = args.get("doc-id", IWK_GetBaseName(path.c_str()));
    const std::string algorithm = "SHA256";
    CCorvaneApi api;
    if ((status = OpenClient(args, api)) != 0) return status;

    std::string flow, ticket, taskId, qr;
    long rc = api.CreateWitnessFlowTask(org, flow);
    if (rc != 0) return Fail("CreateWitnessFlowTask", rc);
    rc = api.ExecuteSnapShotTask(flow, docId, hash, algorithm, "START", "document entered");
    if (rc != 0) return Fail("ExecuteSnapShotTask START", rc);
    rc = api.CheckSignAccessTask(flow, account, docId, hash, ticket);
    if (rc != 0) return Fail("CheckSignAccessTask", rc);
    rc = api.SignTask(flow, account, docId, hash, ticket, kSignTypePkcs1, taskId, qr);
    if (rc != 0) return Fail("SignTask", rc);
    ShowQrContent("approve the signature of " + docId, qr);

    std::string signature, signlogId, cert, certAlgorithm;
    if (WaitForConfirmation(limits, [&] {
            rc = api.QuerySignResultTask(flow, ticket, taskId, signature, signlogId, cert,
                                         certAlgorithm);
            if (rc != 0) return -1;
            return signature.empty() ? 0 : 1;
        }) == 0) {
        std::cerr << "kxapi: the signature was not approved in time\n";
        return 1;
    }
    if (rc != 0) return Fail("QuerySignResultTask", rc);

    rc = api.SignConfirmTask(flow, docId, hash, algorithm, ticket, signlogId);
    if (rc != 0) return Fail("SignConfirmTask", rc);
    rc = api.ExecuteSnapShotTask(flow, docId, hash, algorithm, "FINISH", "document signed");
    if (rc != 0) return Fail("ExecuteSnapShotTask FINISH", rc);

    std::string subject;
    const bool verified =
        VerifySignature(IWK_Base64Decode(cert), digest, IWK_Base64Decode(signature), subject);
    Json::Value out;
    out["witnessFlowId"] = flow;
    out["thirdDocId"] = docId;
    out["docHash"] = hash;
    out["hashAlgorithm"] = algorithm;
    out["signTaskId"] = taskId;
    out["signlogId"] = signlogId;
    out["signResult"] = signature;
    out["certBase64"] = cert;
    out["certAlgorithm"] = certAlgorithm;
    out["certSubject"] = subject;
    out["signatureVerified"] = verified;
    PrintJson(out);
    if (!verified) {
        std::cerr << "kxapi: the signature does not verify with the returned certificate\n";
        return 1;
    }
    return 0;
}

}  // namespace kxapi
