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
    // {SerType, id, secret, host, port}: types 2 and 4 need only host and
    // port, 9 and 10 id and host, the rest all four.
    const struct {
        _init_Info_s info;
        long code;
    } rows[] = {
        {Info(2, "", "", "h", 443), 0},
        {Info(4, "", "", "h", 1), 0},
        {Info(2, "id", "s", "h", 0), 10001},
        {Info(2, "", "", "", 443), 10001},
        {Info(9, "id", "", "h", 0), 0},
        {Info(10, "id", "", "h", -5), 0},
        {Info(9, "", "s", "h", 1), 10001},
        {Info(3, "id", "s", "h", 1), 0},
        {Info(3, "id", "", "h", 1), 10001},
        {Info(0, "id", "s", "h", -1), 10001},
        {_init_Info_s(), 10001},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.code, KXServerBase::CheckInitInfo(row.info))
            << row.info.SerType << " " << row.info.ProjectID << " " << row.info.Port;
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
    // {text, default, code, type afterwards}; a refusal leaves the type alone.
    const struct {
        const char* text;
        int defaultType;
        long code;
        int type;
    } rows[] = {{"3.0", -1, 0, 2},
                {"agent", -1, 0, 4},
                {"", 7, 0, 7},
                {"", -1, 10001, 7},
                {"3.0 ", 1, 10001, 7}};
    int type = -9;
    for (const auto& row : rows) {
        EXPECT_EQ(row.code, KX_GetServerTypeByStr(row.text, type, row.defaultType)) << row.text;
        EXPECT_EQ(row.type, type) << row.text;
    }
    EXPECT_NE(std::string::npos, env.readLog().find("lRes:10001, nServerType:7"));
}
