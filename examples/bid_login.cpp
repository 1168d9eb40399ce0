// A BID login: the desktop opens a login task, shows its URL (as a QR code, in
// a real application) for the user to approve on a mobile device, and polls
// until the user decided. The token it gets serves the other BID calls.
//
//   bid_login APP_ID
//
// The BID service comes from section [KXPlatform] of the configuration store.
#include <CorvaneApi.h>
#include <KXServerApi.h>
#include <KXUtils.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

int main(int argc, char** argv) {
    if (argc != 2) return std::fprintf(stderr, "usage: bid_login APP_ID\n"), 2;
    _init_Info_s server;
    KX_GetServerConfig("KXPlatform", server);
    CCorvaneApi api;
    if (long rc = api.Init(server)) return std::fprintf(stderr, "Init: %ld\n", rc), 1;

    std::string taskId, url, scanMode;
    // Login type 1 asks for the application's certificates too; 0: no head.
    if (long rc = api.CreateBIDLoginTask(taskId, url, scanMode, argv[1], 1, 0))
        return std::fprintf(stderr, "CreateBIDLoginTask: %ld\n", rc), 1;
    std::printf("approve on the device: %s (scan mode %s)\n", url.c_str(), scanMode.c_str());

    // The caller drives the polling; status 1 brings the results.
    std::string ouid, orgId, encCert, cert, token, orgName, publicKey, raw, userInfo;
    int status = 0;
    for (int i = 0; i < 120 && status == 0; ++i) {
        if (i > 0) std::this_thread::sleep_for(std::chrono::milliseconds(500));
        if (long rc = api.QueryBIDLoginResultTask(taskId, ouid, orgId, status, encCert, cert, token,
                                                  orgName, publicKey, raw, userInfo, 0))
            return std::fprintf(stderr, "QueryBIDLoginResultTask: %ld\n", rc), 1;
    }
    if (status != 1) return std::fprintf(stderr, "not approved (status %d)\n", status), 1;
    std::printf("logged in: token %s\nuser %s\n", token.c_str(), userInfo.c_str());
    api.GetBIDLoginOutTask(token);
    return 0;
}
