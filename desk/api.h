// The requests of the desk: a table of methods and paths, each with the function that answers it. docs/desk.md and
// openapi.json describe them. Any thread may call.
#pragma once

#include <httplib.h>

#include <string>
#include <string_view>

#include "cameraState.h"
#include "deviceTable.h"
#include "eventStreams.h"
#include "protocolFile.h"

namespace kzdesk {

class Api {
  public:
    static constexpr size_t kLongestBody = 64 * 1024;  // bytes

    // Throws std::runtime_error when the description of the protocol cannot be read. Without a catalogue values have no
    // names.
    Api(const std::string& protocolPath, std::string cataloguePath);

    // Answers a request, whose body `readBody` reads when it is wanted. Throws ApiError.
    template <typename ReadBody>
    void answer(const httplib::Request& request, httplib::Response& response, ReadBody readBody) {
        Call call{request, response, {}, 0};
        const Route& route = find(call);
        if (route.hasBody) {
            call.body = readBody();
        }
        (this->*route.answer)(call);
    }

    // Ends every device and every event stream.
    void stop();

  private:
    struct Call {
        const httplib::Request& request;
        httplib::Response& response;
        std::string body;
        unsigned device;  // the number in the path
    };
    struct Route {
        std::string_view method;
        std::string_view path;  // a part "N" stands for a device's number
        bool hasBody;
        void (Api::*answer)(Call&);
    };
    static const Route kRoutes[];

    static const Route& find(Call& call);

    void protocol(Call& call);
    void catalogue(Call& call);
    void state(Call& call);
    void stateEvents(Call& call);
    void connect(Call& call);
    void write(Call& call);
    void gate(Call& call);
    void disconnect(Call& call);
    void deviceEvents(Call& call);
    void control(Call& call);

    ProtocolFile m_protocol;
    std::string m_cataloguePath;
    kzclient::Catalogue m_names;
    DeviceTable m_devices{m_protocol, m_names};
    CameraState m_state{m_devices};
    EventStreams m_streams{m_state, m_devices};
};

// Fills an answer with JSON.
void answerJson(httplib::Response& response, int status, const nlohmann::ordered_json& value);
// {"error": {"code", "message"}}
void answerError(httplib::Response& response, int status, const std::string& code, const std::string& message);

}  // namespace kzdesk
