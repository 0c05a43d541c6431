// What the examples of the protocol cannot show of a request: answers and buffers of every size, a daemon without a
// model, the shell, and what stays out of the log. The handlers meet malformed messages in the fuzz targets.
#include "handlersFixture.h"

namespace {

using RequestTest = HandlersTest;

std::string HexOf(size_t count, uint8_t byte) {
    return ToHex(Bytes(count, byte));
}

}  // namespace

TEST_F(RequestTest, AnAnswerThatDoesNotFitItsBufferIsAFailureAndNothingBeyondItIsWritten) {
    fakes::SetCameraInfo(0, Bytes(434, 'x'));
    constexpr uint16_t kLongestInfo = 2 + 5 + 4 * 66 + 34 + 66 + 3 * 2 + 66 + 2;
    EXPECT_EQ(Answer(m_command, "3c", kLongestInfo).size(), kLongestInfo * 3 - 1);
    EXPECT_EQ(Answer(m_command, "3c", kLongestInfo - 1), "3c 01");
    EXPECT_EQ(Answer(m_command, "05", 1), "");

    fakes::OnCommand(73, 0, Bytes(1500, 7));
    EXPECT_EQ(Answer(m_command, "f1 76", 1502), "f1 f6 " + HexOf(1500, 7));
    EXPECT_EQ(Answer(m_command, "f1 76", 1501), "f1 01") << "not cut";
    EXPECT_EQ(Answer(m_command, "f1 6f", 4), "f1 ef 08 01");
    EXPECT_EQ(Answer(m_command, "f1 6f", 3), "f1 01");
    EXPECT_EQ(Answer(m_setting, "f3 7d 08 01", 3), "00 01");
    EXPECT_EQ(Answer(m_setting, "02 01 04", 1), "");
}

TEST_F(RequestTest, AQueryWhoseAnswerDoesNotFitGetsWholeEntriesAndSmallerGroupsGetEverything) {
    std::map<int, Ints> settings;
    for (int id = 1; id < 182; ++id) {
        settings[id] = Ints(256, id);
    }
    fakes::LoadCatalogue(settings);
    fakes::PushValues(R"({"status": {"8": 0}})");
    const auto sizeOf = [&](Bytes query) { return (Answer(m_query, std::move(query)).size() + 1) / 3; };
    for (const auto& [query, entrySize] : {std::pair<uint8_t, size_t>{0x32, 3}, {0x42, 7}}) {
        const fakes::LogCapture log(KZ_LOG_ERROR);
        const size_t settingSize = 256 * entrySize;

        EXPECT_EQ(sizeOf({query}), 2 + (kWholeCapacity - 2) / settingSize * settingSize);
        EXPECT_EQ(m_code, KZ_OK);
        EXPECT_EQ(log.Lines().size(), 1u);
        EXPECT_TRUE(Answer(m_query, {query}).starts_with(ToHex(Bytes{query, 1})));
    }
    for (uint8_t id = 1; id < 182; ++id) {
        EXPECT_EQ(sizeOf({0x42, id}), 2u + 256 * (kzSettingWidth(58, id) == eValueWidth4Bytes ? 10 : 7)) << int{id};
    }
}

TEST_F(RequestTest, TheSettingsVersionFitsAParameter) {
    BleSDK::GetInstance()->m_pSettingsMapping->version = std::string(300, 'v');
    EXPECT_EQ(Answer(m_command, "3a"), "3a 00 ff " + HexOf(255, 'v'));
}

TEST_F(RequestTest, WithoutAModelSettingsAndQueriesFail) {
    fakes::UseModel(nullptr);
    BleSDK::GetInstance()->m_settingsPath = "/nowhere/settings.json";

    EXPECT_EQ(Answer(m_setting, "02 01 04"), "02 01");
    EXPECT_TRUE(fakes::Calls("command").empty());
    BleSDK::Destroy();
    EXPECT_EQ(Answer(m_query, "12 02"), "12 01");
}

TEST_F(RequestTest, ACodeRestartsTheDeviceManagerWithoutReachingTheShell) {
    const std::string restart = "system: " + ToHex(fakes::BytesOf("killall -9 kzDeviceManager")) +
                                ", system: " + ToHex(fakes::BytesOf("/usr/local/zorvik/bin/kzDeviceManager -p -l 0 &"));
    const Bytes code = fakes::BytesOf("x; reboot");
    for (const int result : {0, -1}) {  // also when no shell can be started
        fakes::SetSystemResult(result);
        const fakes::LogCapture log(KZ_LOG_ERROR);

        EXPECT_EQ(Answer(m_setting, ("f3 7e 0a 09 " + ToHex(code)).c_str()), "f3 fe 08 01");

        EXPECT_EQ(Calls(), restart + ", csi_set 107: " + ToHex(code));
        EXPECT_EQ(log.Texts(),
                  result == 0 ? Texts() : (Texts{"killall: system errno 12 \n", "start: system errno 12 \n"}));
    }
    fakes::OnCsiSet(107, 6);
    EXPECT_EQ(Answer(m_setting, "f3 7e 0a 01 78"), "f3 fe 08 00");
}

TEST_F(RequestTest, EveryEnumeratorRegistersForItsKey) {
    const std::pair<uint8_t, Ints> kKeys[] = {{126, {97, 98, 99, 102, 108, 104, 109}},
                                              {118, {42, 41}},
                                              {119, {42, 41}},
                                              {116, {74, 8, 6, 26}},
                                              {117, {74, 8, 6, 26}}};
    const Ints& interest = m_client.m_interests.Of(NotificationClient::eNotifyCSI);
    for (const auto& [action, keys] : kKeys) {
        for (uint8_t i = 0; i < keys.size(); ++i) {
            const auto enumerator = static_cast<uint8_t>(i + 1);
            Answer(m_query, {245, action, 8, enumerator, 8, 99});
            EXPECT_EQ(interest, Ints{keys[i]});
            Answer(m_query, {245, action, 16, enumerator});
            EXPECT_EQ(interest, Ints{});
        }
    }
}

TEST_F(RequestTest, OnlyTheIdsOfTheCatalogueBecomeInterests) {
    fakes::LoadCatalogue({{2, {1}}});
    Answer(m_query, "52 02 03");
    EXPECT_EQ(m_client.m_interests.Of(NotificationClient::eNotifySettings), Ints{2});
}

TEST_F(RequestTest, OneCommandAloneChangesWhoTheClientIs) {
    for (int id = 0; id < 256; ++id) {
        m_client.m_identity.m_deviceType = KZ_CALLER_BLE_RC;
        Answer(m_command, Bytes{static_cast<uint8_t>(id)});
        EXPECT_EQ(m_client.m_identity.m_deviceType != KZ_CALLER_BLE_RC, id == eBleCommandSetThirdPartyClientInfo) << id;
    }
}

TEST_F(RequestTest, UserAndClientIdsOfAnyLengthStayOutOfTheLogBelowItsInformationLevel) {
    const fakes::LogCapture log(KZ_LOG_DEBUG);
    const auto association = [&](const Bytes& stored) {
        fakes::SetCsi(104, stored);
        return Answer(m_query, "f5 7c 0a 04 61 6e 6e 61");
    };
    fakes::SetCsi(105, fakes::BytesOf("anna"));

    EXPECT_EQ(association(fakes::BytesOf("anna")), "f5 fc 08 01 10 01");
    EXPECT_EQ(association({}), "f5 fc 08 00 10 01");
    EXPECT_EQ(association(Bytes(1400, 'a')), "f5 fc 08 02 10 01");
    EXPECT_EQ(Answer(m_query, "f5 7d"), "f5 fd 0a 04 61 6e 6e 61 10 01");
    EXPECT_EQ(log.Texts(),
              (Texts{"Command: eBleCommandRequestGetAssociationState", "Command: eBleCommandRequestGetAssociationState",
                     "Command: eBleCommandRequestGetAssociationState", "Command: eBleCommandRequestClientId"}));
    EXPECT_EQ(association(Bytes(1401, 'a')), "f5 fc 08 00 10 01") << "longer than an id may be";
}
