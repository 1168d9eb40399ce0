// The simulator's frame: state, head checks and reply helpers shared by the
// service modules.
#pragma once

#include <httplib.h>
#include <json/json.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "KXPki.h"
#include "SimState.h"

namespace kxsim {

struct Options {
    std::string host = "127.0.0.1";
    int port = 0;
    bool http = false;         // plain HTTP instead of HTTPS
    bool checkHeads = true;    // verify the signature heads of signed services
    bool autoApprove = false;  // approve pending confirmations after a few polls
    std::string stateDir;
    long long headWindowMs = 5 * 60 * 1000;
};

struct Project {
    std::string id;
    std::string secret;
};

class Sim;

// A service module adds its routes and its sections of the client configuration.
struct Module {
    const char* name;
    void (*install)(Sim&);
    // Lines of an INI configuration that point the library at this module.
    std::string (*config)(const Sim&);
};

// Every module of the simulator, in SimModules.cpp.
const std::vector<Module>& Modules();

class Sim {
public:
    explicit Sim(Options options);
    ~Sim();

    // Makes keys and certificates, binds the port and installs every module.
    bool Start(std::string& error);
    // Serves until Stop() is called from another thread.
    void Run();
    void Stop();

    const Options& options() const { return options_; }
    int port() const { return port_; }
    std::string baseUrl() const;
    std::string hostUrl() const;  // scheme and host, no port
    const kxpki::Authority& authority() const { return authority_; }
    const std::vector<Project>& projects() const { return projects_; }
    bool FindSecret(const std::string& projectId, std::string& secret) const;
    // Demo data; modules lock mutex() while they change it.
    SimState& state() { return state_; }
    const SimState& state() const { return state_; }

    // The INI text that points the library at this simulator.
    std::string ClientConfig() const;

    using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;
    void Get(const std::string& pattern, Handler handler);
    void Post(const std::string& pattern, Handler handler);
    void Put(const std::string& pattern, Handler handler);

    // Head checks. A failed check has already written the refusal into res.
    // 401 with a code/message body, as the platform and BID services refuse.
    bool CheckSignatureHead(const httplib::Request& req, httplib::Response& res);
    // Refusal in the legacy server's own errCode/msg envelope.
    bool CheckInkwellHead(const httplib::Request& req, httplib::Response& res,
                          std::string* authorization);

    std::mutex& mutex() { return mutex_; }

    // A module's part of GET /kxsim/state, which the dashboard draws: it adds
    // its entries to the state object. Called with mutex() held.
    using StateView = std::function<void(Json::Value& state)>;
    void AddStateView(StateView view) { stateViews_.push_back(std::move(view)); }
    // Every module's part, taken under mutex().
    Json::Value StateSnapshot();

private:
    Options options_;
    kxpki::Authority authority_;
    std::vector<Project> projects_;
    SimState state_;
    std::unique_ptr<httplib::Server> server_;
    int port_ = 0;
    std::mutex mutex_;
    std::vector<StateView> stateViews_;
};

// One task that waits for a person, as GET /kxsim/state lists it. page is the
// path of its approval page (the QR code shows the full URL); a POST there
// with answer=approve or answer=<reject> decides it.
struct TaskView {
    std::string service;  // "platform" or "bid"
    std::string kind;
    std::string id;
    std::string account;  // login name
    std::string text;
    std::string status;  // waiting, approved or rejected
    std::string page;
    std::string reject;  // the answer that refuses on this page
};
void AddTask(const Sim& sim, Json::Value& state, const TaskView& task);

// Capture group i of a route's pattern, empty when there is none.
std::string Match(const httplib::Request& req, size_t i);
// Text for an approval page: <, >, & and " as entities.
std::string HtmlEscape(const std::string& text);

// JSON replies.
void ReplyJson(httplib::Response& res, const Json::Value& body, int status = 200);
// {"code":code,"message":message,"data":data}
void ReplyCode(httplib::Response& res, int code, const std::string& message,
               const Json::Value& data = Json::Value(), int status = 200);
// {"errCode":code,"msg":message,"data":data}
void ReplyErrCode(httplib::Response& res, int code, const std::string& message,
                  const Json::Value& data = Json::Value(), int status = 200);
// Parses a JSON request body; false (and a 400 reply) when it is none.
bool ReadJsonBody(const httplib::Request& req, httplib::Response& res, Json::Value& body);

}  // namespace kxsim
