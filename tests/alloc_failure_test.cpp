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
#include "KXReplyParsers.h"
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
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}

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

TEST(AllocFailure, ExportedFunctionsAnswerWithACode) {
    TempEnv env;
    ASSERT_TRUE(env.set("Srv", "Host", "127.0.0.1"));
    ASSERT_TRUE(env.set("Srv", "ProjectSecret", "s"));
    _init_Info_s info;
    info.ProjectID = "p";
    info.ProjectSecret = "s";
    info.ServerIp = "host";
    info.Port = 1;
    const std::string reply = R"({"errCode":0,"data":{"certId_openca":"42","uKeyNum":"U",)"
                              R"("extention":"{\"authCode\":\"A\"}"}})";

    FailEachAllocation("KX_GetServerConfig", [] {
        _init_Info_s read;
        Arm();
        KX_GetServerConfig("Srv", read);
    });
    FailEachAllocation("KXServerBase::Init", [&] {
        KXServerBase base;
        Arm();
        base.Init(info);
    });
    FailEachAllocation("MakeCertFields::ReadReply", [&] {
        Json::Value root;
        kxjson::Parse(reply, root);
        MakeCertFields fields;
        Arm();
        fields.ReadReply(root["data"]);
    });
    FailEachAllocation("ParseErrCodeEnvelope", [&] {
        KXReqResult result;
        result.msg = reply;
        Json::Value data;
        Arm();
        ParseErrCodeEnvelope(result, data);
    });
    FailEachAllocation("KX_GetServerTypeByStr", [] {
        int type = 0;
        const std::string text = "agent";
        Arm();
        KX_GetServerTypeByStr(text, type, 0);
    });
    FailEachAllocation("KXSER_CertServiceQuery", [] {
        std::string result;
        Arm();
        KXSER_CertServiceQuery(nullptr, nullptr, result);
    });
}

// The same through whole operations, with a reply accepted each time.
TEST(AllocFailure, OperationsAnswerWithACode) {
    TempEnv env;
    _init_Info_s info;
    info.SerType = 3;
    info.ProjectID = "p";
    info.ProjectSecret = "s";
    info.ServerIp = "h.example";
    info.Port = 443;
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

    // Each run has a fresh fake, so no answer is left over from a run that
    // failed before sending.
    FailEachAllocation("CCorvaneApi::GetAllInfo", [&] {
        std::string code, phone;
        kxtest::FakeTransport fake;
        fake.reply(200, R"({"code":0,"data":{"baseRealname":{"code":"c"}}})");
        Arm();
        platform.GetAllInfo("acc", code, phone);
    });
    FailEachAllocation("CKXSealOpenApi::Login", [&] {
        kxtest::FakeTransport fake;
        fake.reply(200, R"({"errCode":0,"token":"t"})");
        Arm();
        seal.Login("u", "p", 2);
    });
    FailEachAllocation("CKXSealOpenApi::GetSealList", [&] {
        std::vector<_seal_Info_s> list;
        kxtest::FakeTransport fake;
        fake.reply(200, seals);
        Arm();
        seal.GetSealList(0, "sn", list);
    });
    FailEachAllocation("CInkwellApi::UpdateUkeyTryTime", [&] {
        int remaining = 0;
        kxtest::FakeTransport fake;
        fake.reply(200, R"({"errCode":0,"data":{"remainingTime":3}})");
        Arm();
        legacy.UpdateUkeyTryTime("SN", true, false, remaining);
    });
    FailEachAllocation("CCloudCheckCert::CheckCert", [&] {
        kxtest::FakeTransport fake;
        fake.reply(200, "<result><retcode>0</retcode></result>");
        Arm();
        check.CheckCert("C");
    });
    FailEachAllocation("KXSER_CertServiceQuery", [&] {
        std::string result;
        kxtest::FakeTransport fake;
        fake.reply(200, R"({"code":0,"data":{"a":[1]}})");
        Arm();
        KXSER_CertServiceQuery("SN", nullptr, result);
    });
}
