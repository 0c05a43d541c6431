// What the tests of the message handlers share: a client, a camera that accepts everything, and one way to run a
// message.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "bleDevice.h"
#include "bleSDK.h"
#include "cameraFakes.h"
#include "csi/csiKeys.h"
#include "kzBleServer.h"
#include "kzControlCommands.h"
#include "logCapture.h"
#include "settingsStatusMapping.h"
#include "utils.h"

using fakes::Bytes;
using fakes::Call;
using fakes::Command;
using fakes::CsiGet;
using fakes::CsiSet;
using fakes::Le32;

using Calls = std::vector<Call>;

// What became of one message: what the client is sent, and the code it ended with.
struct Outcome {
    int code = KZ_OK;
    Bytes answer;
};

template <typename Element>
std::vector<Element> operator+(std::vector<Element> left, const std::vector<Element>& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// Runs one whole message the way a client's session does. The request lies in a buffer of exactly its size, the answer
// in one of exactly `capacity`, so that a step beyond either shows under a sanitizer.
template <typename Message>
Outcome RunMessage(Message& message, BleNotificationClient& client, Bytes request, uint16_t capacity = 8188) {
    const auto response = std::make_unique<uint8_t[]>(capacity);
    uint16_t length = capacity;
    message.Reset(static_cast<int>(request.size()));
    message.m_stream.attach(request.data(), static_cast<unsigned short>(request.size()));

    Outcome outcome;
    outcome.code = message.Deserialize() == 0 ? KZ_OK : KZ_ERR_INVALID_PARAM;
    if (outcome.code == KZ_OK) {
        outcome.code = message.Execute(&client, response.get(), &length);
    }
    if (outcome.code != KZ_OK) {
        length = capacity;
        message.HandleError(outcome.code, response.get(), &length);
    }
    outcome.answer.assign(response.get(), response.get() + length);
    return outcome;
}

template <typename Message>
class HandlersTest : public testing::Test {
  protected:
    HandlersTest() {
        g_logLevel = KZ_LOG_OFF;  // a test captures what it is about
        fakes::Reset();
        BleSDK* sdk = BleSDK::GetInstance();
        delete sdk->m_pSettingsMapping;
        sdk->m_pSettingsMapping = new SettingsStatusMapping();  // owned by the facade
        fakes::Reset();
    }

    ~HandlersTest() override {
        KzBleServer::GetInstance()->m_csiCache[CSI_SYSTEM_STATE] = SYS_RESUMED;
        KzBleServer::GetInstance()->m_csiCache[CSI_FORCED_UPDATE] = 0;
        KzBleServer::GetInstance()->m_fileTransferSlots = 0;
        KzBleServer::GetInstance()->SetWaitingAccReconnect(false);
        BleSDK::Destroy();
    }

    Outcome Run(const Bytes& request, uint16_t capacity = 8188) {
        fakes::ForgetCalls();
        return RunMessage(m_message, m_client, request, capacity);
    }

    // The calls of the last message without the report of the analytics source, which starts every one.
    static Calls CallsAfterReport() {
        Calls calls = fakes::Calls();
        if (!calls.empty()) {
            EXPECT_EQ(calls[0].operation, "csi_set");
            EXPECT_EQ(calls[0].id, uint32_t{CSI_ANALYTICS_SOURCE});
            calls.erase(calls.begin());
        }
        return calls;
    }

    BleNotificationClient m_client{7, 1, KZ_CALLER_BLE_RC};
    Message m_message;
};
