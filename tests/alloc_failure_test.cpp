// Out of memory at every allocation in turn: an exported function answers
// with a code (or its plain value) and never lets std::bad_alloc out.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <new>
#include <string>

#include "CloudCheckCert.h"
#include "CorvaneApi.h"
#include "FakeTransport.h"
#include "InkwellApi.h"
#include "KXSealOpenApi.h"
#include "KXServerApi.h"
#include "KXUtils.h"
#include "TempEnv.h"

namespace {

// Allocations left before the next one fails; negative: none fails.
thread_local long t_allocationsLeft = -1;
thread_local long t_armed = -1;

// Called by a case once its own set-up is done: from here on allocations count.
void Arm() {
    t_allocationsLeft = t_armed;
}

}  // namespace

void* operator new(std::size_t size) {
    if (t_allocationsLeft == 0) throw std::bad_alloc();
    if (t_allocationsLeft > 0) --t_allocationsLeft;
    if (void* p = std::malloc(size != 0 ? size : 1)) return p;
    throw std::bad_alloc();
}
// The replacement pair is malloc and free throughout; GCC cannot see that
// once it inlines them into the library's containers.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
#pragma GCC diagnostic pop

namespace {

// Runs f with the n-th allocation after its Arm() failing, for n = 0, 1, ...
// until a run needs no failing allocation; every run must return normally.
void FailEachAllocation(const char* what, const std::function<void()>& f) {
    for (long n = 0; n < 100000; ++n) {
        t_armed = n;
        bool escaped = false;
        try {
            f();
        } catch (...) {
            escaped = true;
        }
        const bool ranOut = t_allocationsLeft == 0;
        t_allocationsLeft = t_armed = -1;
        ASSERT_FALSE(escaped) << what << ": exception with allocation " << n << " failing";
        if (!ranOut) return;
    }
}

}  // namespace

// Helpers and whole operations, each run with a fresh fake transport that
// accepts one reply, so nothing is left over from a run that sent nothing.
TEST(AllocFailure, ExportedFunctionsAnswerWithACode) {
    TempEnv env;
    ASSERT_TRUE(env.set("Srv", "Host", "127.0.0.1"));
    ASSERT_TRUE(env.set("Srv", "ProjectSecret", "s"));
    const _init_Info_s info = kxtest::FakeRecord();
    const std::string reply = R"({"errCode":0,"data":{"certId_openca":"42","uKeyNum":"U",)"
                              R"("extention":"{\"authCode\":\"A\"}"}})";
    CCorvaneApi platform;
    ASSERT_EQ(0, platform.Init(info));
    CKXSealOpenApi seal;
    seal.m_stInitInfo = info;
    seal.strHost = "h.example";
    seal.strLoginUrl = "/login";
    seal.strGetSealListUrl = "/seals";
    CInkwellApi legacy;
    ASSERT_EQ(0, legacy.Init(info));
    CCloudCheckCert check;
    ASSERT_EQ(0, check.Init(info));
    const std::string seals =
        R"({"errCode":0,"seals":[{"data":")" +
        IWK_Base64Encode(
            "<Seal><SealInfo><esID>1</esID><PropertyInfo><name>n</name><cert>C</cert>"
            "<type>1</type></PropertyInfo><PictrueInfo><data>P</data><type>png</type>"
            "<width>1</width><height>1</height></PictrueInfo></SealInfo></Seal>") +
        R"("}]})";
    // Runs op with one reply waiting, counting allocations from its start.
    auto withReply = [](const std::string& body, const std::function<void()>& op) {
        return [body, op] {
            kxtest::FakeTransport fake;
            fake.reply(200, body);
            Arm();
            op();
        };
    };
    std::string text, other;
    int number = 0;
    std::vector<_seal_Info_s> list;
    Json::Value root;
    kxjson::Parse(reply, root);
    const std::pair<const char*, std::function<void()>> cases[] = {
        {"KX_GetServerConfig", withReply("",
                                         [] {
                                             _init_Info_s read;
                                             KX_GetServerConfig("Srv", read);
                                         })},
        {"KXServerBase::Init", withReply("", [&] { KXServerBase().Init(info); })},
        {"MakeCertFields::ReadReply",
         withReply("", [&] { MakeCertFields().ReadReply(root["data"]); })},
        {"KX_GetServerTypeByStr",
         withReply("", [&] { KX_GetServerTypeByStr("agent", number, 0); })},
        {"CCorvaneApi::GetAllInfo", withReply(R"({"code":0,"data":{"baseRealname":{"code":"c"}}})",
                                              [&] { platform.GetAllInfo("acc", text, other); })},
        {"CCorvaneApi::QueryBIDLoginResultTask",
         withReply(R"({"code":0,"data":{"status":1,"idNo":"110101199001011234","name":"n",)"
                   R"("addressInfo":{"cityName":"c"},"servicesInProject":[{"endTime":5}]}})",
                   [&] {
                       platform.QueryBIDLoginResultTask("T", text, other, number, text, other, text,
                                                        other, text, other, text, 0);
                   })},
        {"CKXSealOpenApi::Login",
         withReply(R"({"errCode":0,"token":"t"})", [&] { seal.Login("u", "p", 2); })},
        {"CKXSealOpenApi::GetSealList", withReply(seals, [&] { seal.GetSealList(0, "sn", list); })},
        {"CInkwellApi::UpdateUkeyTryTime",
         withReply(R"({"errCode":0,"data":{"remainingTime":3}})",
                   [&] { legacy.UpdateUkeyTryTime("SN", true, false, number); })},
        {"CCloudCheckCert::CheckCert",
         withReply("<result><retcode>0</retcode></result>", [&] { check.CheckCert("C"); })},
        {"KXSER_CertServiceQuery", withReply(R"({"code":0,"data":{"a":[1]}})",
                                             [&] { KXSER_CertServiceQuery("SN", nullptr, text); })},
    };
    for (const auto& c : cases) FailEachAllocation(c.first, c.second);
}
