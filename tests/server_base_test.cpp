// Completeness rule of a server description, reading one from the store,
// and the server type texts.
#include <gtest/gtest.h>

#include "KXServerApi.h"
#include "KXUtils.h"
#include "TempEnv.h"

namespace {

_init_Info_s Info(int type, const char* id, const char* secret, const char* host, int port) {
    _init_Info_s info;
    info.SerType = type;
    info.ProjectID = id;
    info.ProjectSecret = secret;
    info.ServerIp = host;
    info.Port = port;
    return info;
}

}  // namespace

TEST(ServerBase, CheckInitInfoRules) {
    TempEnv env;
    EXPECT_EQ(0, KXServerBase::CheckInitInfo(Info(2, "", "", "h", 443)));
    EXPECT_EQ(0, KXServerBase::CheckInitInfo(Info(4, "", "", "h", 1)));
    EXPECT_EQ(10001, KXServerBase::CheckInitInfo(Info(2, "id", "s", "h", 0)));
    EXPECT_EQ(10001, KXServerBase::CheckInitInfo(Info(2, "", "", "", 443)));
    EXPECT_EQ(0, KXServerBase::CheckInitInfo(Info(9, "id", "", "h", 0)));
    EXPECT_EQ(0, KXServerBase::CheckInitInfo(Info(10, "id", "", "h", -5)));
    EXPECT_EQ(10001, KXServerBase::CheckInitInfo(Info(9, "", "s", "h", 1)));
    EXPECT_EQ(0, KXServerBase::CheckInitInfo(Info(3, "id", "s", "h", 1)));
    EXPECT_EQ(10001, KXServerBase::CheckInitInfo(Info(3, "id", "", "h", 1)));
    EXPECT_EQ(10001, KXServerBase::CheckInitInfo(Info(0, "id", "s", "h", -1)));
    EXPECT_EQ(10001, KXServerBase::CheckInitInfo(_init_Info_s()));
    // The secret never reaches the log line of the check.
    KXServerBase::CheckInitInfo(Info(3, "proj", "TopSecret-123", "host.example", 8443));
    const std::string log = env.readLog();
    EXPECT_NE(std::string::npos,
              log.find("lRes:0, ProjectID:proj,ServerIp:host.example, Port:8443, SerType:3"));
    EXPECT_EQ(std::string::npos, log.find("TopSecret-123"));
}

TEST(ServerBase, InitKeepsLastCompleteRecordAndCopiesDeeply) {
    TempEnv env;
    KXServerBase base;
    EXPECT_FALSE(base.IsInit());
    EXPECT_EQ(10001, base.Init(Info(0, "id", "", "h", 1)));
    EXPECT_FALSE(base.IsInit());
    EXPECT_EQ(0, base.Init(Info(0, "id", "s", "h", 1)));
    EXPECT_TRUE(base.IsInit());
    EXPECT_EQ(10001, base.Init(_init_Info_s()));
    EXPECT_TRUE(base.IsInit());
    EXPECT_EQ("s", base.m_stInitInfo.ProjectSecret);

    KXServerBase copy(base);
    base.m_stInitInfo.ServerIp = "changed";
    EXPECT_EQ("h", copy.m_stInitInfo.ServerIp);
    copy = copy;  // self-assignment keeps every string
    EXPECT_EQ("h", copy.m_stInitInfo.ServerIp);
    EXPECT_TRUE(copy.IsInit());
}

TEST(ServerBase, GetServerConfigReadsKeysAndSecrets) {
    TempEnv env;
    env.writeConfig(
        "[Seal]\nSerType=3\nHost=seal.example\nPort=8443\nProjectID=p1\nProjectSecret=" +
        IWK_EncryptConfigInfo("s3cr\xD6\xD0") + "\nserverVer=5.3\n[Clear]\nProjectSecret=plain\n" +
        "[Broken]\nProjectSecret=KXENC1:AAAA\nPort=abc\n");
    _init_Info_s info;
    info.serverVer = "keep";
    EXPECT_EQ(0, KX_GetServerConfig("Seal", info));
    EXPECT_EQ(3, info.SerType);
    EXPECT_EQ("seal.example", info.ServerIp);
    EXPECT_EQ(8443, info.Port);
    EXPECT_EQ("p1", info.ProjectID);
    EXPECT_EQ("s3cr\xD6\xD0", info.ProjectSecret);
    EXPECT_EQ("keep", info.serverVer);  // only the five keys are read

    _init_Info_s clear;
    EXPECT_EQ(0, KX_GetServerConfig("Clear", clear));
    EXPECT_EQ("plain", clear.ProjectSecret);
    EXPECT_EQ("", clear.ServerIp);

    // A secret that does not decipher is kept as stored.
    _init_Info_s broken;
    broken.Port = 99;
    EXPECT_EQ(0, KX_GetServerConfig("Broken", broken));
    EXPECT_EQ("KXENC1:AAAA", broken.ProjectSecret);
    EXPECT_EQ(0, broken.Port);

    _init_Info_s none;
    EXPECT_EQ(0, KX_GetServerConfig("NoSuchSection", none));
    EXPECT_EQ(10001, KXServerBase::CheckInitInfo(none));
}

TEST(ServerBase, ServerTypeTexts) {
    TempEnv env;
    int type = -9;
    EXPECT_EQ(0, KX_GetServerTypeByStr("3.0", type, -1));
    EXPECT_EQ(2, type);
    EXPECT_EQ(0, KX_GetServerTypeByStr("agent", type, -1));
    EXPECT_EQ(4, type);
    EXPECT_EQ(0, KX_GetServerTypeByStr("", type, 7));
    EXPECT_EQ(7, type);
    EXPECT_EQ(10001, KX_GetServerTypeByStr("", type, -1));
    EXPECT_EQ(7, type);
    EXPECT_EQ(10001, KX_GetServerTypeByStr("3.0 ", type, 1));
    EXPECT_EQ(7, type);
    EXPECT_NE(std::string::npos, env.readLog().find("lRes:10001, nServerType:7"));
}
