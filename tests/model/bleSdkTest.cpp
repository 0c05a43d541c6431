// BleSDK: loading, retrying, destroying, and the result codes of clients.
#include "bleSDK.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "modelFixture.h"

namespace {

const std::string kGoodFile = R"({"version":1,"modes":0,"settings":[],"status":{"groups":[]},"filters":[]})";

// The instance of a test machine finds no file under the system's path; the path is then turned to a file of the test.
class Facade : public testing::Test {
  protected:
    Facade() : m_path("/tmp/kzBleSdkTest." + std::to_string(getpid()) + ".json") { fakes::Reset(); }
    ~Facade() override {
        BleSDK::Destroy();
        std::remove(m_path.c_str());
    }
    // For the model "tamarind", which no test machine has a file of.
    BleSDK* MakeInstance() {
        fakes::SetModelNumber(0, 51);
        return BleSDK::GetInstance();
    }

    std::string m_path;
    fakes::LogCapture m_log{2};
};

TEST_F(Facade, FirstInstanceTriesToLoadOnceFromThePathOfTheModel) {
    BleSDK* sdk = MakeInstance();

    ASSERT_NE(sdk, nullptr);
    EXPECT_EQ(sdk->m_pSettingsMapping, nullptr);
    EXPECT_EQ(sdk->m_settingsPath, "/usr/local/zorvik/etc/tamarind/settings.json");
    EXPECT_EQ(m_log.Texts(), (std::vector<std::string>{"No data read from file \n", " failed to parse settings.json"}));
    EXPECT_EQ(BleSDK::GetInstance(), sdk);
    EXPECT_EQ(fakes::Calls().size(), 1u);
    EXPECT_EQ(BleSDK::LoadedMapping(), nullptr);
    EXPECT_EQ(fakes::Calls().size(), 2u);  // it was tried again
}

TEST_F(Facade, ModelWithoutNameHasAFolderOfItsOwn) {
    fakes::SetModelNumber(0, 7);
    EXPECT_EQ(BleSDK::GetInstance()->m_settingsPath, "/usr/local/zorvik/etc/unknown/settings.json");
}

TEST_F(Facade, FailedLoadIsRetriedFromTheSamePathUntilItSucceeds) {
    BleSDK* sdk = MakeInstance();
    sdk->m_settingsPath = m_path;
    std::ofstream(m_path) << "{broken";
    sdk->LoadSettingsStatus();
    EXPECT_EQ(sdk->m_pSettingsMapping, nullptr);
    EXPECT_TRUE(m_log.Has(" failed to parse settings.json", 2));

    std::ofstream(m_path) << kGoodFile;
    fakes::SetModelNumber(0, 60);
    SettingsStatusMapping* mapping = BleSDK::LoadedMapping();
    ASSERT_NE(mapping, nullptr);
    EXPECT_EQ(mapping->modelNumber, 60);
    EXPECT_EQ(sdk->m_settingsPath, m_path);

    m_log.Clear();
    sdk->LoadSettingsStatus();
    EXPECT_EQ(m_log.Texts(), std::vector<std::string>{"Already loaded settings mapping"});
    EXPECT_EQ(sdk->m_pSettingsMapping, mapping);
    EXPECT_EQ(BleSDK::LoadedMapping(), mapping);
}

TEST_F(Facade, DestroyTwiceIsHarmlessAndANewInstanceStartsAfresh) {
    BleSDK* sdk = MakeInstance();
    sdk->m_settingsPath = m_path;
    std::ofstream(m_path) << kGoodFile;
    sdk->LoadSettingsStatus();
    ASSERT_NE(sdk->m_pSettingsMapping, nullptr);

    BleSDK::Destroy();
    BleSDK::Destroy();

    EXPECT_EQ(BleSDK::m_pInstance, nullptr);
    EXPECT_EQ(BleSDK::GetInstance()->m_pSettingsMapping, nullptr);
}

TEST_F(Facade, ErrorsBecomeTheResultByteOfClients) {
    const struct {
        int error;
        int result;
    } kRows[] = {{0, 0}, {-3, 2}, {1, 1}, {7, 7}, {14, 14}, {15, 1}, {-1, 1}, {-17, 1}, {-101, 1}, {2147483647, 1}};
    for (const auto& row : kRows) {
        EXPECT_EQ(BleSDK::SetKZErrNo(row.error), row.result) << row.error;
    }
}

}  // namespace
