// An accessory on the sensor interface: its client record in the daemon, and what it sends.
#pragma once

#include "bleDevice.h"
#include "logCapture.h"
#include "messageCutter.h"
#include "testServices.h"
#include "testStream.h"

using Request = std::vector<uint8_t>;

inline Request RegisterDevice(uint8_t streams, const std::string& name) {
    Request request{2, streams};
    request.insert(request.end(), name.begin(), name.end());
    return request;
}
inline Request RegisterKey(const std::string& key, uint8_t index, uint8_t stream, char type, uint8_t size,
                           uint8_t repeat = 1, uint8_t flags = 0) {
    Request request{3};
    request.insert(request.end(), key.begin(), key.end());
    request.insert(request.end(), {index, stream, static_cast<uint8_t>(type), size, repeat, flags});
    return request;
}
// A sample 01, 02, ...
inline Request WriteSample(uint8_t index, size_t size) {
    Request request = Counting(2 + size);
    std::copy_n(request.begin(), size, request.begin() + 2);
    request[0] = 1;
    request[1] = index;
    return request;
}

class Accessory {
  public:
    // Its samples are handed over by the hand-over of these services.
    explicit Accessory(uint8_t id = 1, const Services& services = DetachedServices())
        : client(6u + id, id, 12, services) {}
    ~Accessory() { client.RemoveStreams(); }
    Accessory(const Accessory&) = delete;
    Accessory& operator=(const Accessory&) = delete;

    // Sends the request in packets. Hexadecimal; empty when nothing is answered.
    std::string Answer(const Request& request) {
        std::vector<uint8_t> response(8188);
        unsigned short length = 0;
        bool answered = false;
        MessageCutter cutter(static_cast<unsigned>(request.size()));
        while (cutter.HasNext()) {
            uint8_t packet[kBlePacketSize] = {};
            cutter.WriteNext(request.data(), packet);
            length = 8188;
            answered = client.ProcessMetadataMessage(packet, response.data(), &length, &code);
        }
        return answered ? Hex({response.data(), length}) : "";
    }
    // The answer, the code that the session reports and the first error that is logged.
    std::string Outcome(const Request& request) {
        const fakes::LogCapture log(2);
        const std::string answer = Answer(request);
        const auto texts = log.Texts();
        return answer + " " + std::to_string(code) + (texts.empty() ? "" : " " + texts.front());
    }

    BleNotificationClient client;
    int code = 0;
};
