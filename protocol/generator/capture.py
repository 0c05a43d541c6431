"""Captures of BLE SDK packets for the dissector: pcap files of link type USER0. packaging/wireshark/kzble.lua has the layout
of a frame."""

import struct

LINK_TYPE = 147  # USER0
CONNECTED, DISCONNECTED, PACKET, DESCRIPTOR = range(4)  # events
LONGEST_PACKET = 20
TO_CAMERA, FROM_CAMERA = 0, 1


def frame(direction, stream, connection, data, event=PACKET):
    return struct.pack(">BBBBI", 1, event, direction, stream, connection) + bytes(data)


def cut(message):
    """The packets of a message."""
    length = len(message)
    forms = ((20, [length]), (8189, [0x20 | length >> 8, length & 0xff]), (65536, [0x40, length >> 8, length & 0xff]))
    header = next(bytes_ for end, bytes_ in forms if length < end)
    room = LONGEST_PACKET - len(header)
    packets, rest = [bytes(header) + bytes(message[:room])], message[room:]
    while rest:
        packets.append(bytes([0x80 | (len(packets) - 1) & 0x0f]) + bytes(rest[:19]))
        rest = rest[19:]
    return packets


def write(path, frames):
    """Frames with their times in seconds."""
    with open(path, "wb") as file:
        file.write(struct.pack("<IHHiIII", 0xa1b2c3d4, 2, 4, 0, 0, 65535, LINK_TYPE))
        for seconds, data in frames:
            whole = int(seconds)
            file.write(struct.pack("<IIII", whole, round((seconds - whole) * 1e6) % 1000000, len(data), len(data)) + data)
