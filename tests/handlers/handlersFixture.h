// What the tests of the message handlers share: a client, a camera that accepts everything, and one engine that plays
// any exchange.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "bleDevice.h"
#include "bleSDK.h"
#include "cameraFakes.h"
#include "csi/csiKeys.h"
#include "kzControlCommands.h"
#include "logCapture.h"
#include "settingsStatusMapping.h"
#include "skylark/bleMessage.h"
#include "testServices.h"
#include "utils.h"

using fakes::Bytes;
using fakes::FromHex;
using fakes::Le32;
using fakes::ToHex;
using Texts = std::vector<std::string>;

constexpr uint16_t kWholeCapacity = 8188;  // of an answer

// One message and what must come of it. Bytes are written in hex, calls as they are printed, with ", " between them.
struct Exchange {
    std::string log;  // a text that must be logged, empty for any
    std::string request;
    std::string calls;  // what the camera is asked, less the report of who drives it
    std::string answer;
};

template <typename Element>
std::vector<Element> operator+(std::vector<Element> left, const std::vector<Element>& right) {
    std::copy(right.begin(), right.end(), std::back_inserter(left));
    return left;
}

template <typename Message>
class HandlersTest : public testing::Test {
  protected:
    HandlersTest() {
        g_logLevel = KZ_LOG_OFF;  // a test captures what it is about
        UseModel(std::make_unique<SettingsStatusMapping>());
        fakes::Reset();
        m_client.Attach(m_services.services);
        m_message.Attach(m_services.services);
    }

    ~HandlersTest() override { BleSDK::Destroy(); }

    static void UseModel(std::unique_ptr<SettingsStatusMapping> model) {
        BleSDK* sdk = BleSDK::GetInstance();
        delete sdk->m_pSettingsMapping;
        sdk->m_pSettingsMapping = model.release();  // owned by the facade
    }

    // What the camera said in a CSI notification.
    void StoreCsi(uint8_t key, const Bytes& value) {
        const Bytes record = Bytes{key} + Le32(static_cast<uint32_t>(value.size())) + value;
        m_camera.Store(*reinterpret_cast<const csiStruct*>(record.data()));
    }
    void SetCsi(uint8_t key, uint32_t value) { StoreCsi(key, Le32(value)); }

    // Runs one whole message the way a client's session does and gives the answer. The request lies in a buffer of
    // exactly its size, the answer in one of exactly `capacity`, so that a step beyond either shows under a sanitizer.
    Bytes Run(Bytes request, uint16_t capacity = kWholeCapacity) {
        fakes::ForgetCalls();
        const auto response = std::make_unique<uint8_t[]>(capacity);
        uint16_t length = capacity;
        m_message.Reset(static_cast<int>(request.size()));
        m_message.m_stream.attach(request.data(), static_cast<unsigned short>(request.size()));

        m_code = m_message.Deserialize() == 0 ? KZ_OK : KZ_ERR_INVALID_PARAM;
        if (m_code == KZ_OK) {
            m_code = m_message.Execute(&m_client, response.get(), &length);
        }
        if (m_code != KZ_OK) {
            length = capacity;
            m_message.HandleError(m_code, response.get(), &length);
        }
        return {response.get(), response.get() + length};
    }
    std::string Answer(const std::string& request, uint16_t capacity = kWholeCapacity) {
        return ToHex(Run(FromHex(request), capacity));
    }

    // The calls of the last message; those that start with the report of who drives the camera without it.
    static std::string CallsAfterReport() {
        std::string text;
        const std::vector<fakes::Call> calls = fakes::Calls();
        for (size_t i = 0; i < calls.size(); ++i) {
            if (i > 0 || calls[i].operation != "csi_set" || calls[i].id != CSI_ANALYTICS_SOURCE) {
                text += (text.empty() ? "" : ", ") + testing::PrintToString(calls[i]);
            }
        }
        return text;
    }

    void Play(const Exchange& row) {
        SCOPED_TRACE(row.log + " for " + row.request);
        const fakes::LogCapture log(KZ_LOG_INFO);

        EXPECT_EQ(Answer(row.request), row.answer);
        EXPECT_EQ(CallsAfterReport(), row.calls);
        EXPECT_TRUE(row.log.empty() || log.Has(row.log)) << testing::PrintToString(log.Texts());
    }

    template <size_t kCount>
    void PlayAll(const Exchange (&rows)[kCount]) {
        for (const Exchange& row : rows) {
            Play(row);
        }
    }

    TestServices m_services;
    CameraStatus& m_camera = m_services.camera;
    BleNotificationClient m_client{7, 1, KZ_CALLER_BLE_RC};
    Message m_message;
    int m_code = KZ_OK;  // how the last message ended
};
