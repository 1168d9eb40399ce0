// SignHash round trips against a loopback server, side by side with a raw
// libcurl POST of the same bytes over one kept-alive connection, and the cost
// of reading a 1,000-seal list reply. Prints the rate of the library over the
// rate of raw libcurl at the end.
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <httplib.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <utime.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "KXSealOpenApi.h"
#include "KXUtils.h"

namespace {

const char kSignPath[] = "/kxseal/openapi/signHash";
const int kRounds = 5;  // library and raw runs alternate, so drift hits both alike
const int kSeals = 1000;

// A 2048-bit signature in Base64, as the seal server sends one.
std::string SignReply() {
    return "{\"errCode\":0,\"msg\":\"success\",\"signResult\":\"" +
           IWK_Base64Encode(std::string(256, '\x5A')) + "\"}";
}

class Loopback {
public:
    Loopback() {
        server_.set_tcp_nodelay(true);
        server_.set_keep_alive_max_count(1000000);
        const std::string reply = SignReply();
        server_.Post(kSignPath, [this, reply](const httplib::Request& req, httplib::Response& res) {
            {
                std::lock_guard<std::mutex> lock(mutex_);
                if (body_.empty()) body_ = req.body;
            }
            res.set_content(reply, "application/json");
        });
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
    }
    ~Loopback() {
        server_.stop();
        thread_.join();
    }
    int port() const { return port_; }
    std::string firstBody() {
        std::lock_guard<std::mutex> lock(mutex_);
        return body_;
    }

private:
    httplib::Server server_;
    std::thread thread_;
    int port_ = 0;
    std::mutex mutex_;
    std::string body_;
};

Loopback* g_server = nullptr;
std::string g_configPath;
std::string g_logPath;

// The store as an application keeps it. Its time is set a minute back: a
// store is seldom seconds old, and one that changed in the last two seconds
// is read again on every look.
void WriteConfig(int logLevel) {
    IWK_SetConfigByKey("KXUtils", "LogLevel", std::to_string(logLevel));
    const time_t past = time(nullptr) - 60;
    struct utimbuf times = {past, past};
    utime(g_configPath.c_str(), &times);
}

// The library, set up as an application would: configuration, Init, a token.
struct Client {
    CKXSealOpenApi api;
    Client() {
        _init_Info_s info;
        info.ProjectID = "bench";
        info.ProjectSecret = "bench-secret";
        info.ServerIp = "http://127.0.0.1";
        info.Port = g_server->port();
        api.Init(info);
        api.strToken = "0123456789abcdef0123456789abcdef";
    }
};

// range(0): the log level; 1 writes the three trace lines of each call.
void BM_LibrarySignHash(benchmark::State& state) {
    WriteConfig(static_cast<int>(state.range(0)));
    Client client;
    std::string signature;
    const std::string hash = IWK_Base64Encode(std::string(32, '\x11'));
    for (auto _ : state) {
        if (client.api.SignHash(hash.c_str(), "bench-pin", signature) != 0) {
            state.SkipWithError("SignHash failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

size_t Collect(char* data, size_t size, size_t count, void* out) {
    static_cast<std::string*>(out)->append(data, size * count);
    return size * count;
}

void BM_RawCurlPost(benchmark::State& state) {
    // The exact bytes the library sent, over one handle that keeps its connection.
    const std::string body = g_server->firstBody();
    const std::string url = "http://127.0.0.1:" + std::to_string(g_server->port()) + kSignPath;
    CURL* curl = curl_easy_init();
    curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
    std::string reply;
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_PROXY, "");
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, Collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply);
    for (auto _ : state) {
        reply.clear();
        if (curl_easy_perform(curl) != CURLE_OK) {
            state.SkipWithError("curl_easy_perform failed");
            break;
        }
    }
    curl_slist_free_all(headers);
    curl_easy_cleanup(curl);
    state.SetItemsProcessed(state.iterations());
}

// A seal list reply of kSeals seals, each with a real-sized certificate and document.
std::string SealListReply() {
    const std::string cert = IWK_Base64Encode(std::string(900, '\x30'));
    const std::string picture = IWK_Base64Encode(std::string(1200, '\x7F'));
    Json::Value root;
    root["errCode"] = 0;
    root["msg"] = "success";
    Json::Value& seals = root["seals"];
    for (int i = 0; i < kSeals; ++i) {
        const std::string xml =
            "<?xml version=\"1.0\" encoding=\"GBK\"?>\n<Seal><SealInfo><esID>seal-" +
            std::to_string(i) + "</esID><PropertyInfo><name>\xB9\xAB\xD5\xC2</name><cert>" + cert +
            "</cert><type>1</type></PropertyInfo><PictrueInfo><data>" + picture +
            "</data><type>png</type><width>160</width><height>160</height></PictrueInfo>"
            "</SealInfo></Seal>";
        Json::Value seal;
        seal["certB64"] = cert;
        seal["data"] = IWK_Base64Encode(xml);
        seal["sesealId"] = std::to_string(i + 1);
        seal["type"] = 1;
        seal["certId"] = std::to_string(i + 1);
        seals.append(seal);
    }
    return kxjson::Write(root);
}

// Reaches the reply handler the way a derived client would.
struct SealListReader : CKXSealOpenApi {
    using CKXSealOpenApi::OnGetSealList;
};

void BM_ParseSealList1000(benchmark::State& state) {
    const std::string reply = SealListReply();
    SealListReader reader;
    std::vector<_seal_Info_s> list;
    for (auto _ : state) {
        list.clear();
        if (reader.OnGetSealList(reply, list) != 0 || list.size() != kSeals) {
            state.SkipWithError("the seal list did not parse");
            break;
        }
        benchmark::DoNotOptimize(list.data());
    }
    state.SetItemsProcessed(state.iterations() * kSeals);
    state.counters["reply_bytes"] = static_cast<double>(reply.size());
    state.counters["time_per_seal"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * kSeals,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// Shows every run as the console does and keeps the round-trip rates.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
            if (run.real_accumulated_time <= 0) continue;
            const std::string name = run.benchmark_name();
            const double rate = static_cast<double>(run.iterations) / run.real_accumulated_time;
            // CPU time of the calling thread per call, in microseconds.
            const double cpu = run.cpu_accumulated_time * 1e6 / static_cast<double>(run.iterations);
            if (name.rfind("SignHash/library/log_level:1", 0) == 0) {
                library.push_back(rate);
                libraryCpu.push_back(cpu);
            } else if (name.rfind("SignHash/library/log_level:2", 0) == 0) {
                quiet.push_back(rate);
                quietCpu.push_back(cpu);
            } else if (name.rfind("SignHash/raw_curl", 0) == 0) {
                raw.push_back(rate);
                rawCpu.push_back(cpu);
            }
        }
    }
    std::vector<double> library;
    std::vector<double> quiet;
    std::vector<double> raw;
    std::vector<double> libraryCpu, quietCpu, rawCpu;
};

double Median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

}  // namespace

int main(int argc, char** argv) {
    // A private configuration and log, and no proxy: everything stays on loopback.
    char dir[] = "/tmp/kxbench.XXXXXX";
    if (mkdtemp(dir) == nullptr) return 1;
    g_configPath = std::string(dir) + "/KXServerApi.ini";
    g_logPath = std::string(dir) + "/bench.log";
    std::ofstream(g_configPath) << "[KXUtils]\nProxy=\nLogFile=" << g_logPath
                                << "\n[OpenApiURL]\nServerFlag=1\nSignHashUrl=" << kSignPath
                                << "\n";
    setenv("KX_CONFIG_FILE", g_configPath.c_str(), 1);
    WriteConfig(1);
    setenv("KX_LOG_FILE", g_logPath.c_str(), 1);
    setenv("KX_CONFIG_KEY_FILE", (std::string(dir) + "/config.key").c_str(), 1);

    Loopback server;
    g_server = &server;
    {
        // One request first, so that the raw side can send the library's exact bytes.
        Client warmup;
        std::string signature;
        const std::string hash = IWK_Base64Encode(std::string(32, '\x11'));
        if (warmup.api.SignHash(hash.c_str(), "bench-pin", signature) != 0) {
            std::cerr << "seal_bench: the loopback server did not answer\n";
            return 1;
        }
    }

    for (int round = 1; round <= kRounds; ++round) {
        const std::string suffix = "/round:" + std::to_string(round);
        for (int level : {1, 2}) {
            benchmark::RegisterBenchmark(
                ("SignHash/library/log_level:" + std::to_string(level) + suffix).c_str(),
                BM_LibrarySignHash)
                ->Arg(level)
                ->UseRealTime()
                ->MinTime(0.5);
        }
        benchmark::RegisterBenchmark(("SignHash/raw_curl" + suffix).c_str(), BM_RawCurlPost)
            ->UseRealTime()
            ->MinTime(0.5);
    }
    benchmark::RegisterBenchmark("SealList/parse_1000_seals", BM_ParseSealList1000)
        ->Unit(benchmark::kMillisecond)
        ->MinTime(1.0);

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    const double library = Median(reporter.library);
    const double quiet = Median(reporter.quiet);
    const double raw = Median(reporter.raw);
    if (library > 0 && quiet > 0 && raw > 0) {
        std::printf(
            "\nSignHash round trips per second, median of %zu alternating rounds:\n"
            "                                                        per second        CPU/call\n"
            "  raw libcurl, same bytes, one kept-alive connection   %8.0f          %6.1f us\n"
            "  library, LogLevel=1 (default: 3 trace lines a call)  %8.0f          %6.1f us\n"
            "  library, LogLevel=2 (trace lines off)                %8.0f          %6.1f us\n"
            "ratio library/raw libcurl: %.3f with LogLevel=1, %.3f with LogLevel=2 "
            "(target 0.9 or more)\n",
            reporter.raw.size(), raw, Median(reporter.rawCpu), library, Median(reporter.libraryCpu),
            quiet, Median(reporter.quietCpu), library / raw, quiet / raw);
    }
    std::remove(g_logPath.c_str());
    std::remove((g_logPath + ".1").c_str());
    std::remove(g_configPath.c_str());
    std::remove((g_configPath + ".lock").c_str());
    rmdir(dir);
    return 0;
}
