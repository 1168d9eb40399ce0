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
int CmdSealSign(const Args& args);
int CmdSealList(const Args& args);
int CmdSealPrintCount(const Args& args);

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
    };
    return commands;
}

}  // namespace kxapi
