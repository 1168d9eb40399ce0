// The tools and the library as separate processes against kxsim.
#include <gtest/gtest.h>
#include <httplib.h>

#include <fstream>
#include <sstream>
#include <string>

#include "CorvaneApi.h"
#include "KXServerApi.h"
#include "KXUtils.h"
#include "Processes.h"
#include "TempEnv.h"

using kxtest::RunKxapi;
using kxtest::RunResult;
using kxtest::RunTool;
using kxtest::SimProcess;

// kxsim and kxapi as a user runs them: separate processes, real HTTPS with the
// simulator's own CA, configuration written by the simulator.
// One simulator for what a user of the processes sees: the server code with
// its text, TLS trust, the signature check, SIGTERM and a restart.
TEST(EndToEnd, KxapiAgainstKxsimOverVerifiedHttps) {
    TempEnv env;
    const std::string config = env.dir() + "/sim.ini";
    SimProcess sim(env.dir() + "/state", config);
    ASSERT_EQ(0u, sim.baseUrl().find("https://127.0.0.1:")) << sim.baseUrl();
    const std::string ini = ReadFileText(config);
    EXPECT_NE(std::string::npos, ini.find("CAFile=" + env.dir() + "/state/ca.pem"));

    // The flows themselves run in the demo (Demo.AllSteps).
    RunResult r = RunKxapi(config, {"cert-services", "--cert-sn", "00001"});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("code 4004")) << r.err;
    EXPECT_NE(std::string::npos, r.err.find("last error 4004: certificate or UKey not found"))
        << r.err;

    // Without the simulator's CA the same query fails verification.
    std::string noCa = ini;
    noCa.replace(noCa.find("CAFile="), 7, "; CAFile=");
    std::ofstream(env.dir() + "/noca.ini") << noCa;
    r = RunKxapi(env.dir() + "/noca.ini", {"cert-services", "--cert-sn", "5A"});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("code 10104")) << r.err;

    // A correct head passes the check and reaches routing (no such operation yet: 404).
    r = RunKxapi(config, {"call", "KXSim", "GET", "/v1/nothing"});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("code 404")) << r.err;

    // The same configuration with one byte more in the secret.
    auto writeWrongSecret = [&] {
        std::string ini = ReadFileText(config);
        ini.insert(ini.find("ProjectSecret=") + 14, "x");
        std::ofstream(env.dir() + "/wrong.ini") << ini;
    };
    writeWrongSecret();
    r = RunKxapi(env.dir() + "/wrong.ini", {"call", "KXSim", "GET", "/v1/nothing"});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("code 401")) << r.err;
    EXPECT_NE(std::string::npos, r.err.find("signature does not match")) << r.err;

    // The same state directory keeps the CA and secrets across restarts.
    const std::string caBefore = ReadFileText(env.dir() + "/state/ca.pem");
    std::string rest;
    EXPECT_EQ(0, sim.Stop(&rest));
    EXPECT_NE(std::string::npos, rest.find("kxsim stopped"));
    SimProcess again(env.dir() + "/state", config, {"--no-head-check"});
    ASSERT_FALSE(again.baseUrl().empty());
    EXPECT_EQ(caBefore, ReadFileText(env.dir() + "/state/ca.pem"));
    writeWrongSecret();
    r = RunKxapi(env.dir() + "/wrong.ini", {"call", "KXSim", "GET", "/v1/nothing"});
    EXPECT_NE(std::string::npos, r.err.find("code 404")) << r.err;  // checks are off
}

TEST(EndToEnd, ConfigCommands) {
    TempEnv env;
    const std::string config = env.dir() + "/own.ini";
    RunResult r = RunKxapi(config, {"config", "set", "S", "K", "V 1"});
    ASSERT_EQ(0, r.status) << r.err;
    r = RunKxapi(config, {"config", "get", "S", "K"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_NE(std::string::npos, r.out.find("\"value\" : \"V 1\""));
    r = RunKxapi(config, {"config", "get", "S", "missing"});
    EXPECT_EQ(1, r.status);

    r = RunTool({kxtest::kKxapiBin, "config", "encrypt"}, "s3cret\n");
    ASSERT_EQ(0, r.status) << r.err;
    Json::Value out;
    ASSERT_TRUE(kxjson::Parse(r.out, out));
    EXPECT_EQ("s3cret", IWK_DecryptEncryptedConfigInfo(out["value"].asString()));

    // Usage errors (2) and a section without a server (1), before any request.
    std::ofstream(env.dir() + "/x.csr") << "x";
    struct Refused {
        std::vector<std::string> args;
        int status;
        std::string message;
    };
    const Refused refused[] = {
        {{"cert-services"}, 2, "usage: kxapi cert-services"},
        {{"cert", "expand", "--ukey-num", "U", "--csr", env.dir() + "/x.csr", "--interval-ms", "9"},
         2,
         "--interval-ms is at least 10"},
        {{"platform", "sign", "--org", "o", "--account", "a", "--doc", "d", "--timeout", "0"},
         2,
         "--timeout at least 1"},
        {{"platform", "encrypt-task", "--account", "a", "--interval-ms", "100x"},
         2,
         "--interval-ms is at least 10"},
        {{"cert", "check", "--cert", env.dir() + "/x.csr", "--section", "Nope"},
         1,
         "section [Nope] holds no complete server description"},
    };
    for (const Refused& c : refused) {
        r = RunKxapi(config, c.args);
        EXPECT_EQ(c.status, r.status) << c.message;
        EXPECT_NE(std::string::npos, r.err.find(c.message)) << r.err;
    }
    r = RunTool({kxtest::kKxapiBin, "no-such-command"});
    EXPECT_EQ(2, r.status);
    // Every command's help shows it at work; --version names the library's.
    const std::string all = RunTool({kxtest::kKxapiBin, "--help"}).out;
    std::istringstream lines(all);
    int commands = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("  ", 0) != 0 || line[2] == ' ' || line[2] == '-') continue;
        std::istringstream words(line);
        std::vector<std::string> argv = {kxtest::kKxapiBin};
        for (std::string w; words >> w && w[0] >= 'a' && w[0] <= 'z';) argv.push_back(w);
        argv.push_back("--help");
        r = RunTool(argv);
        ++commands;
        EXPECT_TRUE(r.status == 0 && r.out.find("\nexample: ") != std::string::npos) << line;
    }
    EXPECT_LT(30, commands);
    EXPECT_EQ("kxapi 0.1.0\n", RunTool({kxtest::kKxapiBin, "--version"}).out);
}

// The platform client against kxsim as separate processes: kxapi's flows,
// and the library driven step by step with the approval given on the
// simulator's confirmation page.
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
