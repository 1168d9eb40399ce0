// kxsim and kxapi as a user runs them: separate processes, real HTTPS with the
// simulator's own CA, configuration written by the simulator.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "KXUtils.h"
#include "TempEnv.h"

namespace {

struct RunResult {
    int status = -1;
    std::string out;
    std::string err;
};

std::string ReadAll(int fd) {
    std::string text;
    char buf[4096];
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0) text.append(buf, static_cast<size_t>(n));
    return text;
}

// Runs a program to its end with the given standard input.
RunResult RunTool(const std::vector<std::string>& argv, const std::string& input = "") {
    RunResult result;
    int in[2], out[2], err[2];
    if (pipe(in) != 0 || pipe(out) != 0 || pipe(err) != 0) return result;
    pid_t pid = fork();
    if (pid == 0) {
        dup2(in[0], 0);
        dup2(out[1], 1);
        dup2(err[1], 2);
        for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]}) close(fd);
        std::vector<char*> args;
        for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        execv(args[0], args.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    if (!input.empty()) (void)!write(in[1], input.data(), input.size());
    close(in[1]);
    std::thread errReader([&] { result.err = ReadAll(err[0]); });
    result.out = ReadAll(out[0]);
    errReader.join();
    close(out[0]);
    close(err[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

// One kxsim process for a test; stopped with SIGTERM, and only that process.
class SimProcess {
public:
    SimProcess(const std::string& stateDir, const std::string& configFile,
               const std::vector<std::string>& extra = {}) {
        int out[2];
        if (pipe(out) != 0) return;
        std::vector<std::string> argv = {KXSIM_BIN, "--port",         "0",       "--state-dir",
                                         stateDir,  "--print-config", configFile};
        argv.insert(argv.end(), extra.begin(), extra.end());
        pid_ = fork();
        if (pid_ == 0) {
            dup2(out[1], 1);
            close(out[0]);
            close(out[1]);
            std::vector<char*> args;
            for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
            args.push_back(nullptr);
            execv(args[0], args.data());
            _exit(127);
        }
        close(out[1]);
        out_ = out[0];
        // The ready line comes once the port is bound.
        std::string line;
        char c;
        while (read(out_, &c, 1) == 1 && c != '\n') line += c;
        const std::string prefix = "kxsim ready ";
        if (line.compare(0, prefix.size(), prefix) == 0) baseUrl_ = line.substr(prefix.size());
    }
    ~SimProcess() {
        if (pid_ > 0 && !stopped_) Stop();
        if (out_ >= 0) close(out_);
    }
    // SIGTERM; returns the exit status and what it printed after the ready line.
    int Stop(std::string* rest = nullptr) {
        kill(pid_, SIGTERM);
        std::string text = ReadAll(out_);
        if (rest != nullptr) *rest = text;
        int status = 0;
        waitpid(pid_, &status, 0);
        stopped_ = true;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    const std::string& baseUrl() const { return baseUrl_; }

private:
    pid_t pid_ = -1;
    int out_ = -1;
    bool stopped_ = false;
    std::string baseUrl_;
};

}  // namespace

TEST(EndToEnd, KxapiAgainstKxsimOverVerifiedHttps) {
    TempEnv env;
    const std::string config = env.dir() + "/sim.ini";
    SimProcess sim(env.dir() + "/state", config);
    ASSERT_EQ(0u, sim.baseUrl().find("https://127.0.0.1:")) << sim.baseUrl();
    const std::string ini = ReadFileText(config);
    EXPECT_NE(std::string::npos, ini.find("CAFile=" + env.dir() + "/state/ca.pem"));

    RunResult r = RunTool(
        {KXAPI_BIN, "--config", config, "cert-services", "--cert-sn", "5A1B", "--ukey-num", "UK1"});
    ASSERT_EQ(0, r.status) << r.err;
    Json::Value data;
    ASSERT_TRUE(kxjson::Parse(r.out, data)) << r.out;
    EXPECT_EQ("5A1B", data["certSn"].asString());
    EXPECT_EQ("UK1", data["ukeyNum"].asString());
    EXPECT_EQ(3u, data["services"].size());

    // A server code reaches the exit status and stderr, with the last error.
    r = RunTool({KXAPI_BIN, "--config", config, "cert-services", "--cert-sn", "00001"});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("code 4004")) << r.err;
    EXPECT_NE(std::string::npos, r.err.find("certificate or UKey not found")) << r.err;

    r = RunTool({KXAPI_BIN, "--config", config, "legacy-auth"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_NE(std::string::npos, r.out.find("kxsim-legacy-authorization"));

    r = RunTool({KXAPI_BIN, "--config", config, "server-config", "KXSim"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_NE(std::string::npos, r.out.find("\"ProjectSecret\" : \"******\""));
    EXPECT_NE(std::string::npos, r.out.find("\"complete\" : true"));

    // Without the simulator's CA the same query fails verification.
    std::string noCa = ini;
    noCa.replace(noCa.find("CAFile="), 7, "; CAFile=");
    std::ofstream(env.dir() + "/noca.ini") << noCa;
    r = RunTool(
        {KXAPI_BIN, "--config", env.dir() + "/noca.ini", "cert-services", "--cert-sn", "5A"});
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
    RunResult r = RunTool({KXAPI_BIN, "--config", config, "call", "KXSim", "GET", "/v1/nothing"});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("code 404")) << r.err;

    // The same configuration with one byte more in the secret.
    auto writeWrongSecret = [&] {
        std::string ini = ReadFileText(config);
        ini.insert(ini.find("ProjectSecret=") + 14, "x");
        std::ofstream(env.dir() + "/wrong.ini") << ini;
    };
    writeWrongSecret();
    r = RunTool(
        {KXAPI_BIN, "--config", env.dir() + "/wrong.ini", "call", "KXSim", "GET", "/v1/nothing"});
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
    r = RunTool(
        {KXAPI_BIN, "--config", env.dir() + "/wrong.ini", "call", "KXSim", "GET", "/v1/nothing"});
    EXPECT_NE(std::string::npos, r.err.find("code 404")) << r.err;  // checks are off
}

TEST(EndToEnd, ConfigCommands) {
    TempEnv env;
    const std::string config = env.dir() + "/own.ini";
    RunResult r = RunTool({KXAPI_BIN, "--config", config, "config", "set", "S", "K", "V 1"});
    ASSERT_EQ(0, r.status) << r.err;
    r = RunTool({KXAPI_BIN, "--config", config, "config", "get", "S", "K"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_NE(std::string::npos, r.out.find("\"value\" : \"V 1\""));
    r = RunTool({KXAPI_BIN, "--config", config, "config", "get", "S", "missing"});
    EXPECT_EQ(1, r.status);

    r = RunTool({KXAPI_BIN, "config", "encrypt"}, "s3cret\n");
    ASSERT_EQ(0, r.status) << r.err;
    Json::Value out;
    ASSERT_TRUE(kxjson::Parse(r.out, out));
    EXPECT_EQ("s3cret", IWK_DecryptEncryptedConfigInfo(out["value"].asString()));

    r = RunTool({KXAPI_BIN, "cert-services"});
    EXPECT_EQ(2, r.status);
    EXPECT_NE(std::string::npos, r.err.find("usage: kxapi cert-services"));
    r = RunTool({KXAPI_BIN, "no-such-command"});
    EXPECT_EQ(2, r.status);
    r = RunTool({KXAPI_BIN, "cert-services", "--help"});
    EXPECT_EQ(0, r.status);
}
