// kxsim: the suite's servers on loopback, for trying the library offline.
#include <pthread.h>
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <thread>

#include "KXPki.h"
#include "SimServer.h"

namespace {

void Usage(std::ostream& out) {
    out << "usage: kxsim [options]\n"
           "  --port N            port to listen on (default 0: a free port)\n"
           "  --host ADDR         address to bind (default 127.0.0.1)\n"
           "  --http              plain HTTP instead of HTTPS\n"
           "  --state-dir DIR     where the CA, server certificate and project secrets are kept\n"
           "                      (default $XDG_STATE_HOME/kxsim or ~/.local/state/kxsim)\n"
           "  --print-config FILE write an INI configuration that points the library here\n"
           "  --no-head-check     accept requests without a valid signature head\n"
           "  --auto-approve      approve pending confirmations after a few polls\n"
           "  --help              this text\n"
           "Prints one line 'kxsim ready <base URL>' when it serves; ends on SIGINT or SIGTERM.\n";
}

bool NeedValue(int i, int argc, const char* flag) {
    if (i + 1 < argc) return true;
    std::cerr << "kxsim: " << flag << " needs a value\n";
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    kxsim::Options options;
    std::string configFile;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            Usage(std::cout);
            return 0;
        } else if (arg == "--port" && NeedValue(i, argc, "--port")) {
            options.port = std::atoi(argv[++i]);
        } else if (arg == "--host" && NeedValue(i, argc, "--host")) {
            options.host = argv[++i];
        } else if (arg == "--state-dir" && NeedValue(i, argc, "--state-dir")) {
            options.stateDir = argv[++i];
        } else if (arg == "--print-config" && NeedValue(i, argc, "--print-config")) {
            configFile = argv[++i];
        } else if (arg == "--http") {
            options.http = true;
        } else if (arg == "--no-head-check") {
            options.checkHeads = false;
        } else if (arg == "--auto-approve") {
            options.autoApprove = true;
        } else {
            std::cerr << "kxsim: unknown option " << arg << "\n";
            Usage(std::cerr);
            return 2;
        }
    }

    // Signals are taken by one waiting thread, so the server threads never see them.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    kxsim::Sim sim(options);
    std::string error;
    if (!sim.Start(error)) {
        std::cerr << "kxsim: " << error << "\n";
        return 1;
    }
    if (!configFile.empty() && !kxpki::WriteFile(configFile, sim.ClientConfig(), 0600)) {
        std::cerr << "kxsim: cannot write " << configFile << "\n";
        return 1;
    }

    std::thread waiter([&sim, signals]() {
        int sig = 0;
        sigwait(&signals, &sig);
        sim.Stop();
    });
    std::cout << "kxsim ready " << sim.baseUrl() << std::endl;
    sim.Run();
    // Run() also ends when the server fails; wake the waiter so it can be joined.
    pthread_kill(waiter.native_handle(), SIGTERM);
    waiter.join();
    std::cout << "kxsim stopped" << std::endl;
    return 0;
}
