#include "consoleClient.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "queueMemory.h"

namespace kzsim {
namespace {

using Json = nlohmann::ordered_json;

constexpr time_t kAnswerDeadlineSeconds = 5;

ConsoleResult noCamera(const char* path) {
    std::string text = std::string("no camera answers at ") + path;
    if (!roomForCamera()) {
        text += "; " + queueMemoryIsUsedUp();
    }
    return {Outcome::NoCamera, text};
}

// What an error of a call on the connection means.
ConsoleResult unanswered(const char* path, int error) {
    switch (error) {
        case EAGAIN:
            return {Outcome::TimedOut, "no answer within " + std::to_string(kAnswerDeadlineSeconds) +
                                           " s; the command may still be carried out"};
        case ENOENT:
        case ECONNREFUSED:
        case ECONNRESET:
        case EPIPE:
        case 0:  // the camera ended
            return noCamera(path);
        default:
            return {Outcome::Failed, std::string("cannot reach the camera at ") + path + ": " + std::strerror(error)};
    }
}

// The answer's record as it came; empty, with the error, when none came.
std::string exchange(int fd, const sockaddr_un& address, const std::string& request, int& error) {
    const timeval deadline{kAnswerDeadlineSeconds, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &deadline, sizeof deadline);
    std::string answer(kConsoleRecordLimit, '\0');
    ssize_t length = -1;
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        send(fd, request.data(), request.size(), MSG_NOSIGNAL) >= 0) {
        length = recv(fd, answer.data(), answer.size(), 0);
    }
    error = length < 0 ? errno : 0;
    answer.resize(length > 0 ? static_cast<size_t>(length) : 0);
    return answer;
}

}  // namespace

ConsoleResult askConsole(const std::vector<std::string>& words) {
    std::string request;
    for (const std::string& word : words) {
        request += word + '\0';
    }
    const char* const path = kConsoleEndpoint.address();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (std::strlen(path) >= sizeof address.sun_path) {
        return {Outcome::WrongUse, std::string("too long for a socket: ") + path};
    }
    std::strcpy(address.sun_path, path);
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    int error = 0;
    const std::string answer = exchange(fd, address, request, error);
    close(fd);
    if (answer.empty()) {
        return unanswered(path, error);
    }
    const Json value = Json::parse(answer.begin() + 1, answer.end(), nullptr, false);
    if (value.is_discarded()) {
        return {Outcome::Failed, "the camera's answer is not whole; is it of the same build?"};
    }
    return {static_cast<Outcome>(answer[0]), value};
}

}  // namespace kzsim
