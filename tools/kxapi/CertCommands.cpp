// Commands of the certificate services: check, expand, apply, UKey tries.
#include <iostream>
#include <sstream>

#include "CloudCheckCert.h"
#include "Commands.h"
#include "KXPki.h"
#include "ECertExpand.h"
#include "InkwellApi.h"
#include "KXServerApi.h"
#include "KXUtils.h"

namespace kxapi {

namespace {

// A certificate or CSR file as the servers want it: Base64 of the DER on one
// line. PEM loses its armour, DER is encoded, Base64 text is kept.
std::string FileAsBase64(const std::string& data) {
    bool binary = false;
    for (unsigned char c : data)
        binary = binary || (c < 0x20 && c != '\r' && c != '\n' && c != '\t');
    if (binary) return IWK_Base64Encode(data);
    std::string out;
    std::istringstream lines(data);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.find("-----") != std::string::npos) continue;
        for (char c : line) {
            if (c != '\r' && c != ' ' && c != '\t') out += c;
        }
    }
    return out;
}

// Writes sign-cert.pem and enc-cert.pem (from Base64 DER) into dir and names
// them in out; false after reporting that they could not be written.
bool WriteCertFiles(const std::string& dir, const std::string& signB64, const std::string& encB64,
                    Json::Value& out) {
    const std::string signFile = dir + "/sign-cert.pem";
    const std::string encFile = dir + "/enc-cert.pem";
    if (!kxpki::WriteFile(signFile, kxpki::CertPemFromBase64(signB64)) ||
        !kxpki::WriteFile(encFile, kxpki::CertPemFromBase64(encB64))) {
        std::cerr << "kxapi: cannot write the certificates to " << dir << "\n";
        return false;
    }
    out["signCertFile"] = signFile;
    out["encCertFile"] = encFile;
    return true;
}

// Reads a Base64 file argument; a usage error when it cannot be read or is empty.
bool ReadBase64Arg(const Args& args, const std::string& option, const std::string& command,
                   std::string& value, int& status) {
    const std::string path = args.get(option);
    std::string data;
    if (path.empty()) {
        status = UsageError(command, "give --" + option + " FILE");
        return false;
    }
    if (!kxpki::ReadFile(path, data) || (value = FileAsBase64(data)).empty()) {
        status = UsageError(command, "cannot read " + path);
        return false;
    }
    return true;
}

}  // namespace

int CmdCertCheck(const Args& args) {
    std::string cert;
    int status = 0;
    if (!ReadBase64Arg(args, "cert", "cert check", cert, status)) return status;
    const std::string section = args.get("section", "KXCloudCheck");
    CCloudCheckCert client;
    if ((status = OpenServer(client, section, "CCloudCheckCert")) != 0) return status;
    const long code = client.CheckCert(cert);
    if (code != 0) return Fail("CCloudCheckCert::CheckCert (" + section + ")", code);
    Json::Value out;
    out["section"] = section;
    out["path"] = client.strCheckUri;
    out["result"] = "passed";
    PrintJson(out);
    return 0;
}

int CmdCertExpand(const Args& args) {
    const std::string ukeyNum = args.get("ukey-num");
    if (ukeyNum.empty()) return UsageError("cert expand", "give --ukey-num N");
    std::string csr;
    int status = 0;
    if (!ReadBase64Arg(args, "csr", "cert expand", csr, status)) return status;
    const std::string section = args.get("section", "KXCertExpand");
    const std::string outDir = args.get("out-dir", ".");
    PollLimits limits = {500, 60};
    if (!ReadPollLimits(args, "cert expand", limits, status)) return status;
    CECertExpand client;
    if ((status = OpenServer(client, section, "CECertExpand")) != 0) return status;

    bool expired = false;
    long code = client.CheckServiceRequest(ukeyNum, expired);
    if (code != 0) return Fail("CECertExpand::CheckServiceRequest", code);
    if (expired) {
        std::cerr << "kxapi: the service time of UKey " << ukeyNum << " has expired\n";
        return 1;
    }
    long certOptId = 0, logId = 0;
    code = client.SendExpandRequest(ukeyNum, csr, certOptId, logId);
    if (code != 0) return Fail("CECertExpand::SendExpandRequest", code);

    // The request is done when the certificates arrive; the numbers of status
    // are the service's matter and only shown.
    std::string encCert, signCert, sn, authCode;
    int certStatus = -1, polls = 0;
    std::cerr << "kxapi: certificate operation " << certOptId << ", waiting for the certificates";
    const int outcome = Poll(
        limits,
        [&] {
            code =
                client.GetDoubleCertRequest(certOptId, encCert, signCert, sn, authCode, certStatus);
            if (code != 0) return -1;
            std::cerr << " [status " << certStatus << "]" << std::flush;
            return encCert.empty() || signCert.empty() ? 0 : 1;
        },
        polls);
    if (outcome < 0) {
        std::cerr << "\n";
        return Fail("CECertExpand::GetDoubleCertRequest", code);
    }
    if (outcome == 0) {
        std::cerr << "\nkxapi: no certificates after " << limits.timeoutS << " s (" << polls
                  << " polls, last status " << certStatus << ")\n";
        return 1;
    }
    std::cerr << " done\n";

    code = client.UploadFinish(certOptId, logId, encCert, signCert, ukeyNum);
    if (code != 0) return Fail("CECertExpand::UploadFinish", code);

    Json::Value out;
    out["certOptId"] = static_cast<Json::Int64>(certOptId);
    out["logId"] = static_cast<Json::Int64>(logId);
    out["status"] = certStatus;
    out["polls"] = polls;
    out["sn"] = sn;
    out["authCode"] = authCode;
    if (!WriteCertFiles(outDir, signCert, encCert, out)) return 1;
    PrintJson(out);
    return 0;
}

int CmdCertApply(const Args& args) {
    std::string csr;
    int status = 0;
    if (!ReadBase64Arg(args, "csr", "cert apply", csr, status)) return status;
    if (!args.has("info")) return UsageError("cert apply", "give --info JSON");
    const std::string section = args.get("section", "KXInkwell");
    CInkwellApi client;
    if ((status = OpenServer(client, section, "CInkwellApi")) != 0) return status;
    MakeCertData data;
    const long code = client.MakeCert(csr, args.get("info"), data);
    if (code != 0) return Fail("CInkwellApi::MakeCert (" + section + ")", code);
    Json::Value out;
    out["certId"] = data.certId;
    out["ukeyNum"] = data.ukeyNum;
    out["signSn"] = data.signSn;
    out["encSn"] = data.encSn;
    out["authCode"] = data.authCode;
    out["symmAlg"] = data.symmAlg;
    out["symmCipher"] = data.symmCipher;
    out["encryptedKeypair"] = data.encryptedKeypair;
    const std::string outDir = args.get("out-dir");
    if (!outDir.empty()) {
        if (!WriteCertFiles(outDir, data.signCert, data.encCert, out)) return 1;
    } else {
        out["signCert"] = data.signCert;
        out["encCert"] = data.encCert;
    }
    PrintJson(out);
    return 0;
}

int CmdUkeyTry(const Args& args) {
    const std::string sn = args.get("sn");
    if (sn.empty()) return UsageError("ukey try", "give --sn SN");
    if (args.has("success") == args.has("failure")) {
        return UsageError("ukey try", "give one of --success and --failure");
    }
    const std::string section = args.get("section", "KXInkwell");
    CInkwellApi client;
    if (const int status = OpenServer(client, section, "CInkwellApi")) return status;
    int remaining = 0;
    const long code =
        client.UpdateUkeyTryTime(sn, args.has("success"), args.has("locked"), remaining);
    if (code != 0) return Fail("CInkwellApi::UpdateUkeyTryTime (" + section + ")", code);
    Json::Value out;
    out["sn"] = sn;
    out["remainingTime"] = remaining;
    PrintJson(out);
    return 0;
}

}  // namespace kxapi
