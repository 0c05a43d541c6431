// BleSDK: loading, retrying, destroying, and the result codes of clients.
#include "bleSDK.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "modelFixture.h"

TEST(BleSdk, TheFirstInstanceTriesTheFileOfItsModelAndEachQuestionAgain) {
    fakes::Reset();
    fakes::SetModelNumber(0, 51);  // no test machine has a file of it
    const fakes::LogCapture log(KZ_LOG_ERROR);
    BleSDK* sdk = BleSDK::GetInstance();

    EXPECT_EQ(sdk->m_settingsPath, "/usr/local/zorvik/etc/tamarind/settings.json");
    EXPECT_EQ(log.Texts(), (Texts{"No data read from file \n", " failed to parse settings.json"}));
    EXPECT_EQ(BleSDK::GetInstance(), sdk);
    EXPECT_EQ(BleSDK::LoadedMapping(), nullptr);
    EXPECT_EQ(log.Texts().size(), 4u);

    const std::string path = "/tmp/kzBleSdkTest." + std::to_string(getpid()) + ".json";
    std::ofstream(path) << R"({"version":1,"modes":0,"settings":[],"status":{"groups":[]},"filters":[]})";
    sdk->m_settingsPath = path;
    SettingsStatusMapping* mapping = BleSDK::LoadedMapping();
    std::remove(path.c_str());
    ASSERT_NE(mapping, nullptr);
    EXPECT_EQ(mapping->modelNumber, 51);
    sdk->LoadSettingsStatus();
    EXPECT_TRUE(log.Has("Already loaded settings mapping"));
    EXPECT_EQ(BleSDK::LoadedMapping(), mapping);

    BleSDK::Destroy();
    fakes::SetModelNumber(0, 7);
    EXPECT_EQ(BleSDK::GetInstance()->m_settingsPath, "/usr/local/zorvik/etc/unknown/settings.json");
    BleSDK::Destroy();
}

TEST(BleSdk, ErrorsBecomeTheResultByteOfClients) {
    for (const auto& [error, result] : std::map<int, int>{
             {0, 0}, {-3, 2}, {1, 1}, {7, 7}, {14, 14}, {15, 1}, {-1, 1}, {-17, 1}, {-101, 1}, {2147483647, 1}}) {
        EXPECT_EQ(BleSDK::SetKZErrNo(error), result) << error;
    }
}
