#include "Processes.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

namespace kxtest {

const char* const kKxsimBin = KXSIM_BIN;
const char* const kKxapiBin = KXAPI_BIN;

namespace {

std::string ReadAll(int fd) {
    std::string text;
    char buf[4096];
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0) text.append(buf, static_cast<size_t>(n));
    return text;
}

}  // namespace

// Runs a program to its end with the given standard input.
RunResult RunTool(const std::vector<std::string>& argv, const std::string& input) {
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

RunResult RunKxapi(const std::string& config, const std::vector<std::string>& args,
                   const std::string& input) {
    std::vector<std::string> argv = {kKxapiBin, "--config", config};
    argv.insert(argv.end(), args.begin(), args.end());
    return RunTool(argv, input);
}

SimProcess::SimProcess(const std::string& stateDir, const std::string& configFile,
                       const std::vector<std::string>& extra) {
    int out[2];
    if (pipe(out) != 0) return;
    std::vector<std::string> argv = {kKxsimBin, "--port",         "0",       "--state-dir",
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

SimProcess::~SimProcess() {
    if (pid_ > 0 && !stopped_) Stop();
    if (out_ >= 0) close(out_);
}

int SimProcess::Stop(std::string* rest) {
    if (pid_ <= 0 || stopped_) return -1;
    kill(pid_, SIGTERM);
    std::string text = ReadAll(out_);
    if (rest != nullptr) *rest = text;
    int status = 0;
    waitpid(pid_, &status, 0);
    stopped_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace kxtest
