// The platform client against kxsim as separate processes: kxapi's flows,
// and the library driven step by step with the approval given on the
// simulator's confirmation page.
#include <gtest/gtest.h>
#include <httplib.h>

#include <fstream>
#include <string>

#include "CorvaneApi.h"
#include "KXServerApi.h"
#include "KXUtils.h"
#include "Processes.h"
#include "TempEnv.h"

using kxtest::RunKxapi;
using kxtest::RunResult;
using kxtest::SimProcess;

namespace {

// The simulator's confirmation page for a QR content URL; answer "" only reads it.
std::string Page(const std::string& caFile, const std::string& qr, const std::string& answer) {
    const size_t pathAt = qr.find('/', qr.find("://") + 3);
    httplib::SSLClient client("127.0.0.1", std::stoi(qr.substr(qr.rfind(':', pathAt) + 1)));
    client.set_ca_cert_path(caFile.c_str());
    client.enable_server_certificate_verification(true);
    const std::string path = qr.substr(pathAt);
    auto res = answer.empty() ? client.Get(path.c_str())
                              : client.Post(path.c_str(), "answer=" + answer,
                                            "application/x-www-form-urlencoded");
    if (!res) return "no reply";
    return std::to_string(res->status) + " " + res->body;
}

}  // namespace

TEST(EndToEndPlatform, ApprovalOnTheConfirmationPage) {
    TempEnv env;
    const std::string config = env.dir() + "/sim.ini";
    SimProcess sim(env.dir() + "/state", config);  // no auto-approval: a person decides
    ASSERT_FALSE(sim.baseUrl().empty());
    env.writeConfig(ReadFileText(config));
    const std::string caFile = env.dir() + "/state/ca.pem";

    _init_Info_s info;
    KX_GetServerConfig("KXPlatform", info);
    IWK_GetConfigByKey("KXPlatform", "MobileShieldClientId", info.strMobileShieldClientId, "");
    CCorvaneApi api;
    ASSERT_EQ(0, api.Init(info));

    const std::string hash = IWK_Base64Encode(std::string(32, '\x11'));
    std::string flow, ticket, task, qr;
    ASSERT_EQ(0, api.CreateWitnessFlowTask("org-0001", flow));
    // No snapshot yet: the flow does not know the document.
    EXPECT_EQ(4090, api.CheckSignAccessTask(flow, "acc-0001", "d1", hash, ticket));
    ASSERT_EQ(0, api.ExecuteSnapShotTask(flow, "d1", hash, "SHA256", "START", "in"));
    ASSERT_EQ(0, api.CheckSignAccessTask(flow, "acc-0001", "d1", hash, ticket));
    ASSERT_EQ(0, api.SignTask(flow, "acc-0001", "d1", hash, ticket, 65536, task, qr));
    ASSERT_EQ(0u, qr.find(sim.baseUrl() + "/mobile/confirm/")) << qr;

    // Waiting: code 0 and no result, however often it is asked.
    std::string result, logId, cert, alg;
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(0, api.QuerySignResultTask(flow, ticket, task, result, logId, cert, alg));
        EXPECT_EQ("", result);
    }
    std::string page = Page(caFile, qr, "");
    EXPECT_EQ(0u, page.find("200 ")) << page;
    EXPECT_NE(std::string::npos, page.find("Sign document d1"));
    EXPECT_NE(std::string::npos, page.find("value=\"approve\""));
    EXPECT_EQ(0u, Page(caFile, qr, "approve").find("303 "));
    ASSERT_EQ(0, api.QuerySignResultTask(flow, ticket, task, result, logId, cert, alg));
    EXPECT_EQ(256u, IWK_Base64Decode(result).size());  // RSA 2048
    EXPECT_FALSE(cert.empty());
    // The flow cannot finish before the signature is confirmed.
    EXPECT_EQ(4090, api.ExecuteSnapShotTask(flow, "d1", hash, "SHA256", "FINISH", "done"));
    EXPECT_EQ(4090, api.SignConfirmTask(flow, "d1", hash, "SHA256", ticket, "other-log"));
    ASSERT_EQ(0, api.SignConfirmTask(flow, "d1", hash, "SHA256", ticket, logId));
    ASSERT_EQ(0, api.ExecuteSnapShotTask(flow, "d1", hash, "SHA256", "FINISH", "done"));

    // A declined signature and a declined will end with the server's code.
    ASSERT_EQ(0, api.SignTask(flow, "acc-0001", "d1", hash, ticket, 65536, task, qr));
    EXPECT_EQ(0u, Page(caFile, qr, "decline").find("303 "));
    result = "kept";
    EXPECT_EQ(1438, api.QuerySignResultTask(flow, ticket, task, result, logId, cert, alg));
    EXPECT_EQ("kept", result);

    // Nobody approves: kxapi gives up at its time limit.
    const std::string doc = env.dir() + "/doc.txt";
    std::ofstream(doc) << "x";
    RunResult r =
        RunKxapi(config, {"platform", "sign", "--org", "org-0001", "--account", "acc-0001", "--doc",
                          doc, "--timeout", "1", "--interval-ms", "100"});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("not approved in time")) << r.err;
    EXPECT_EQ("", r.out);

    std::string biz, will, status;
    bool passed = true;
    ASSERT_EQ(0, api.CreateMobShieldAuth("acc-0002", "ENCRYPT", "encrypt", "file", biz, qr, will,
                                         true, ""));
    ASSERT_EQ(0, api.VerifyMobShieldAuth(biz, "ENCRYPT", will, status, passed));
    EXPECT_EQ("WAITING", status);
    EXPECT_FALSE(passed);
    std::string encTask, pub, sym;
    ASSERT_EQ(0, api.CreateEncOrDecTask("acc-0002", "org-0001", "d", "", 1, encTask));
    EXPECT_EQ(3301, api.ExecuteEncOrDecTask(encTask, "EPK", will, pub, sym));
    EXPECT_EQ(0u, Page(caFile, qr, "approve").find("303 "));
    ASSERT_EQ(0, api.VerifyMobShieldAuth(biz, "ENCRYPT", will, status, passed));
    EXPECT_TRUE(passed);
    ASSERT_EQ(0, api.ExecuteEncOrDecTask(encTask, "EPK", will, pub, sym));
    EXPECT_EQ(32u, IWK_Base64Decode(sym).size());
    ASSERT_EQ(0, api.EndEncOrDecTask(encTask, 0, "ok"));
    EXPECT_EQ(4090, api.EndEncOrDecTask(encTask, 0, "again"));
}
