// The usage reports of the web service and a site's UKey event URL. What they
// receive is kept and read back with GET /kxsim/records.
#include <deque>
#include <sstream>

#include "KXUtils.h"
#include "SimServer.h"

namespace kxsim {

namespace {

const char kReportPrefix[] = "/v3/orbis/client/report/";
const char kUKeyEventPath[] = "/kxcertbase/ukeyEvent";
// Not part of the services: lets tests and the demo read back what came.
const char kRecordsViewPath[] = "/kxsim/records";
// The oldest go first beyond this many of each kind.
const size_t kKept = 1000;

struct Received {
    std::deque<Json::Value> reports;
    std::deque<Json::Value> ukeyEvents;
};

void Keep(std::deque<Json::Value>& list, Json::Value entry) {
    list.push_back(std::move(entry));
    if (list.size() > kKept) list.pop_front();
}

Json::Value ListOf(const std::deque<Json::Value>& list) {
    Json::Value out(Json::arrayValue);
    for (const Json::Value& entry : list) out.append(entry);
    return out;
}

}  // namespace

void InstallRecordsService(Sim& sim) {
    auto received = std::make_shared<Received>();
    // A report of an unknown type goes to the bare base: "/" here.
    const auto report = [&sim, received](const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body)) return;
        if (!body.isObject()) return ReplyCode(res, 400, "a report is a JSON object");
        Json::Value entry;
        entry["path"] = req.path;
        entry["report"] = body;
        {
            std::lock_guard<std::mutex> lock(sim.mutex());
            Keep(received->reports, entry);
        }
        ReplyCode(res, 0, "success");
    };
    for (const char* kind : {"signLog", "encryptLog", "decryptLog"})
        sim.Post(std::string(kReportPrefix) + kind, report);
    sim.Post("/", report);
    sim.Post(kUKeyEventPath, [&sim, received](const httplib::Request& req, httplib::Response& res) {
        Json::Value body;
        if (!ReadJsonBody(req, res, body)) return;
        if (!body.isObject()) return ReplyCode(res, 400, "an event is a JSON object");
        {
            std::lock_guard<std::mutex> lock(sim.mutex());
            Keep(received->ukeyEvents, body);
        }
        ReplyCode(res, 0, "success");
    });
    sim.Get(kRecordsViewPath, [&sim, received](const httplib::Request&, httplib::Response& res) {
        Json::Value out;
        {
            std::lock_guard<std::mutex> lock(sim.mutex());
            out["reports"] = ListOf(received->reports);
            out["ukeyEvents"] = ListOf(received->ukeyEvents);
        }
        ReplyJson(res, out);
    });
    sim.AddStateView([received](Json::Value& state) {
        for (const Json::Value& entry : received->reports) state["reports"].append(entry);
        for (const Json::Value& entry : received->ukeyEvents) state["ukeyEvents"].append(entry);
    });
}

std::string RecordsServiceConfig(const Sim& sim) {
    std::ostringstream ini;
    ini << "[KXServerApi]\nReportHostPort=" << sim.baseUrl() << "\n"
        << "\n[KXCertBase]\neventCallBackUrl=" << sim.baseUrl() << kUKeyEventPath << "\n"
        << "\n[version]\nprojectID=kxdemo-project\nversion=0.1.0\n";
    return ini.str();
}

}  // namespace kxsim
