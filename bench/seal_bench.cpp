// The library beside the wire: each figure next to a raw anchor measured in
// the same run, in alternating rounds so that load from elsewhere on the
// machine hits both alike.
//
//   SignHash   one kept-alive TLS connection; raw libcurl POSTs the same bytes
//   Threads8   eight threads, each with its own client or raw handle
//   Cold       every call from a new thread, to a server that closes each
//              connection after one request; raw: a fresh libcurl handle
//   LogLine    one trace line on the caller's thread; anchor: formatting it
//   SealList   reading a 1,000-seal reply; anchor: a plain jsoncpp, OpenSSL
//              Base64 and tinyxml2 loop taking the same fields
//   Memory     resident memory over 100,000 calls, allocations per call
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <fcntl.h>
#include <httplib.h>
#include <openssl/evp.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <tinyxml2.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
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
#include "TestCA.h"

// ---------------------------------------------------------------------------
// Allocation count: every malloc of the process, the library's, libcurl's and
// OpenSSL's alike, so that the library and the raw anchor count the same way.
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
}
namespace {
std::atomic<unsigned long long> g_allocations{0};
}
extern "C" void* malloc(size_t n) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(n);
}
extern "C" void* calloc(size_t n, size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(n, size);
}
extern "C" void* realloc(void* p, size_t n) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(p, n);
}

namespace {

const char kSignPath[] = "/kxseal/openapi/signHash";
const int kRounds = 5;
const int kSeals = 1000;
const int kThreads = 8;
const int kMemoryCalls = 100000;

std::string SignReply() {
    // A 2048-bit signature in Base64, as the seal server sends one.
    return "{\"errCode\":0,\"msg\":\"success\",\"signResult\":\"" +
           IWK_Base64Encode(std::string(256, '\x5A')) + "\"}";
}

class Loopback {
public:
    // keepAlive: requests a connection serves before the server closes it.
    explicit Loopback(size_t keepAlive)
        : server_(kxtest::TestCA::instance().certFile().c_str(),
                  kxtest::TestCA::instance().keyFile().c_str()) {
        server_.set_tcp_nodelay(true);
        // The default of 5 requests per connection would measure handshakes.
        server_.set_keep_alive_max_count(keepAlive);
        // Eight clients, eight raw threads and the main thread's connection at once.
        server_.new_task_queue = [] { return new httplib::ThreadPool(32); };
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
        while (!server_.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
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
    httplib::SSLServer server_;
    std::thread thread_;
    int port_ = 0;
    std::mutex mutex_;
    std::string body_;
};

Loopback* g_server = nullptr;
Loopback* g_coldServer = nullptr;  // closes every connection after one request
const std::string g_hash = IWK_Base64Encode(std::string(32, '\x11'));

// The library, set up as an application would: configuration, Init, a token.
struct Client {
    CKXSealOpenApi api;
    std::string signature;
    explicit Client(Loopback* server = g_server) {
        _init_Info_s info;
        info.ProjectID = "bench";
        info.ProjectSecret = "bench-secret";
        info.ServerIp = "https://127.0.0.1";
        info.Port = server->port();
        api.Init(info);
        api.strToken = "0123456789abcdef0123456789abcdef";
    }
    bool Sign() { return api.SignHash(g_hash.c_str(), "bench-pin", signature) == 0; }
};

// ---------------------------------------------------------------------------
// Raw libcurl: the library's exact bytes, with the same trust settings.

size_t Collect(char* data, size_t size, size_t count, void* out) {
    static_cast<std::string*>(out)->append(data, size * count);
    return size * count;
}

struct RawPost {
    std::string body = g_server->firstBody();
    std::string url;
    curl_slist* headers = nullptr;
    std::string reply;
    CURL* curl = nullptr;

    explicit RawPost(Loopback* server = g_server)
        : url("https://127.0.0.1:" + std::to_string(server->port()) + kSignPath) {
        headers = curl_slist_append(headers, "Expect:");
        headers = curl_slist_append(headers, "Content-Type: application/json");
        Open();
    }
    ~RawPost() {
        curl_easy_cleanup(curl);
        curl_slist_free_all(headers);
    }
    void Open() {
        curl = curl_easy_init();
        curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
        curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(curl, CURLOPT_PROXY, "");
        curl_easy_setopt(curl, CURLOPT_CAINFO, kxtest::TestCA::instance().caFile().c_str());
        curl_easy_setopt(curl, CURLOPT_CAPATH, static_cast<const char*>(nullptr));
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, Collect);
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply);
    }
    bool Post() {
        reply.clear();
        long status = 0;
        return curl_easy_perform(curl) == CURLE_OK &&
               curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status) == CURLE_OK &&
               status == 200;
    }
};

// ---------------------------------------------------------------------------
// Round trips

void BM_LibrarySignHash(benchmark::State& state) {
    Client client;
    for (auto _ : state) {
        if (!client.Sign()) {
            state.SkipWithError("SignHash failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_RawSignHash(benchmark::State& state) {
    RawPost raw;
    for (auto _ : state) {
        if (!raw.Post()) {
            state.SkipWithError("raw POST failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

// Each call on a thread of its own, to a server that closed the connection
// of the call before.
void BM_LibraryCold(benchmark::State& state) {
    Client client(g_coldServer);
    for (auto _ : state) {
        bool ok = false;
        std::thread([&] { ok = client.Sign(); }).join();
        if (!ok) {
            state.SkipWithError("SignHash failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_RawCold(benchmark::State& state) {
    for (auto _ : state) {
        bool ok = false;
        std::thread([&] {
            RawPost raw(g_coldServer);
            ok = raw.Post();
        }).join();
        if (!ok) {
            state.SkipWithError("raw POST failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

// ---------------------------------------------------------------------------
// Log lines

void BM_LogLine(benchmark::State& state) {
    const std::string token = "0123456789abcdef0123456789abcdef";
    for (auto _ : state) {
        KX_LOG(KX_LOG_TRACE, "Bench", "CKXSealOpenApi::SignHash", "lRes:%d, signValueB64:%s", 0,
               token.c_str());
    }
    state.SetItemsProcessed(state.iterations());
}

// The anchor: the same text formatted into a buffer, nothing more.
void FormatOnly(char* out, size_t size, const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    std::vsnprintf(out, size, format, ap);
    va_end(ap);
}

void BM_LogFormatOnly(benchmark::State& state) {
    const std::string token = "0123456789abcdef0123456789abcdef";
    char line[512];
    for (auto _ : state) {
        FormatOnly(line, sizeof line, "<%s [%d] - %s> <\"lRes:%d, signValueB64:%s\">", "Bench",
                   __LINE__, "CKXSealOpenApi::SignHash", 0, token.c_str());
        benchmark::DoNotOptimize(line);
    }
    state.SetItemsProcessed(state.iterations());
}

// ---------------------------------------------------------------------------
// Seal lists

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

const std::string& TheSealList() {
    static const std::string reply = SealListReply();
    return reply;
}

struct SealListReader : CKXSealOpenApi {
    using CKXSealOpenApi::OnGetSealList;
};

void BM_LibrarySealList(benchmark::State& state) {
    const std::string& reply = TheSealList();
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
    state.SetItemsProcessed(state.iterations());
}

const char* Text(const tinyxml2::XMLElement* parent, const char* name) {
    const tinyxml2::XMLElement* e = parent ? parent->FirstChildElement(name) : nullptr;
    const char* text = e ? e->GetText() : nullptr;
    return text ? text : "";
}

// OpenSSL's decoder, for the plain loop.
std::string PlainBase64Decode(const std::string& in) {
    std::string out(in.size() / 4 * 3, '\0');
    const int n = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(&out[0]),
                                  reinterpret_cast<const unsigned char*>(in.data()),
                                  static_cast<int>(in.size()));
    size_t pad = 0;
    while (pad < 2 && pad < in.size() && in[in.size() - 1 - pad] == '=') ++pad;
    out.resize(n > 0 ? static_cast<size_t>(n) - pad : 0);
    return out;
}

// The same fields by a plain loop, without any of the library's checks.
void BM_PlainSealList(benchmark::State& state) {
    const std::string& reply = TheSealList();
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    std::vector<_seal_Info_s> list;
    for (auto _ : state) {
        list.clear();
        Json::Value root;
        reader->parse(reply.data(), reply.data() + reply.size(), &root, nullptr);
        const Json::Value& seals = root["seals"];
        list.reserve(seals.size());
        for (const Json::Value& element : seals) {
            _seal_Info_s seal;
            seal.certB64 = element["certB64"].asString();
            seal.sealData = element["data"].asString();
            seal.sealId = element["sesealId"].asString();
            seal.sealType = element["type"].asInt();
            seal.certId = element["certId"].asString();
            const std::string xml = PlainBase64Decode(seal.sealData);
            tinyxml2::XMLDocument doc(true, tinyxml2::PRESERVE_WHITESPACE);
            doc.Parse(xml.data(), xml.size());
            const tinyxml2::XMLElement* info =
                doc.FirstChildElement() ? doc.FirstChildElement()->FirstChildElement("SealInfo")
                                        : nullptr;
            const tinyxml2::XMLElement* property =
                info ? info->FirstChildElement("PropertyInfo") : nullptr;
            const tinyxml2::XMLElement* picture =
                info ? info->FirstChildElement("PictrueInfo") : nullptr;
            seal.sealId = Text(info, "esID");
            seal.sealName = Text(property, "name");
            seal.cert = Text(property, "cert");
            seal.sealType = std::atoi(Text(property, "type"));
            seal.picData = Text(picture, "data");
            seal.picType = Text(picture, "type");
            seal.width = std::atoi(Text(picture, "width"));
            seal.height = std::atoi(Text(picture, "height"));
            list.push_back(std::move(seal));
        }
        if (list.size() != kSeals) {
            state.SkipWithError("the seal list did not parse");
            break;
        }
        benchmark::DoNotOptimize(list.data());
    }
    state.SetItemsProcessed(state.iterations());
}

// ---------------------------------------------------------------------------
// Memory

long ResidentKb() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) return std::atol(line.c_str() + 6);
    }
    return -1;
}

void BM_LibraryMemory(benchmark::State& state) {
    Client client;
    for (auto _ : state) {
        for (int i = 0; i < 2000; ++i) client.Sign();  // warm-up
        const long before = ResidentKb();
        const unsigned long long allocations = g_allocations.load();
        for (int i = 0; i < kMemoryCalls; ++i) {
            if (!client.Sign()) {
                state.SkipWithError("SignHash failed");
                return;
            }
        }
        state.counters["allocs_per_call"] =
            static_cast<double>(g_allocations.load() - allocations) / kMemoryCalls;
        state.counters["rss_growth_kb"] = static_cast<double>(ResidentKb() - before);
    }
}

void BM_RawAllocations(benchmark::State& state) {
    RawPost raw;
    const int calls = 2000;
    for (auto _ : state) {
        for (int i = 0; i < 200; ++i) raw.Post();
        const unsigned long long allocations = g_allocations.load();
        for (int i = 0; i < calls; ++i) raw.Post();
        state.counters["allocs_per_call"] =
            static_cast<double>(g_allocations.load() - allocations) / calls;
    }
}

// ---------------------------------------------------------------------------
// Summary

double Median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

// Shows every run as the console does and keeps the figures by name.
class SummaryReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
            std::string name = run.run_name.function_name;
            const size_t round = name.find("/round:");
            if (round != std::string::npos) name.erase(round);
            for (const auto& counter : run.counters)
                figures[name + "." + counter.first].push_back(counter.second.value);
        }
    }
    double median(const std::string& key) const {
        const auto it = figures.find(key);
        return it == figures.end() ? 0 : Median(it->second);
    }
    // The median over the rounds of library/anchor within each round: a
    // burst of load from elsewhere spoils one round's pair, not the figure.
    double medianRatio(const std::string& library, const std::string& anchor) const {
        const auto a = figures.find(library);
        const auto b = figures.find(anchor);
        if (a == figures.end() || b == figures.end()) return 0;
        std::vector<double> ratios;
        for (size_t i = 0; i < a->second.size() && i < b->second.size(); ++i)
            if (b->second[i] > 0) ratios.push_back(a->second[i] / b->second[i]);
        return Median(ratios);
    }
    std::map<std::string, std::vector<double>> figures;
};

void PrintSummary(const SummaryReporter& r) {
    struct Pair {
        const char* title;
        const char* library;
        const char* anchor;
        double target;
    };
    const Pair pairs[] = {
        {"1 SignHash, one kept-alive TLS connection", "SignHash/library", "SignHash/raw_curl",
         0.95},
        {"2 eight threads, a client each", "Threads8/library", "Threads8/raw_curl", 0.9},
        {"4 1,000-seal list read", "SealList/library", "SealList/plain_jsoncpp_tinyxml2", 0.9},
        {"6 cold call from a new thread", "Cold/library", "Cold/raw_fresh_handle", 1.5},
    };
    std::printf(
        "\nMedians of %d alternating rounds            library/s    anchor/s   ratio  target\n"
        "  (ratio: the median of the rounds' own library/anchor ratios)\n",
        kRounds);
    for (const Pair& p : pairs) {
        const std::string libKey = std::string(p.library) + ".items_per_second";
        const std::string rawKey = std::string(p.anchor) + ".items_per_second";
        const double lib = r.median(libKey);
        const double raw = r.median(rawKey);
        const double ratio = r.medianRatio(libKey, rawKey);
        std::printf("  %-40s %10.0f  %10.0f   %5.2f  >= %.2f %s\n", p.title, lib, raw, ratio,
                    p.target, ratio >= p.target ? "met" : "NOT MET");
    }
    const double line = r.median("LogLine/trace.items_per_second");
    const double format = r.median("LogLine/format_only.items_per_second");
    const double lineUs = line > 0 ? 1e6 / line : 0;
    std::printf("  %-40s %8.3f us  %8.3f us (formatting alone)  <= 1 us %s\n",
                "5 trace log line, caller's thread", lineUs, format > 0 ? 1e6 / format : 0,
                lineUs > 0 && lineUs <= 1.0 ? "met" : "NOT MET");
    const double growth = r.median("Memory/library_100k_calls.rss_growth_kb");
    std::printf("  %-40s %8.0f kB  resident growth over %d calls  < 1024 kB %s\n", "3 memory",
                growth, kMemoryCalls, growth < 1024 ? "met" : "NOT MET");
    std::printf("  %-40s %8.1f      %8.1f (raw libcurl)\n", "  allocations per call",
                r.median("Memory/library_100k_calls.allocs_per_call"),
                r.median("Memory/raw_curl_allocations.allocs_per_call"));
}

// For a profile of the calling thread (valgrind --tool=callgrind
// --separate-threads=yes --toggle-collect='*Profile*'): n calls of one side.
__attribute__((noinline)) void ProfileLibrary(Client& client, int n) {
    for (int i = 0; i < n; ++i) client.Sign();
}

__attribute__((noinline)) void ProfileRaw(RawPost& raw, int n) {
    for (int i = 0; i < n; ++i) raw.Post();
}

__attribute__((noinline)) void ProfileLogLines(int n) {
    const std::string token = "0123456789abcdef0123456789abcdef";
    for (int i = 0; i < n; ++i)
        KX_LOG(KX_LOG_TRACE, "Bench", "CKXSealOpenApi::SignHash", "lRes:%d, signValueB64:%s", 0,
               token.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    // A private configuration and log, and no proxy: everything stays on loopback.
    char dir[] = "/tmp/kxbench.XXXXXX";
    if (mkdtemp(dir) == nullptr) return 1;
    const std::string configPath = std::string(dir) + "/KXServerApi.ini";
    const std::string logPath = std::string(dir) + "/bench.log";
    std::ofstream(configPath) << "[KXUtils]\nProxy=\nCAFile=" << kxtest::TestCA::instance().caFile()
                              << "\nLogFile=" << logPath
                              << "\n[OpenApiURL]\nServerFlag=1\nSignHashUrl=" << kSignPath << "\n";
    // The store as an application keeps it: not seconds old (one that changed
    // in the last two seconds is read again on every look).
    const time_t past = time(nullptr) - 60;
    struct timespec times[2] = {{past, 0}, {past, 0}};
    utimensat(AT_FDCWD, configPath.c_str(), times, 0);
    setenv("KX_CONFIG_FILE", configPath.c_str(), 1);
    setenv("KX_LOG_FILE", logPath.c_str(), 1);
    setenv("KX_CONFIG_KEY_FILE", (std::string(dir) + "/config.key").c_str(), 1);

    Loopback server(100000000);
    Loopback coldServer(1);
    g_server = &server;
    g_coldServer = &coldServer;
    {
        // One request first, so that the raw side can send the library's exact bytes.
        Client warmup;
        if (!warmup.Sign()) {
            std::cerr << "seal_bench: the loopback server did not answer\n";
            return 1;
        }
    }

    if (argc == 3 && std::string(argv[1]) == "--profile") {
        const int n = std::atoi(argv[2]);
        Client client;
        RawPost raw;
        client.Sign();
        raw.Post();
        ProfileLibrary(client, n);
        ProfileRaw(raw, n);
        ProfileLogLines(n);
        return 0;
    }
    if (argc == 4 &&
        (std::string(argv[1]) == "--profile-cold" || std::string(argv[1]) == "--profile-warm")) {
        // Whole-process counts (server and log writer included): run once per
        // side. Cold calls each come from a new thread to the closing server.
        const bool cold = std::string(argv[1]) == "--profile-cold";
        const bool library = std::string(argv[2]) == "library";
        const int n = std::atoi(argv[3]);
        Loopback* target = cold ? g_coldServer : g_server;
        Client client(target);
        RawPost warm(target);
        for (int i = 0; i < n; ++i) {
            if (!cold) {
                library ? client.Sign() : warm.Post();
                continue;
            }
            std::thread([&] {
                if (library) {
                    client.Sign();
                } else {
                    RawPost raw(g_coldServer);
                    raw.Post();
                }
            }).join();
        }
        KX_FlushLog();
        return 0;
    }

    for (int round = 1; round <= kRounds; ++round) {
        const std::string suffix = "/round:" + std::to_string(round);
        auto add = [&](const std::string& name, void (*fn)(benchmark::State&)) {
            return benchmark::RegisterBenchmark((name + suffix).c_str(), fn)
                ->UseRealTime()
                ->MinTime(0.5);
        };
        add("SignHash/library", BM_LibrarySignHash);
        add("SignHash/raw_curl", BM_RawSignHash);
        add("Threads8/library", BM_LibrarySignHash)->Threads(kThreads);
        add("Threads8/raw_curl", BM_RawSignHash)->Threads(kThreads);
        add("Cold/library", BM_LibraryCold);
        add("Cold/raw_fresh_handle", BM_RawCold);
        add("LogLine/trace", BM_LogLine);
        add("LogLine/format_only", BM_LogFormatOnly);
        add("SealList/library", BM_LibrarySealList)->Unit(benchmark::kMillisecond);
        add("SealList/plain_jsoncpp_tinyxml2", BM_PlainSealList)->Unit(benchmark::kMillisecond);
    }
    benchmark::RegisterBenchmark("Memory/library_100k_calls", BM_LibraryMemory)
        ->Iterations(1)
        ->Unit(benchmark::kSecond);
    benchmark::RegisterBenchmark("Memory/raw_curl_allocations", BM_RawAllocations)->Iterations(1);

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    PrintSummary(reporter);

    for (const std::string& f : {logPath, logPath + ".1", configPath, configPath + ".lock"})
        std::remove(f.c_str());
    rmdir(dir);
    return 0;
}
