// What every kzble command works with: the options of the command line, the connection (made on first use, kept for all
// lines of a script) and the catalogue.
#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "bleClient.h"
#include "catalogue.h"
#include "errors.h"
#include "recording.h"

namespace kzble {

using kzclient::Bytes;
using kzclient::Error;
using kzclient::parseHex;
using kzclient::Refused;
using kzclient::TimedOut;
using kzclient::WrongUse;

class Session {
  public:
    // The global options, filled by the command line. The first three belong to the connection.
    struct Options {
        std::string socket;
        std::string address = "02:00:00:00:00:01";
        unsigned deviceType = 0;
        std::optional<int> timeoutMs;
        std::string catalogue;
        std::string recording;  // the file to write
        bool trace = false;
        bool json = false;
    };

    // Connects on first use and enables notifications.
    kzclient::BleClient& client();
    // A connection of its own for a device that is not a phone.
    std::unique_ptr<kzclient::BleClient> connectAs(uint8_t deviceType, bool cameraIsCentral);
    std::unique_ptr<kzclient::BleClient> connectAs(const kzclient::RadioLink::Peer& peer);
    // The next command connects anew.
    void disconnect() { m_client.reset(); }
    bool isConnected() const { return m_client != nullptr; }
    const kzclient::Catalogue& catalogue();

    // Prints a result: the JSON, one object on one line, when it was asked for, else the text. Throws Error when nobody
    // can read it.
    void print(const nlohmann::ordered_json& json, const std::string& text) const;
    // "ok", for commands without a result of their own.
    void printDone() const;

    Options options;
    bool interrupted = false;  // a signal ended the last command: the lines behind it are not for this session

  private:
    kzclient::RadioLink::Trace tracer(const std::string& address);

    std::unique_ptr<kzclient::BleClient> m_client;
    bool m_traced = false;  // m_client is
    std::optional<kzclient::Catalogue> m_catalogue;
    std::string m_catalogueName;
    Recording m_recording;
};

// The JSON on one line. Texts of the camera need not be UTF-8.
std::string oneLine(const nlohmann::ordered_json& json);
// Throws Error when standard output does not take what was printed.
void expectPrinted();
// Big-endian, in as many bytes as asked.
Bytes number(uint64_t value, size_t width);
// The parameters of a command's answer, each behind its length. Throws Error.
std::vector<Bytes> splitParameters(const Bytes& answer);
// Now, as RFC 3339 has it: date, time with milliseconds, offset from UTC.
std::string timestamp();

}  // namespace kzble
