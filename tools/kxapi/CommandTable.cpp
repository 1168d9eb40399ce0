// Every command of kxapi. A new subsystem adds its lines here.
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
         "--user U --password P (--hash B64 | --file F) [--seal-id N] [--login-type T] "
         "[--sign-pwd PIN] [--cert-out FILE] [--sig-out FILE]",
         "the road of one hash: Init, Login, GetSealList, SignHash, ReportSignResult, Logout "
         "(a file is hashed with SHA-256)",
         {},
         CmdSealSign},
        {"seal list",
         "--user U --password P [--seal-id N] [--cert-serial SN] [--login-type T]",
         "the seals of a user at the seal server",
         {},
         CmdSealList},
        {"seal print-count",
         "get PRINT_ID | set PRINT_ID REMAIN --user U --password P [--login-type T]",
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
    };
    return commands;
}

}  // namespace kxapi
