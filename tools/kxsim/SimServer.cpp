#include "SimServer.h"

#include <sys/stat.h>

#include <cstdlib>
#include <sstream>

#include "KXUtils.h"

namespace kxsim {

namespace {

std::string DefaultStateDir() {
    const char* xdg = std::getenv("XDG_STATE_HOME");
    if (xdg != nullptr && *xdg != '\0') return std::string(xdg) + "/kxsim";
    const char* home = std::getenv("HOME");
    return std::string(home != nullptr && *home != '\0' ? home : "/tmp") + "/.local/state/kxsim";
}

bool MakeDirs(const std::string& path) {
    for (size_t pos = 1; pos <= path.size(); ++pos) {
        if (pos == path.size() || path[pos] == '/') {
            std::string part = path.substr(0, pos);
            if (::mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) return false;
        }
    }
    return true;
}

// The demo project's secret is made once and kept, so that a configuration
// written by --print-config stays valid across restarts.
std::string LoadOrMakeSecret(const std::string& path) {
    std::string secret;
    if (kxpki::ReadFile(path, secret)) {
        while (!secret.empty() && (secret.back() == '\n' || secret.back() == '\r')) {
            secret.pop_back();
        }
        if (!secret.empty()) return secret;
    }
    secret = IWK_CharToHex(IWK_GenRand(24));
    kxpki::WriteFile(path, secret + "\n", 0600);
    return secret;
}

const char* HeadCheckText(KXHeadCheck check) {
    switch (check) {
        case KX_HEAD_MISSING:
            return "signature head missing or malformed";
        case KX_HEAD_UNKNOWN_PROJECT:
            return "unknown project";
        case KX_HEAD_STALE:
            return "timestamp outside the accepted window";
        case KX_HEAD_BAD_SIGNATURE:
            return "signature does not match";
        default:
            return "ok";
    }
}

KXHeaderGetter HeaderGetter(const httplib::Request& req) {
    return [&req](const std::string& name) { return req.get_header_value(name.c_str()); };
}

}  // namespace

Sim::Sim(Options options) : options_(std::move(options)) {}

Sim::~Sim() {
    Stop();
}

bool Sim::Start(std::string& error) {
    if (options_.stateDir.empty()) options_.stateDir = DefaultStateDir();
    if (!MakeDirs(options_.stateDir)) {
        error = "cannot create state directory " + options_.stateDir;
        return false;
    }
    if (!authority_.Load(options_.stateDir, "KXSim")) {
        error = "cannot make the certificate authority in " + options_.stateDir;
        return false;
    }
    projects_ = {
        {"kxdemo-project", LoadOrMakeSecret(options_.stateDir + "/kxdemo-project.secret")},
        {"kxdemo-partner", LoadOrMakeSecret(options_.stateDir + "/kxdemo-partner.secret")},
    };

    if (!state_.Seed(authority_.caCert(), authority_.caKey())) {
        error = "cannot make the demo keys and certificates";
        return false;
    }

    if (options_.http) {
        server_ = std::make_unique<httplib::Server>();
    } else {
        auto tls = std::make_unique<httplib::SSLServer>(authority_.certFile().c_str(),
                                                        authority_.keyFile().c_str());
        if (!tls->is_valid()) {
            error = "cannot load the server certificate from " + options_.stateDir;
            return false;
        }
        server_ = std::move(tls);
    }
    server_->set_tcp_nodelay(true);
    server_->set_keep_alive_max_count(1000);
    server_->set_error_handler([](const httplib::Request&, httplib::Response& res) {
        if (res.body.empty())
            ReplyCode(res, res.status, "no such operation", Json::Value(), res.status);
    });
    server_->set_exception_handler(
        [](const httplib::Request&, httplib::Response& res, std::exception_ptr) {
            ReplyCode(res, 500, "simulator failure", Json::Value(), 500);
        });

    // The platform (/v1/) and /v3/ services refuse any request whose
    // signature head does not verify, before looking at what it asks for.
    // The BID service checks its heads per route: a token, the signature or none.
    server_->set_pre_routing_handler([this](const httplib::Request& req, httplib::Response& res) {
        const bool signedService =
            req.path.compare(0, 4, "/v1/") == 0 ||
            (req.path.compare(0, 4, "/v3/") == 0 && req.path.compare(0, 13, "/v3/bid-sign/") != 0);
        // Usage reports are the one /v3/ service that carries no head.
        const bool report = req.path.compare(0, 24, "/v3/orbis/client/report/") == 0;
        if (signedService && !report && !CheckSignatureHead(req, res)) {
            return httplib::Server::HandlerResponse::Handled;
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });

    for (const Module& module : Modules()) module.install(*this);

    if (options_.port == 0) {
        port_ = server_->bind_to_any_port(options_.host.c_str());
    } else {
        port_ = server_->bind_to_port(options_.host.c_str(), options_.port) ? options_.port : -1;
    }
    if (port_ <= 0) {
        error = "cannot bind " + options_.host + ":" + std::to_string(options_.port);
        return false;
    }
    return true;
}

void Sim::Run() {
    if (server_) server_->listen_after_bind();
}

void Sim::Stop() {
    if (server_) server_->stop();
}

std::string Sim::hostUrl() const {
    return std::string(options_.http ? "http://" : "https://") + options_.host;
}

std::string Sim::baseUrl() const {
    return hostUrl() + ":" + std::to_string(port_);
}

bool Sim::FindSecret(const std::string& projectId, std::string& secret) const {
    for (const Project& p : projects_) {
        if (p.id == projectId) {
            secret = p.secret;
            return true;
        }
    }
    return false;
}

std::string Sim::ClientConfig() const {
    std::ostringstream ini;
    ini << "; Points KXServerApi at kxsim on " << baseUrl() << "\n";
    ini << "[KXUtils]\n";
    // The simulator is on this machine: no proxy from the environment applies.
    ini << "Proxy=\n";
    if (!options_.http) ini << "CAFile=" << authority_.caFile() << "\n";
    ini << "\n[KXSim]\nSerType=3\nHost=" << hostUrl() << "\nPort=" << port_
        << "\nProjectID=" << projects_[0].id << "\nProjectSecret=" << projects_[0].secret << "\n";
    for (const Module& module : Modules()) {
        if (module.config != nullptr) ini << "\n" << module.config(*this);
    }
    return ini.str();
}

Json::Value Sim::StateSnapshot() {
    Json::Value state(Json::objectValue);
    for (const char* list : {"tasks", "signLogs", "printAllowances", "reports", "ukeyEvents"})
        state[list] = Json::Value(Json::arrayValue);
    std::lock_guard<std::mutex> lock(mutex_);
    for (const StateView& view : stateViews_) view(state);
    return state;
}

void AddTask(const Sim& sim, Json::Value& state, const TaskView& task) {
    Json::Value entry;
    entry["service"] = task.service;
    entry["kind"] = task.kind;
    entry["id"] = task.id;
    entry["account"] = task.account;
    entry["text"] = task.text;
    entry["status"] = task.status;
    entry["page"] = task.page;
    entry["url"] = sim.baseUrl() + task.page;
    entry["reject"] = task.reject;
    state["tasks"].append(entry);
}

void Sim::Get(const std::string& pattern, Handler handler) {
    server_->Get(pattern, handler);
}
void Sim::Post(const std::string& pattern, Handler handler) {
    server_->Post(pattern, handler);
}
void Sim::Put(const std::string& pattern, Handler handler) {
    server_->Put(pattern, handler);
}

bool Sim::CheckSignatureHead(const httplib::Request& req, httplib::Response& res) {
    if (!options_.checkHeads) return true;
    // req.target is the target as it arrived, bytes of 0x80 and above and
    // %-escapes unchanged (req.path is the decoded one): the signed bytes.
    KXHeadCheck check = IWK_VerifySignatureHead(
        req.method, req.target, HeaderGetter(req),
        [this](const std::string& id, std::string& secret) { return FindSecret(id, secret); },
        IWK_GetCurTime(), options_.headWindowMs);
    if (check == KX_HEAD_OK) return true;
    ReplyCode(res, 401, HeadCheckText(check), Json::Value(), 401);
    return false;
}

bool Sim::CheckInkwellHead(const httplib::Request& req, httplib::Response& res,
                           std::string* authorization) {
    if (!options_.checkHeads) return true;
    KXHeadCheck check = IWK_VerifyInkwellHead(
        req.body, HeaderGetter(req),
        [this](const std::string& id, std::string& secret) { return FindSecret(id, secret); },
        IWK_GetCurTime(), options_.headWindowMs, authorization);
    if (check == KX_HEAD_OK) return true;
    ReplyErrCode(res, 401, HeadCheckText(check));
    return false;
}

std::string Match(const httplib::Request& req, size_t i) {
    return i < req.matches.size() ? req.matches[i].str() : std::string();
}

std::string HtmlEscape(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '&':
                out += "&amp;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

void ReplyJson(httplib::Response& res, const Json::Value& body, int status) {
    res.status = status;
    res.set_content(kxjson::Write(body), "application/json");
}

void ReplyCode(httplib::Response& res, int code, const std::string& message,
               const Json::Value& data, int status) {
    Json::Value body;
    body["code"] = code;
    body["message"] = message;
    if (!data.isNull()) body["data"] = data;
    ReplyJson(res, body, status);
}

void ReplyErrCode(httplib::Response& res, int code, const std::string& message,
                  const Json::Value& data, int status) {
    Json::Value body;
    body["errCode"] = code;
    body["msg"] = message;
    if (!data.isNull()) body["data"] = data;
    ReplyJson(res, body, status);
}

bool ReadJsonBody(const httplib::Request& req, httplib::Response& res, Json::Value& body) {
    if (kxjson::Parse(req.body, body) && body.isObject()) return true;
    ReplyCode(res, 400, "request body is no JSON object", Json::Value(), 400);
    return false;
}

}  // namespace kxsim
