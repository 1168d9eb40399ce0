// Any bytes as a forward reply: the forward envelope, then the four seal-list
// readers behind it (integrate list, list by serial, the sister service's
// token and list), called both through the functions and directly.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <unistd.h>

#include "KXSealOpenApi.h"
#include "KXUtils.h"
#include "frame/ReplyReaders.h"
#include "seal/SealListParsers.h"

namespace {

std::string g_reply;

long Forward(const char*, size_t, std::string& reply, const _init_Info_s*) {
    reply = g_reply;
    return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::vector<_seal_Info_s> seals;
    std::string token, inner;
    OnParseSealListRes(text, seals, false);
    OnParseSealListRes(text, seals, true);
    OnParseSealListRes2(text, seals);
    OnParseRBNSealListRes(text, seals);
    OnParseRBNTokenRes(text, token);
    KXReadForwardReply(text, inner);

    static bool configured = [] {
        // A store of its own: the functions read their server URLs from it.
        char path[] = "/tmp/kx_seal_list_fuzz_XXXXXX";
        const int fd = ::mkstemp(path);
        if (fd >= 0) ::close(fd);
        ::setenv("KX_CONFIG_FILE", path, 1);
        static const std::string keep = path;
        std::atexit([] {
            ::unlink(keep.c_str());
            ::unlink((keep + ".lock").c_str());
        });
        IWK_SetForwarder(Forward);
        // Failures only: trace lines would mask every input again on the
        // writer thread, which mask_fuzz already covers.
        IWK_SetConfigByKey("KXUtils", "LogLevel", "4");
        return IWK_SetConfigByKey("KXSign", "serverUrl", "https://h.example") == 1 &&
               IWK_SetConfigByKey("RbnSeal", "serverUrl", "https://h.example") == 1;
    }();
    (void)configured;
    g_reply = text;
    seals.clear();
    KX_GetSealListByYPT("cert", "ukey", "SM2", "b3JpZw==", "c2ln", 1, seals, false);
    KX_GetSealListByCertSN("01AB", seals);
    KX_GetSealListByCert_RBN("cert", "ukey", 1, seals);
    return 0;
}
