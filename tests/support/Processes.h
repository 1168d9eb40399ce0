// Running the built tools as a user would: kxapi to its end, kxsim in the
// background until the test stops it.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace kxtest {

// Paths of the built tools.
extern const char* const kKxsimBin;
extern const char* const kKxapiBin;

struct RunResult {
    int status = -1;  // exit status, -1 when killed by a signal
    std::string out;
    std::string err;
};

// Runs a program to its end with the given standard input.
RunResult RunTool(const std::vector<std::string>& argv, const std::string& input = "");
// kxapi --config CONFIG ARGS...
RunResult RunKxapi(const std::string& config, const std::vector<std::string>& args,
                   const std::string& input = "");

// One kxsim process on a free port, writing its client configuration to
// configFile. Stopped with SIGTERM (and only that process) by Stop() or the
// destructor.
class SimProcess {
public:
    SimProcess(const std::string& stateDir, const std::string& configFile,
               const std::vector<std::string>& extra = {});
    ~SimProcess();
    SimProcess(const SimProcess&) = delete;
    SimProcess& operator=(const SimProcess&) = delete;

    // Empty when the simulator did not come up.
    const std::string& baseUrl() const { return baseUrl_; }
    // SIGTERM; the exit status, and what it printed after the ready line in rest.
    int Stop(std::string* rest = nullptr);

private:
    pid_t pid_ = -1;
    int out_ = -1;
    bool stopped_ = false;
    std::string baseUrl_;
};

}  // namespace kxtest
