// kxsim and kxapi as a user runs them: separate processes, real HTTPS with the
// simulator's own CA, configuration written by the simulator.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "KXUtils.h"
#include "Processes.h"
#include "TempEnv.h"

using kxtest::RunKxapi;
using kxtest::RunResult;
using kxtest::RunTool;
using kxtest::SimProcess;

TEST(EndToEnd, KxapiAgainstKxsimOverVerifiedHttps) {
    TempEnv env;
    const std::string config = env.dir() + "/sim.ini";
    SimProcess sim(env.dir() + "/state", config);
    ASSERT_EQ(0u, sim.baseUrl().find("https://127.0.0.1:")) << sim.baseUrl();
    const std::string ini = ReadFileText(config);
    EXPECT_NE(std::string::npos, ini.find("CAFile=" + env.dir() + "/state/ca.pem"));

    // The flows themselves run in the demo (Demo.AllSteps); here, what a user
    // of the processes sees: the server code with its text, TLS trust, SIGTERM.
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

    std::string rest;
    EXPECT_EQ(0, sim.Stop(&rest));
    EXPECT_NE(std::string::npos, rest.find("kxsim stopped"));
}

TEST(EndToEnd, SignedRequestsAreCheckedByTheSimulator) {
    TempEnv env;
    const std::string config = env.dir() + "/sim.ini";
    SimProcess sim(env.dir() + "/state", config);
    ASSERT_FALSE(sim.baseUrl().empty());

    // A correct head passes the check and reaches routing (no such operation yet: 404).
    RunResult r = RunKxapi(config, {"call", "KXSim", "GET", "/v1/nothing"});
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
    sim.Stop();
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
    r = RunTool({kxtest::kKxapiBin, "cert-services", "--help"});
    EXPECT_EQ(0, r.status);
}
