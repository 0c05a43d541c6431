#include "httpServer.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <exception>

#include "apiError.h"
#include "connectionThreads.h"

namespace kzdesk {
namespace {

constexpr size_t kMostThreads =
    DeviceTable::kMostDevices * Device::kMostStreams + EventStreams::kMostOfState + 32;  // streams, and short requests

// A body that is too long is read on for a while: who still sends it would miss the answer.
constexpr size_t kMostRead = 1024 * 1024;  // bytes

// The page runs nothing but its own files, and is shown in no other page's frame.
const httplib::Headers kPageHeaders = {
    {"content-security-policy", "default-src 'self'; frame-ancestors 'none'"},
    {"cache-control", "no-cache"},
};

bool isJson(std::string type) {
    type = type.substr(0, type.find(';'));
    type.erase(type.find_last_not_of(" \t") + 1);
    std::transform(type.begin(), type.end(), type.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return type == "application/json";
}

// Browsers say where a request comes from also when they send no Origin, as for a picture. Only following a link to the
// page is accepted from elsewhere.
bool comesFromElsewhere(const httplib::Request& request) {
    const std::string site = request.get_header_value("Sec-Fetch-Site");
    const bool isLink =
        request.method == "GET" && request.path == "/" && request.get_header_value("Sec-Fetch-Dest") == "document";
    return !site.empty() && site != "same-origin" && site != "none" && !isLink;
}

struct Meaning {
    int status;
    const char* code;
    const char* words;
};

// Answers that the HTTP library gives by itself.
constexpr Meaning kMeanings[] = {
    {400, "bad-request", "this is no HTTP request that the desk understands"},
    {404, "not-found", "there is nothing here"},
    {413, "too-large", "a body holds at most 64 KiB"},
    {414, "too-long", "the address is too long"},
    {416, "bad-request", "the range is none"},
};

// A port that a desk or another program has is not shared with it, which the library would do.
void setSocketOptions(socket_t socket) {
    const int yes = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
}

void explain(const httplib::Request& /*request*/, httplib::Response& response) {
    if (!response.body.empty() || response.status < 400) {
        return;
    }
    const auto* const known = std::find_if(std::begin(kMeanings), std::end(kMeanings),
                                           [&](const Meaning& row) { return row.status == response.status; });
    const bool isKnown = known != std::end(kMeanings);
    answerError(response, response.status, isKnown ? known->code : "failed",
                isKnown ? known->words : "the desk could not answer");
}

}  // namespace

HttpServer::HttpServer(Api& api, const std::string& webPath) : m_api(api) {
    m_server.new_task_queue = [this] { return new ConnectionThreads(kMostThreads, m_server.serving); };
    m_server.set_tcp_nodelay(true);  // an event must not wait for the acknowledgement of the one before
    m_server.set_socket_options(setSocketOptions);
    m_server.set_payload_max_length(Api::kLongestBody);
    m_server.set_default_headers({{"x-content-type-options", "nosniff"}});
    m_server.set_mount_point("/", webPath, kPageHeaders);
    m_server.set_error_handler(httplib::Server::Handler(explain));
    m_server.set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        if (isAllowed(request)) {
            return httplib::Server::HandlerResponse::Unhandled;
        }
        answerError(response, 403, "forbidden",
                    "only pages and programs that know the desk by its own address may ask");
        return httplib::Server::HandlerResponse::Handled;
    });

    const auto plain = [this](const httplib::Request& request, httplib::Response& response) {
        answer(request, response, nullptr);
    };
    const auto withBody = [this](const httplib::Request& request, httplib::Response& response,
                                 const httplib::ContentReader& reader) { answer(request, response, &reader); };
    m_server.Get(".*", plain);
    m_server.Options(".*", plain);
    m_server.Post(".*", withBody);
    m_server.Put(".*", withBody);
    m_server.Patch(".*", withBody);
    m_server.Delete(".*", withBody);
}

bool HttpServer::Server::process_and_close_socket(socket_t socket) {
    Connection connection(socket, serving);
    bool isClosed = false;
    const bool isAnswered = process_request(connection, true, isClosed, [](httplib::Request& request) {
        request.ranges.clear();  // answers are short or endless: each is given whole
    });
    ::shutdown(socket, SHUT_RDWR);
    ::close(socket);
    return isAnswered;
}

void HttpServer::stop() {
    m_server.stop();
    m_server.serving.isEnding = true;
}

std::optional<ListenAddress> HttpServer::bind(const ListenAddress& address) {
    ListenAddress bound = address;
    if (address.port == 0) {
        bound.port = m_server.bind_to_any_port(address.host);
    } else if (!m_server.bind_to_port(address.host, address.port)) {
        return std::nullopt;
    }
    if (bound.port <= 0 || !m_server.letManyWait()) {
        return std::nullopt;
    }
    m_hosts.emplace(bound);
    return bound;
}

bool HttpServer::isAllowed(const httplib::Request& request) const {
    const bool isOwnPage = !request.has_header("Origin") || m_hosts->allowsOrigin(request.get_header_value("Origin"));
    return m_hosts->allowsHost(request.get_header_value("Host")) && isOwnPage && !comesFromElsewhere(request);
}

std::string HttpServer::readBody(const httplib::Request& request, const httplib::ContentReader& reader) const {
    if (!isJson(request.get_header_value("Content-Type"))) {
        throw ApiError(415, "no-json", "the body has to be JSON, with content-type: application/json");
    }
    std::string body;
    size_t size = 0;
    const bool isRead = reader([&](const char* data, size_t length) {
        size += length;
        if (size <= Api::kLongestBody) {
            body.append(data, length);
        }
        return size <= kMostRead;
    });
    // Of a body that announces its length the library has found it out already, and says so as a failure to read.
    if (size > Api::kLongestBody || (!isRead && request.has_header("Content-Length") &&
                                     request.get_header_value<uint64_t>("Content-Length") > Api::kLongestBody)) {
        throw ApiError(413, "too-large", "a body holds at most 64 KiB");
    }
    if (!isRead) {
        throw badRequest("the body is not whole");
    }
    return body;
}

void HttpServer::answer(const httplib::Request& request, httplib::Response& response,
                        const httplib::ContentReader* reader) {
    response.set_header("cache-control", "no-store");
    try {
        m_api.answer(request, response, [&] { return readBody(request, *reader); });
    } catch (const ApiError& error) {
        answerError(response, error.status, error.code, error.what());
    } catch (const std::exception& error) {
        answerError(response, 500, "failed", error.what());
    }
}

}  // namespace kzdesk
