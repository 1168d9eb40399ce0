// Network faults against a real server on loopback, through one operation of
// each client: every fault ends in its documented code within the configured
// time-outs (a missing time-out would hang the test, not pass it).
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "CloudCheckCert.h"
#include "CorvaneApi.h"
#include "ECertExpand.h"
#include "FakeTransport.h"
#include "InkwellApi.h"
#include "KXPrintCtrl.h"
#include "KXRecords.h"
#include "KXSealOpenApi.h"
#include "KXUtils.h"
#include "LoopbackServer.h"
#include "TempEnv.h"
#include "TestCA.h"

using kxtest::LoopbackServer;
using kxtest::Reply;
using kxtest::TestCA;

namespace {

_init_Info_s RecordAt(int port, int serType = 3) {
    _init_Info_s info = kxtest::FakeRecord();
    info.SerType = serType;
    info.ServerIp = "127.0.0.1";
    info.Port = port;
    return info;
}

// For the clients whose URL puts the record's host and port together.
_init_Info_s HostPortRecordAt(int port) {
    _init_Info_s info = RecordAt(port);
    info.ServerIp += ":" + std::to_string(port);
    return info;
}

// One operation of each client, against the server at port.
struct Client {
    const char* name;
    std::function<long(int port)> call;
};

const std::vector<Client>& Clients() {
    static const std::vector<Client> clients = {
        {"seal Login",
         [](int port) {
             CKXSealOpenApi api;
             api.Init(RecordAt(port));
             return api.Login("user", "pwd", 0);
         }},
        {"platform GetIdentityInfo",
         [](int port) {
             CCorvaneApi api;
             api.Init(HostPortRecordAt(port));
             std::string code;
             return api.GetIdentityInfo("acc-1", code);
         }},
        {"print QueryPrintInfo",
         [](int port) {
             KXPrintCtrl api;
             api.Init(RecordAt(port));
             int total = 0, remain = 0;
             return api.QueryPrintInfo("7", total, remain);
         }},
        {"certificate CheckCert",
         [](int port) {
             CCloudCheckCert api;
             api.Init(RecordAt(port, 2));
             return api.CheckCert("MIIB");
         }},
        {"legacy MakeCert",
         [](int port) {
             CInkwellApi api;
             api.Init(RecordAt(port));
             MakeCertData data;
             return api.MakeCert("CSR", "{}", data);
         }},
        {"BID GetBIDSealTask",
         [](int port) {
             CCorvaneApi api;
             api.Init(HostPortRecordAt(port));
             std::string seals;
             return api.GetBIDSealTask("acc-1", "", seals);
         }},
        {"certificate expand CheckServiceRequest",
         [](int port) {
             CECertExpand api;
             api.Init(HostPortRecordAt(port));
             bool expired = false;
             return api.CheckServiceRequest("U", expired);
         }},
        // The free functions take their server from the store.
        {"seal list KX_GetSealListByCertSN",
         [](int port) {
             IWK_SetConfigByKey("KXSign", "serverUrl",
                                ("https://127.0.0.1:" + std::to_string(port)).c_str());
             std::vector<_seal_Info_s> seals;
             return KX_GetSealListByCertSN("01AB", seals);
         }},
        {"records KX_UKeyEventUpload",
         [](int port) {
             IWK_SetConfigByKey("KXCertBase", "eventCallBackUrl",
                                ("https://127.0.0.1:" + std::to_string(port) + "/event").c_str());
             return KX_UKeyEventUpload("UK1", "01AB", "CN", 0);
         }},
    };
    return clients;
}

// A port on which nothing listens.
int RefusingPort() {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof addr;
    ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &length);
    ::close(fd);
    return ntohs(addr.sin_port);
}

}  // namespace

TEST(Faults, EachEndsInItsCodeThroughEveryClient) {
    TempEnv env;
    ASSERT_TRUE(env.set("KXUtils", "CAFile", TestCA::instance().caFile()));
    ASSERT_TRUE(env.set("KXUtils", "TimeoutMs", "1000"));
    ASSERT_TRUE(env.set("KXUtils", "ConnectTimeoutMs", "1000"));
    ASSERT_TRUE(env.set("KXUtils", "MaxReplyBytes", "1000"));
    // The seal client at the record's server rather than a discovered one.
    ASSERT_TRUE(env.set("OpenApiURL", "ServerFlag", "1"));
    ASSERT_TRUE(env.set("OpenApiURL", "LoginUrl", "/login"));

    using Fault = Reply::Fault;
    using Flaw = TestCA::Flaw;
    auto faulty = [](Fault fault, std::string body = std::string(400, 'r')) {
        Reply reply(200, std::move(body));
        reply.fault = fault;
        return reply;
    };
    Reply loop(302, "");
    loop.headers = {{"Location", "/loop"}};
    struct Row {
        const char* fault;
        const TestCA* ca;  // the server's certificate; null: no server at all
        Reply reply;
        long code;
    };
    const TestCA* good = &TestCA::instance();
    const std::vector<Row> rows = {
        {"refused", nullptr, Reply(), KX_ERR_HTTP_CONNECT},
        {"reset mid-reply", good, faulty(Fault::Reset), KX_ERR_HTTP_TRANSPORT},
        {"stall", good, faulty(Fault::Stall), KX_ERR_HTTP_TIMEOUT},
        {"slow drip", good, faulty(Fault::Drip), KX_ERR_HTTP_TIMEOUT},
        {"oversize", good, Reply(200, std::string(5000, 'o')), KX_ERR_HTTP_TOO_LARGE},
        {"truncated chunked", good, faulty(Fault::CutChunked), KX_ERR_HTTP_TRANSPORT},
        {"expired certificate", &TestCA::flawed(Flaw::Expired), Reply(), KX_ERR_HTTP_TLS},
        {"self-signed certificate", &TestCA::flawed(Flaw::SelfSigned), Reply(), KX_ERR_HTTP_TLS},
        {"wrong-host certificate", &TestCA::flawed(Flaw::WrongHost), Reply(), KX_ERR_HTTP_TLS},
        {"wrong CA", &TestCA::unrelated(), Reply(), KX_ERR_HTTP_TLS},
        {"401", good, Reply(401, "denied"), 401},
        {"403", good, Reply(403, "denied"), 403},
        {"500", good, Reply(500, "broken"), 500},
        {"redirect loop", good, loop, 302},
    };
    for (const Row& row : rows) {
        for (const Client& client : Clients()) {
            std::unique_ptr<LoopbackServer> server;
            int port = RefusingPort();
            if (row.ca != nullptr) {
                server.reset(new LoopbackServer(LoopbackServer::Scheme::Https, row.ca));
                server->setDefaultReply(row.reply);
                port = server->port();
            }
            EXPECT_EQ(row.code, client.call(port)) << row.fault << " / " << client.name;
        }
    }
}
