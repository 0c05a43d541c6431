// The sensor interface: accessories register a device with streams and keys, then send samples, which go into the
// camera's metadata; two more commands subscribe the accessory to display and LED buffers.
//
// Request, first the command byte; lengths count it:
//   1   write sample       key index 1, sample data (rest, at most 35 bytes)
//   2   register device    stream count 1, name (rest, not terminated); 5 to 19 bytes in all
//   3   register key       key 4, key index 1, stream index 1, type 1, structure size 1, repeat count 1, flags 1
//   80  display interest   parameter 1: 1 subscribes, 2 ends it
//   82  LED interest       parameter 1, as above
// Answer: command byte, status byte. A sample that was accepted has no answer.
//
// Command thread only, with the client table's lock held.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "FlexValue.h"
#include "servedMessage.h"

struct Peer;
class MemoryStream;

enum eBleMetadataCommand : uint8_t {
    eBleMetadataWrite = 1,
    eBleMetadataRegisterDevice = 2,
    eBleMetadataRegister4CC = 3,
    eBleMultekDisip = 80,
    eBleLedRegister = 82,
};

class BleMetadataResponse {
  public:
    BleMetadataResponse(uint8_t commandId, uint8_t status) : m_commandId(commandId), m_status(status) {}
    virtual ~BleMetadataResponse() = default;
    virtual void Dump() const;

    uint8_t m_commandId;
    uint8_t m_status;
};
MemoryStream& operator<<(MemoryStream& stream, const BleMetadataResponse& response);

class BleMetadataMessage : public ServedMessage {
  public:
    static constexpr unsigned kMaxSampleSize = 35;
    static constexpr unsigned kMaxNameSize = 17;
    static constexpr size_t kMaxStreams = 3;

    // Results of Execute. The status byte of an answer is the code itself.
    enum eCode : int {
        eOk = 0,
        eBadLedParameter = 2,
        eAlreadyRegistered = 3,
        eNoStreamRequested = 4,
        eTooManyStreams = 5,
        eBadStreamIndex = 5,  // of a sample's key
        eStreamNotOpened = 6,
        eKeyStreamTooHigh = 7,
        eKeyInUse = 8,
        eNoStreamHandle = 9,
        eUnknownKey = 10,
        eUnknownCommand = 11,
        eKeyIndexTooHigh = 12,
        eBadDisplayParameter = 13,
    };

    explicit BleMetadataMessage(int length = 0, const Services& services = DetachedServices())
        : ServedMessage(length, services) {}

    // Returns 0, or 1 for a message whose length does not fit its command.
    int Deserialize() override;
    void Reset(int length) override;

    // Carries the request out on `client` and writes the answer into `response`: *responseLength is its size on entry
    // and the answer's length on return, 0 for a stored sample. Returns a code of eCode, or KZ_ERR_INVALID_PARAM for a
    // sample that is shorter than its key's structure size times repeat count.
    int Execute(Peer* client, unsigned char* response, unsigned short* responseLength);
    // Writes the error answer; *responseLength as above. Returns 0.
    int HandleError(int error, unsigned char* response, unsigned short* responseLength);
    void Dump() const;
    void WriteSession() const;

  private:
    // A key as the request describes it.
    struct KeyRequest {
        std::array<unsigned char, 4> fourCC;
        uint8_t keyIndex;
        uint8_t streamIndex;
        uint8_t type;
        uint8_t structureSize;
        uint8_t repeat;
        uint8_t flags;
    };
    // How the message behind one command byte is parsed and carried out.
    struct CommandRow;
    static const CommandRow* FindCommand(uint8_t commandId);

    // Parse what follows the command byte. Return 0, or 1 for a parse error.
    int DeserializeSample();
    int DeserializeDevice();
    int DeserializeKey();
    int DeserializeParameter();

    // Carry the request out. Return an eCode.
    int WriteSample(Peer& client);
    int RegisterDevice(Peer& client);
    int RegisterKey(Peer& client);
    int SetDisplayInterest(Peer& client);
    int SetLedInterest(Peer& client);

    int OpenStreams(Peer& client) const;
    // Logs the first sample of a stream that is lost. Further losses are not logged until a sample was stored again.
    void ReportLoss(size_t streamIndex, bool lost);

    uint8_t m_commandId = 0;
    std::vector<FlexValue> m_params;  // of the two interests
    uint8_t m_keyIndex = 0;
    std::array<unsigned char, kMaxSampleSize> m_sample{};
    unsigned m_sampleSize = 0;
    uint8_t m_streamCount = 0;
    std::array<char, kMaxNameSize + 3> m_name{};  // zero-terminated
    KeyRequest m_key{};
    std::array<bool, kMaxStreams> m_lossReported{};
};
