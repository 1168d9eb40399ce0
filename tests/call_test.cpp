// The call object under every kind of operation, on the fake transport: what
// a transport failure, an HTTP failure status and a URL byte that cannot be
// sent leave as code and last error, operation by operation.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "CloudCheckCert.h"
#include "CorvaneApi.h"
#include "ECertExpand.h"
#include "FakeTransport.h"
#include "InkwellApi.h"
#include "KXSealOpenApi.h"
#include "KXServerApi.h"
#include "KXUtils.h"
#include "LastErrorProbe.h"
#include "TempEnv.h"

using kxtest::FakeTransport;
using kxtest::LastError;
using kxtest::MarkLastError;

namespace {

enum class Rule { Text, Code, Unchanged };

struct Operation {
    const char* name;
    Rule onTransport;
    // Runs the operation; with bad, a '#' stands in its URL.
    std::function<long(bool bad)> run;
};

}  // namespace

TEST(Call, FailuresAndTheLastErrorOperationByOperation) {
    TempEnv env;
    FakeTransport fake;
    const _init_Info_s info = kxtest::FakeRecord();
    CCloudCheckCert check;
    ASSERT_EQ(0, check.Init(info));
    CInkwellApi legacy;
    ASSERT_EQ(0, legacy.Init(info));
    CECertExpand expand;
    expand.m_stInitInfo = info;
    CCorvaneApi platform;
    ASSERT_EQ(0, platform.Init(info));
    CKXSealOpenApi seal;
    seal.m_stInitInfo = info;
    seal.strHost = "h.example";
    seal.strPort = "443";
    std::string text;
    bool flag = false;
    int number = 0;
    MakeCertData made;

    const Operation operations[] = {
        {"KXSER_CertServiceQuery", Rule::Unchanged,
         [&](bool bad) { return KXSER_CertServiceQuery(bad ? "AB#12" : "AB", "UK1", text); }},
        {"KX_InkwellCompatible", Rule::Unchanged,
         [&](bool bad) {
             _init_Info_s probe = info;
             probe.serverVer = "4";
             probe.authorizationType = 2;
             probe.authorization = bad ? "https://a.example/auth#x" : "https://a.example/auth";
             return KX_InkwellCompatible(probe, text, "KXInkwell");
         }},
        {"CKXSealOpenApi::Login", Rule::Unchanged,
         [&](bool bad) {
             seal.strLoginUrl = bad ? "/login#" : "/login";
             return seal.Login("u", "p", 2);
         }},
        {"CCloudCheckCert::CheckCert", Rule::Text,
         [&](bool bad) {
             env.set("KXServerApi", "CheckCert", bad ? "/check#" : "/check");
             return check.CheckCert("C");
         }},
        {"CInkwellApi::MakeCert", Rule::Text,
         [&](bool bad) {
             legacy.strMakeCertUri = bad ? "/apply#" : "/apply";
             return legacy.MakeCert("csr", "{}", made);
         }},
        {"CInkwellApi::UpdateUkeyTryTime", Rule::Code,
         [&](bool bad) {
             legacy.strUpdateUkeyTryTimeUri = bad ? "/try#" : "/try";
             return legacy.UpdateUkeyTryTime("SN", true, false, number);
         }},
        {"CECertExpand::CheckServiceRequest", Rule::Text,
         [&](bool bad) { return expand.CheckServiceRequest(bad ? "id#1" : "id", flag); }},
        {"CCorvaneApi::VerifyMobShieldAuth", Rule::Text,
         [&](bool bad) {
             platform.strVerifyMobShieldAuthUrl = bad ? "https://%s/v1/will#" : "https://%s/v1/w";
             return platform.VerifyMobShieldAuth("b", "t", "w", text, flag);
         }},
    };

    for (const Operation& op : operations) {
        // No reply: the transport's code, and its text, or the code's own
        // text, or nothing in the last error.
        MarkLastError();
        fake.fail(FakeTransport::Fault::Timeout);
        EXPECT_EQ(10105, op.run(false)) << op.name;
        const std::string timeout[] = {"10105 fake: timed out", "10105 " + IWK_GetErrorMsg(10105),
                                       "-1 marker"};
        EXPECT_EQ(timeout[static_cast<int>(op.onTransport)], LastError()) << op.name;

        // A failure status is the code; its reply is the text.
        MarkLastError();
        fake.reply(503, "busy");
        EXPECT_EQ(503, op.run(false)) << op.name;
        const std::string busy[] = {"503 busy", "503 " + IWK_GetErrorMsg(503), "-1 marker"};
        EXPECT_EQ(busy[static_cast<int>(op.onTransport)], LastError()) << op.name;

        // A byte that cannot go as given: nothing sent, and every operation
        // names it in the last error.
        MarkLastError();
        const size_t sent = fake.requestCount();
        EXPECT_EQ(10111, op.run(true)) << op.name;
        EXPECT_EQ(sent, fake.requestCount()) << op.name;
        EXPECT_NE(std::string::npos, LastError().find("10111 URL holds '#' (0x23) at byte "))
            << op.name << ": " << LastError();
    }
}
