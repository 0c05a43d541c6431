// HCI packets as a byte stream carries them, each with a byte in front that says its type (the UART transport).

export const COMMAND = 1;
export const ACL_DATA = 2;
export const EVENT = 4;

// By type: where the length of what follows the header is, as an offset behind the type, and how many bytes it has.
const HEADERS = {
  [COMMAND]: { lengthAt: 2, lengthSize: 1 },
  [ACL_DATA]: { lengthAt: 2, lengthSize: 2 },
  3: { lengthAt: 2, lengthSize: 1 }, // synchronous data
  [EVENT]: { lengthAt: 1, lengthSize: 1 },
  5: { lengthAt: 2, lengthSize: 2, mask: 0x3fff }, // isochronous data; the two bits above are reserved
};

// Cuts a byte stream into packets, wherever its pieces begin and end.
export class PacketSplitter {
  #rest = Buffer.alloc(0);

  // The packets that are whole now. Throws at a type that does not exist: what follows could not be found again.
  split(bytes) {
    this.#rest = this.#rest.length === 0 ? bytes : Buffer.concat([this.#rest, bytes]);
    const packets = [];
    for (let size; (size = this.#sizeOfFirst()) <= this.#rest.length; this.#rest = this.#rest.subarray(size)) {
      packets.push(this.#rest.subarray(0, size));
    }
    return packets;
  }

  #sizeOfFirst() {
    if (this.#rest.length === 0) {
      return Infinity;
    }
    const header = HEADERS[this.#rest[0]];
    if (header === undefined) {
      throw new Error(`what comes is no HCI: a packet of type ${this.#rest[0]}`);
    }
    const end = 1 + header.lengthAt + header.lengthSize;
    if (this.#rest.length < end) {
      return Infinity;
    }
    return end + (this.#rest.readUIntLE(1 + header.lengthAt, header.lengthSize) & (header.mask ?? 0xffff));
  }
}
