// A request that is not carried out: the HTTP status, a code for programs and words for the user.
#pragma once

#include <stdexcept>
#include <string>

namespace kzdesk {

class ApiError : public std::runtime_error {
  public:
    ApiError(int httpStatus, std::string codeForPrograms, const std::string& message)
        : std::runtime_error(message), status(httpStatus), code(std::move(codeForPrograms)) {}
    const int status;
    const std::string code;
};

inline ApiError badRequest(const std::string& message) {
    return {400, "bad-request", message};
}

}  // namespace kzdesk
