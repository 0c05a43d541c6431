// What the tests of the message handlers share: one client of a camera that accepts everything.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "bleDevice.h"
#include "cameraFakes.h"
#include "csi/csiKeys.h"
#include "logCapture.h"
#include "testModel.h"
#include "testServices.h"
#include "utils.h"

using fakes::Bytes;
using fakes::FromHex;
using fakes::Le32;
using fakes::ToHex;
using Ints = std::vector<int>;
using Texts = std::vector<std::string>;

constexpr uint16_t kWholeCapacity = 8188;  // of an answer

class HandlersTest : public testing::Test {
  protected:
    HandlersTest() {
        g_logLevel = KZ_LOG_OFF;  // a test captures what it is about
        fakes::UseModel(new SettingsStatusMapping());
        fakes::Reset();
    }
    ~HandlersTest() override { BleSDK::Destroy(); }

    // Runs one whole message the way a client's session does and gives the answer. The request lies in a buffer of
    // exactly its size, the answer in one of exactly `capacity`, so that a step beyond either shows under a sanitizer.
    template <typename MessageOfAnInterface>
    std::string Answer(MessageOfAnInterface& message, Bytes request, uint16_t capacity = kWholeCapacity) {
        fakes::ForgetCalls();
        const auto response = std::make_unique<uint8_t[]>(capacity);
        uint16_t length = capacity;
        message.Reset(static_cast<int>(request.size()));
        message.m_stream.attach(request.data(), static_cast<unsigned short>(request.size()));

        m_code = message.Deserialize() == 0 ? KZ_OK : KZ_ERR_INVALID_PARAM;
        if (m_code == KZ_OK) {
            m_code = message.Execute(&m_client, response.get(), &length);
        }
        if (m_code != KZ_OK) {
            length = capacity;
            message.HandleError(m_code, response.get(), &length);
        }
        return ToHex({response.get(), response.get() + length});
    }
    template <typename MessageOfAnInterface>
    std::string Answer(MessageOfAnInterface& message, const char* request, uint16_t capacity = kWholeCapacity) {
        return Answer(message, FromHex(request), capacity);
    }

    // The calls of the last message, ", " between them, less the report of who drives the camera.
    static std::string Calls() {
        std::string text;
        for (const fakes::Call& call : fakes::Calls()) {
            if (call != fakes::Call{"csi_set", CSI_ANALYTICS_SOURCE, {KZ_CALLER_BLE_RC}}) {
                text += (text.empty() ? "" : ", ") + testing::PrintToString(call);
            }
        }
        return text;
    }

    TestServices m_services;
    BleNotificationClient m_client{7, 1, KZ_CALLER_BLE_RC, m_services.services};
    BleCommandMessage& m_command = m_client.m_commandMessage;
    BleSettingsMessage& m_setting = m_client.m_settingsMessage;
    BleQueryMessage& m_query = m_client.m_queryMessage;
    int m_code = KZ_OK;  // how the last message ended
};
