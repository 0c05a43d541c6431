// The wire between the simulated radio and the devices that connect to it (phones, remotes, sensors): one local
// SOCK_SEQPACKET socket, fixed records of 32 bytes both ways, numbers in host byte order. One socket connection is one
// Bluetooth connection: closing it is the disconnection.
//
// A device says Hello first and gets Welcome with its connection id; everything it sends before that ends the
// connection. Not part of the camera, where the radio-stack daemon drives a real radio.
#pragma once

#include <cstdint>

#include "cameraWire.h"
#include "skylark/bleMessage.h"

namespace kzradio {

constexpr kzwire::Endpoint kRadioEndpoint{"KZ_RADIO_SOCKET", "/tmp/kzcamera/radio"};

constexpr unsigned kAddressSize = 6;

// What a record is.
//
// kind     direction        carries
// Hello    device to radio  data = address, argument0 = device type, argument1 = 1 when the camera is the central and
//                           asks for all of the device's notifications itself, so that no Ccc is needed
// Welcome  radio to device  argument0 = connection id
// Packet   both ways        stream id, length, data
// Ccc      device to radio  stream id of the descriptor, length = the value written (1 enables)
// Debug    device to radio  argument0 = debug command, argument1 = its argument; also allowed before Hello
enum class Kind : uint8_t {
    Hello = 1,
    Welcome = 2,
    Packet = 3,
    Ccc = 4,
    Debug = 5,
};

struct Record {
    Kind kind;
    uint8_t streamId;
    uint8_t length;  // valid bytes of `data`; passed to the daemon as it is, also when it is above 20
    uint8_t reserved;
    uint32_t argument0;
    uint32_t argument1;
    uint8_t data[kBlePacketSize];
};
static_assert(sizeof(Record) == 32);

}  // namespace kzradio
