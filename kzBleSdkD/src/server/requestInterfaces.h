// The four request interfaces, one row each: the streams of requests and answers, where an answer waits for room in the
// radio queue, the client's operation that takes the packets, and what joins them. The request stream is also the gate
// of the answers.
#pragma once

#include "bleDevice.h"
#include "dispatchTable.h"
#include "skylark/bleMessage.h"

struct RequestInterface {
    using Process = bool (*)(BleNotificationClient& client, unsigned char* packet, unsigned char* response,
                             unsigned short* responseLength, int* kzErrno);

    uint8_t id;  // request stream
    uint8_t responseStream;
    eStoredResponse stored;
    const char* received;  // logged for each packet
    Process process;
    FragmentedMessageBuilder& (*builder)(BleNotificationClient& client);
};

template <auto kOperation>
bool ProcessWith(BleNotificationClient& client, unsigned char* packet, unsigned char* response,
                 unsigned short* responseLength, int* kzErrno) {
    return (client.*kOperation)(packet, response, responseLength, kzErrno);
}

template <auto kMessage>
FragmentedMessageBuilder& BuilderOf(BleNotificationClient& client) {
    return client.*kMessage;
}

constexpr RequestInterface kRequestInterfaceRows[] = {
    {KZ_STR_ID_COMMAND, KZ_STR_ID_COMMAND_RESPONSE, eStoredCommand, "Received message on Command Interface",
     ProcessWith<&BleNotificationClient::ProcessCommandMessage>, BuilderOf<&BleNotificationClient::m_commandMessage>},
    {KZ_STR_ID_SETTINGS, KZ_STR_ID_SETTINGS_RESPONSE, eStoredSettings, "Received message on Settings Interface",
     ProcessWith<&BleNotificationClient::ProcessSettingMessage>, BuilderOf<&BleNotificationClient::m_settingsMessage>},
    {KZ_STR_ID_QUERY, KZ_STR_ID_QUERY_RESPONSE, eStoredQuery, "Received message on Query Interface",
     ProcessWith<&BleNotificationClient::ProcessQueryMessage>, BuilderOf<&BleNotificationClient::m_queryMessage>},
    {KZ_STR_ID_SENSOR, KZ_STR_ID_SENSOR_RESPONSE, eStoredSensor, "Received message on Sensor Interface 0714",
     ProcessWith<&BleNotificationClient::ProcessMetadataMessage>, BuilderOf<&BleNotificationClient::m_metadataMessage>},
};
inline constexpr DispatchTable kRequestInterfaces(kRequestInterfaceRows);
