#include "api.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <optional>

#include "apiError.h"
#include "doCommand.h"
#include "requestBody.h"
#include "skylark/bleMessage.h"

namespace kzdesk {
namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kJson = "application/json";
constexpr std::chrono::seconds kStopPatience{3};

template <typename Number>
std::optional<Number> wholeNumber(std::string_view text) {
    Number number = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
    return parsed.ec == std::errc() && parsed.ptr == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

std::string_view takePart(std::string_view& path) {
    path.remove_prefix(1);  // the slash
    const std::string_view part = path.substr(0, path.find('/'));
    path.remove_prefix(part.size());
    return part;
}

kzclient::Catalogue namesIn(const std::string& path) {
    try {
        return kzclient::Catalogue::load(path);
    } catch (const kzclient::Error&) {
        return {};
    }
}

// Whether `path` is one of `pattern`'s; then `device` is the number in it.
bool fits(std::string_view pattern, std::string_view path, unsigned& device) {
    while (!pattern.empty() && !path.empty()) {
        const std::string_view wanted = takePart(pattern);
        const std::string_view part = takePart(path);
        if (wanted == "N") {
            const auto number = wholeNumber<unsigned>(part);
            if (!number) {
                return false;
            }
            device = *number;
        } else if (wanted != part) {
            return false;
        }
    }
    return pattern.empty() && path.empty();
}

}  // namespace

void answerJson(httplib::Response& response, int status, const Json& value) {
    response.status = status;
    response.set_content(value.dump(-1, ' ', false, Json::error_handler_t::replace), kJson);
}

void answerError(httplib::Response& response, int status, const std::string& code, const std::string& message) {
    answerJson(response, status, {{"error", {{"code", code}, {"message", message}}}});
}

const Api::Route Api::kRoutes[] = {
    {"GET", "/protocol.json", false, &Api::protocol},
    {"GET", "/catalogue.json", false, &Api::catalogue},
    {"GET", "/state", false, &Api::state},
    {"GET", "/events", false, &Api::stateEvents},
    {"POST", "/devices", true, &Api::connect},
    {"POST", "/devices/N/write", true, &Api::write},
    {"POST", "/devices/N/ccc", true, &Api::gate},
    {"DELETE", "/devices/N", false, &Api::disconnect},
    {"GET", "/devices/N/events", false, &Api::deviceEvents},
    {"POST", "/do", true, &Api::control},
};

Api::Api(const std::string& protocolPath, std::string cataloguePath)
    : m_protocol(protocolPath), m_cataloguePath(std::move(cataloguePath)), m_names(namesIn(m_cataloguePath)) {}

const Api::Route& Api::find(Call& call) {
    const std::string_view method = call.request.method == "HEAD" ? "GET" : std::string_view(call.request.method);
    std::string allowed;
    for (const Route& route : kRoutes) {
        if (!call.request.path.starts_with('/') || !fits(route.path, call.request.path, call.device)) {
            continue;
        }
        if (route.method == method) {
            return route;
        }
        allowed += (allowed.empty() ? "" : ", ") + std::string(route.method);
    }
    if (allowed.empty()) {
        throw ApiError(404, "not-found", "there is nothing at " + call.request.path);
    }
    call.response.set_header("allow", allowed);
    throw ApiError(405, "method-not-allowed", call.request.path + " takes " + allowed);
}

void Api::stop() {
    m_devices.endAll("desk stops");
    m_streams.stop(kStopPatience);
}

// ---------------------------------------------------------------- what is known

void Api::protocol(Call& call) {
    call.response.set_content(m_protocol.text(), kJson);
}

void Api::catalogue(Call& call) {
    std::ifstream file(m_cataloguePath, std::ios::binary);
    if (!file) {
        throw ApiError(404, "not-found", "there is no catalogue at " + m_cataloguePath);
    }
    call.response.set_content(std::string(std::istreambuf_iterator<char>(file), {}), kJson);
}

void Api::state(Call& call) {
    answerJson(call.response, 200, m_state.now());
}

void Api::stateEvents(Call& call) {
    const std::string devices = call.request.get_param_value("devices");
    if (!devices.empty() && devices != "all") {
        throw badRequest("\"devices\" can only be \"all\"");
    }
    m_streams.ofState(devices == "all", call.response);
}

// ---------------------------------------------------------------- devices

void Api::connect(Call& call) {
    const RequestBody body(call.body, {"address", "type", "gates", "central"});
    DeviceTable::Wish wish{std::nullopt, KZ_CALLER_BLE_RC, body.flag("central")};
    if (body.has("address")) {
        try {
            wish.address = kzclient::parseAddress(body.text("address"));
        } catch (const kzclient::Error& error) {
            throw badRequest(error.what());
        }
    }
    if (body.has("type") && body.at("type").is_string()) {
        const auto type = m_protocol.deviceType(body.text("type"));
        if (!type) {
            throw badRequest("there is no device type \"" + body.text("type") + "\"; protocol.json has their names");
        }
        wish.type = *type;
    } else if (body.has("type")) {
        wish.type = static_cast<uint8_t>(body.number("type", 0, UINT8_MAX));
    }
    const bool opensGates = body.flag("gates");
    const auto device = m_devices.connect(wish);
    if (opensGates) {
        for (const Interface& interface : m_protocol.interfaces()) {
            device->writeGate(interface.gate, 1);
        }
    }
    answerJson(call.response, 201,
               {{"device", device->number()},
                {"connection", device->connection()},
                {"address", kzclient::addressText(device->address())},
                {"type", device->type()}});
}

void Api::write(Call& call) {
    const auto device = m_devices.find(call.device);
    const RequestBody body(call.body, {"stream", "bytes", "message"});
    const auto stream = static_cast<uint8_t>(body.number("stream", 0, UINT8_MAX));
    if (!m_protocol.takesWrites(stream)) {
        throw badRequest("stream " + std::to_string(stream) + " takes no writes");
    }
    unsigned packets = 1;
    if (body.has("bytes") == body.has("message")) {
        throw badRequest("one of \"bytes\" (a packet) and \"message\" (to be cut into packets) has to be given");
    }
    if (body.has("bytes")) {
        device->writePacket(stream, body.bytes("bytes", kBlePacketSize));
    } else if (m_protocol.interfaceOf(stream) == nullptr) {
        throw badRequest("stream " + std::to_string(stream) + " carries no messages; write \"bytes\"");
    } else {
        packets = device->writeMessage(stream, body.bytes("message", Device::kLongestMessage));
    }
    answerJson(call.response, 202, {{"packets", packets}});
}

void Api::gate(Call& call) {
    const auto device = m_devices.find(call.device);
    const RequestBody body(call.body, {"descriptor", "value"});
    const auto descriptor = static_cast<uint8_t>(body.number("descriptor", 0, UINT8_MAX));
    const auto value = static_cast<uint8_t>(body.number("value", 0, UINT8_MAX));
    if (!m_protocol.isGate(descriptor)) {
        throw badRequest("there is no descriptor " + std::to_string(descriptor));
    }
    device->writeGate(descriptor, value);
    call.response.status = 204;
}

void Api::disconnect(Call& call) {
    m_devices.remove(call.device);
    call.response.status = 204;
}

void Api::deviceEvents(Call& call) {
    const auto device = m_devices.find(call.device);
    const bool isResumed = call.request.has_header("Last-Event-ID");
    const std::string asked =
        isResumed ? call.request.get_header_value("Last-Event-ID") : call.request.get_param_value("from");
    const auto after = asked.empty() ? std::optional<uint64_t>(0) : wholeNumber<uint64_t>(asked);
    if (!after) {
        throw badRequest("the id of an event is a whole number");
    }
    m_streams.ofDevice(device, *after, call.response);
}

// ---------------------------------------------------------------- the camera

void Api::control(Call& call) {
    answerJson(call.response, 200, {{"output", doCommand(RequestBody(call.body, {"command"}).words("command"))}});
}

}  // namespace kzdesk
