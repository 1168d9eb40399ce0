// Every command of kxapi. A new subsystem adds its lines here.
#include <map>
#include <string>

#include "Commands.h"

namespace kxapi {

int CmdCertServices(const Args& args);
int CmdConfigGet(const Args& args);
int CmdConfigSet(const Args& args);
int CmdConfigEncrypt(const Args& args);
int CmdServerConfig(const Args& args);
int CmdLegacyAuth(const Args& args);
int CmdCall(const Args& args);
int CmdCertCheck(const Args& args);
int CmdCertExpand(const Args& args);
int CmdCertApply(const Args& args);
int CmdUkeyTry(const Args& args);
int CmdPlatformWhoami(const Args& args);
int CmdPlatformEncryptTask(const Args& args);
int CmdPlatformSign(const Args& args);
int CmdSealSign(const Args& args);
int CmdSealList(const Args& args);
int CmdSealPrintCount(const Args& args);
int CmdPrintRegister(const Args& args);
int CmdPrintQuery(const Args& args);
int CmdPrintUpdate(const Args& args);
int CmdPrintVerifySms(const Args& args);
int CmdPrintOrg(const Args& args);
int CmdBidLogin(const Args& args);
int CmdBidSignFiles(const Args& args);
int CmdBidDecrypt(const Args& args);
int CmdBidAuth(const Args& args);
int CmdBidSignText(const Args& args);
int CmdBidVerify(const Args& args);
int CmdBidSeals(const Args& args);
int CmdBidLogout(const Args& args);
int CmdRecordSave(const Args& args);
int CmdEventUkey(const Args& args);
int CmdReportSign(const Args& args);
int CmdReportEncrypt(const Args& args);
int CmdReportDecrypt(const Args& args);
int CmdConvert(const Args& args);
int CmdSealsByCert(const Args& args);

const std::vector<Command>& Commands() {
    static const std::vector<Command> commands = {
        {"cert-services",
         "--cert-sn SN --ukey-num NUM",
         "services of a certificate or UKey at the web service (either option may be left out)",
         {},
         CmdCertServices},
        {"config get", "SECTION KEY", "a value of the configuration store", {}, CmdConfigGet},
        {"config set",
         "SECTION KEY VALUE",
         "writes a value into the configuration store",
         {},
         CmdConfigSet},
        {"config encrypt",
         "< secret",
         "the enciphered form of a secret read from standard input, for ProjectSecret",
         {},
         CmdConfigEncrypt},
        {"server-config",
         "SECTION",
         "the server description KX_GetServerConfig reads from SECTION (secret masked)",
         {},
         CmdServerConfig},
        {"legacy-auth",
         "[--section KXInkwell]",
         "the authorization value a legacy server of version 5.3 wants",
         {},
         CmdLegacyAuth},
        {"call",
         "SECTION METHOD PATH [--body JSON]",
         "a request signed with the identity of SECTION, to any path of its server",
         {},
         CmdCall},
        {"cert check",
         "--cert FILE [--section KXCloudCheck]",
         "checks a certificate (PEM, DER or Base64) at the cloud platform, or at the agent "
         "with --section KXCloudCheckAgent",
         {},
         CmdCertCheck},
        {"cert expand",
         "--ukey-num N --csr FILE [--out-dir DIR] [--timeout S] [--interval-ms MS] "
         "[--section KXCertExpand]",
         "expands a UKey's certificate into a double certificate; writes sign-cert.pem and "
         "enc-cert.pem",
         {},
         CmdCertExpand},
        {"cert apply",
         "--csr FILE --info JSON [--out-dir DIR] [--section KXInkwell]",
         "applies for a UKey certificate at the legacy server",
         {},
         CmdCertApply},
        {"ukey try",
         "--sn SN --success|--failure [--locked] [--section KXInkwell]",
         "reports a try on a UKey to the legacy server; shows the tries left",
         {"success", "failure", "locked"},
         CmdUkeyTry},
        {"platform whoami",
         "--code C --redirect-uri U [--org ORG] [--section KXPlatform]",
         "the account an OAuth2 code stands for, with its identity and real-name data",
         {},
         CmdPlatformWhoami},
        {"platform encrypt-task",
         "--account A [--org O] [--type N] [--description D] [--ref-task R] [--key K] "
         "[--space S] [--timeout S] [--interval-ms MS] [--section KXPlatform]",
         "confirms the account's will by QR code, then creates, executes and ends an "
         "encryption task",
         {},
         CmdPlatformEncryptTask},
        {"platform sign",
         "--org O --account A --doc FILE [--doc-id ID] [--timeout S] [--interval-ms MS] "
         "[--section KXPlatform]",
         "signs a document's SHA-256 hash under a new witness flow, approved by QR code",
         {},
         CmdPlatformSign},
        {"seal sign",
         "--user U (--password-file F | --password P) (--hash B64 | --file F) [--seal-id N] "
         "[--login-type T] "
         "[--sign-pwd-file F | --sign-pwd PIN] [--cert-out FILE] [--sig-out FILE]",
         "the road of one hash: Init, Login, GetSealList, SignHash, ReportSignResult, Logout "
         "(a file is hashed with SHA-256)",
         {},
         CmdSealSign},
        {"seal list",
         "--user U (--password-file F | --password P) [--seal-id N] [--cert-serial SN] "
         "[--login-type T]",
         "the seals of a user at the seal server",
         {},
         CmdSealList},
        {"seal print-count",
         "get PRINT_ID | set PRINT_ID REMAIN --user U (--password-file F | --password P) "
         "[--login-type T]",
         "prints left of a document at the seal-management server, or writes the number left",
         {},
         CmdSealPrintCount},
        {"convert",
         "SRC DST.pdf [--url URL] [--section OpenApiURL]",
         "Conv2PDF: the seal server turns a document into a PDF (progress on stderr)",
         {},
         CmdConvert},
        {"seals by-cert",
         "--ypt|--sn|--rbn --cert FILE [--keep-pixels] [--ukey-num N] [--algorithm A] "
         "[--origin TEXT] [--signature B64] [--serial SN] [--ukey-sn SN] [--seal-type T]",
         "a certificate's seals from the integrate service (--ypt, --sn) or the sister seal "
         "service (--rbn)",
         {"ypt", "sn", "rbn", "keep-pixels"},
         CmdSealsByCert},
        {"print register",
         "--file F --account A [--account B ...] [--count N]",
         "registers a file at the print-control service with N prints (default 1) for each "
         "encryption certificate of the accounts",
         {},
         CmdPrintRegister},
        {"print query",
         "PRINT_ID",
         "prints left of a registered file, per print id",
         {},
         CmdPrintQuery},
        {"print update",
         "PRINT_ID --remain N",
         "writes the number of prints left",
         {},
         CmdPrintUpdate},
        {"print verify-sms",
         "--cert-sn SN --code C [--account-uuid U]",
         "has the service check an SMS code for a certificate (through the gateway when "
         "[KXPrintCtrl] isGoGateWay is 1)",
         {},
         CmdPrintVerifySms},
        {"print org", "--cert-sn SN", "the organisation code of a certificate", {}, CmdPrintOrg},
        // BID sign service; task commands take [--no-qr] [--timeout S] [--interval-ms MS].
        {"bid login",
         "[--type 0|1] [--app-id A] [--signed] [--with-enc-cert] [--services] [--cert-out FILE] "
         "[--enc-cert-out FILE] [--no-qr] [--timeout S] [--interval-ms MS] [--section KXPlatform]",
         "logs in by mobile approval: identity, certificates and the token of the other bid "
         "commands",
         {"signed", "with-enc-cert", "services", "no-qr"},
         CmdBidLogin},
        {"bid sign-files",
         "FILE... --token T --account A [--auth-account B] [--seal-id S] [--signed] "
         "[--sig-dir DIR] [--no-qr] [--timeout S] [--interval-ms MS]",
         "has the files' SHA-256 hashes signed by mobile approval; --sig-dir writes each raw "
         "signature to DIR/<name>.sig",
         {"signed", "no-qr"},
         CmdBidSignFiles},
        {"bid decrypt",
         "ENVELOPE... --token T [--app-id A] [--no-qr] [--timeout S] [--interval-ms MS]",
         "opens digital envelopes (Base64) by mobile approval (--app-id: the task is opened "
         "under the application instead of the token); prints the symmetric keys",
         {"no-qr"},
         CmdBidDecrypt},
        {"bid auth",
         "--token T [--subject S] [--seconds N] [--no-qr] [--timeout S] [--interval-ms MS]",
         "an authorisation by mobile approval; prints the authCode",
         {"no-qr"},
         CmdBidAuth},
        {"bid sign-text",
         "--token T --auth-code C (--text TEXT | --base64 B64) [--alg-oid OID]",
         "signs a text (or raw data in Base64) under an authCode",
         {},
         CmdBidSignText},
        {"bid verify",
         "--token T --text TEXT --signature B64",
         "has the server verify a text's signature; exit status 1 when it does not verify",
         {},
         CmdBidVerify},
        {"bid seals",
         "--token T (--account A [--org O] | --auth-code C) [--type N] | --init --account A "
         "[--org O]",
         "the seals of a BID user: by organisation, by authCode, or initialised at the /v1/ "
         "endpoint",
         {"init"},
         CmdBidSeals},
        {"bid logout", "--token T", "ends the token of a BID login", {}, CmdBidLogout},
        {"record save",
         "--sign-data B64 --sign-value B64 [--type N] [--doc PATH] [--cert B64]",
         "hands a sign record (type 1 by default; 3 takes --cert) to the seal plug-in",
         {},
         CmdRecordSave},
        {"event ukey",
         "[--ukey-sn SN] [--cert-sn SN] [--cert-cn CN]",
         "posts a UKey event to [KXCertBase] eventCallBackUrl (an option left out is left "
         "out of the event)",
         {},
         CmdEventUkey},
        {"report sign", "JSON", "a usage report of a signing", {}, CmdReportSign},
        {"report encrypt", "JSON", "a usage report of an encryption", {}, CmdReportEncrypt},
        {"report decrypt", "JSON", "a usage report of a decryption", {}, CmdReportDecrypt},
    };
    return commands;
}

const char* ExampleOf(const std::string& name) {
    static const std::map<std::string, const char*> examples = {
        {"cert-services", "kxapi cert-services --cert-sn 5A1B2C3D --ukey-num KXUKEY0001"},
        {"config get", "kxapi config get KXUtils LogLevel"},
        {"config set", "kxapi config set KXUtils LogLevel 2"},
        {"config encrypt", "kxapi config encrypt < secret.txt"},
        {"server-config", "kxapi server-config KXPlatform"},
        {"legacy-auth", "kxapi legacy-auth --section KXInkwell"},
        {"call", "kxapi call KXSim GET /v1/accounts/demo"},
        {"cert check", "kxapi cert check --cert sign-cert.pem"},
        {"cert expand", "kxapi cert expand --ukey-num KXUKEY0001 --csr ukey.csr --out-dir certs"},
        {"cert apply", "kxapi cert apply --csr ukey.csr --info '{\"ukeyNum\":\"KXUKEY0002\"}'"},
        {"ukey try", "kxapi ukey try --sn KXUKEY0002 --failure"},
        {"platform whoami",
         "kxapi platform whoami --code kxcode-demo --redirect-uri https://app.example/callback"},
        {"platform encrypt-task", "kxapi platform encrypt-task --account acc-0001 --key EPK"},
        {"platform sign",
         "kxapi platform sign --org org-0001 --account acc-0001 --doc contract.txt"},
        {"seal sign",
         "KXAPI_PASSWORD=demo-password KXAPI_SIGN_PWD=demo-pin kxapi seal sign --user demo "
         "--file contract.txt"},
        {"seal list", "kxapi seal list --user demo --password-file ~/.kx-password"},
        {"seal print-count",
         "kxapi seal print-count get print-0001 --user demo --password-file ~/.kx-password"},
        {"convert", "kxapi convert report.txt report.pdf"},
        {"seals by-cert", "kxapi seals by-cert --sn --cert sign-cert.pem"},
        {"print register",
         "kxapi print register --file contract.txt --account demo --account demo2 --count 3"},
        {"print query", "kxapi print query 4200000001"},
        {"print update", "kxapi print update 4200000001 --remain 2"},
        {"print verify-sms", "kxapi print verify-sms --cert-sn 01C20FC7BE089F --code 123456"},
        {"print org", "kxapi print org --cert-sn 01C20FC7BE089F"},
        {"bid login", "kxapi bid login --with-enc-cert --cert-out cert.pem"},
        {"bid sign-files",
         "kxapi bid sign-files a.pdf b.pdf --token T --account acc-0001 --sig-dir sigs"},
        {"bid decrypt", "kxapi bid decrypt \"$(base64 -w0 envelope.bin)\" --token T"},
        {"bid auth", "kxapi bid auth --token T --subject 'sign the order'"},
        {"bid sign-text", "kxapi bid sign-text --token T --auth-code AC --text 'order 42'"},
        {"bid verify", "kxapi bid verify --token T --text 'order 42' --signature SIG"},
        {"bid seals", "kxapi bid seals --token T --account acc-0001 --org org-0001"},
        {"bid logout", "kxapi bid logout --token T"},
        {"record save",
         "kxapi record save --sign-data ZGF0YQ== --sign-value c2ln --doc contract.pdf"},
        {"event ukey",
         "kxapi event ukey --ukey-sn KXUKEY0001 --cert-sn 5A1B2C3D --cert-cn 'Demo User'"},
        {"report sign",
         "kxapi report sign '{\"docName\":\"contract.txt\",\"sealId\":\"seal-0001\"}'"},
        {"report encrypt", "kxapi report encrypt '{\"docName\":\"contract.txt\"}'"},
        {"report decrypt", "kxapi report decrypt '{\"docName\":\"contract.txt\"}'"},
    };
    const auto found = examples.find(name);
    return found == examples.end() ? nullptr : found->second;
}

}  // namespace kxapi
