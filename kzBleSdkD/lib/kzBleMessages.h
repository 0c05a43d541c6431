// The object view of a TLV message between the camera's daemons: a Msg holds MsgElements. The wire format and the
// functions that work on its bytes in place are in kzTlv.h.
//
// Lengths and categories are as on the wire; nothing here validates (tlv_validate does). Decoding accepts any bytes:
// what does not hold together is refused with a level-2 text. Not thread-safe.
#pragma once

#include <memory>
#include <vector>

#include "MemStream.h"

// One element: a type and a copy of its data. offset width: 0 1 reserved, 1 2 data length big-endian, 3 1 type, 4 n
// data.
class MsgElement {
  public:
    // TLV_VOID, no data, not static.
    MsgElement();
    // A static element is not freed by the Msg it is added to.
    MsgElement(unsigned char type, bool isStatic);
    MsgElement(unsigned char type, unsigned short length, const void* data, bool isStatic);
    MsgElement(const MsgElement&) = delete;
    MsgElement& operator=(const MsgElement&) = delete;
    virtual ~MsgElement() = default;

    // Bytes on the wire: data length + 4.
    virtual unsigned int getSize() const;
    virtual unsigned char getType() const;
    // Replaces the data with a copy; a length of 0 leaves no data.
    virtual void setData(const void* data, unsigned short length);
    // Owned by the element, not terminated; null when the length is 0.
    virtual unsigned char* getData() const;
    virtual unsigned short getDataLength() const;
    // The data as one little-endian value. The element must hold exactly sizeof(data) bytes: callers check received
    // elements before they ask, anything else is a calling error and aborts.
    virtual void getDataAs(unsigned char& data) const;
    virtual void getDataAs(unsigned short& data) const;
    virtual void getDataAs(unsigned int& data) const;
    // Type name, length and data at level 6.
    virtual void dump() const;

    bool isStatic() const { return m_isStatic; }

    // Reads one element at the stream's position, replacing type and data. False, with the position and the element
    // unchanged, when the stream does not hold the whole element.
    bool decode(MemoryStream& stream);

  private:
    template <typename T>
    void readDataAs(T& data) const;

    unsigned char m_type;
    unsigned short m_length = 0;
    std::unique_ptr<unsigned char[]> m_data;
    bool m_isStatic = false;
};

// One message: a category and its elements in order. offset width: 0 2 total length big-endian, 2 1 reserved, 3 1
// category, 4 .. elements.
class Msg {
  public:
    explicit Msg(unsigned char category);
    Msg(const Msg&) = delete;
    Msg& operator=(const Msg&) = delete;
    virtual ~Msg() = default;

    // Frees every non-static element and empties the list; the category stays.
    virtual void clear();
    // Bytes on the wire, kept to 16 bits.
    virtual unsigned short getSize() const;
    virtual unsigned char getCategory() const;
    // The first element of that type, owned by the message; null when there is none.
    virtual MsgElement* findElement(unsigned char type) const;
    // The whole message at level 6, under the label.
    virtual void dump(const char* label) const;

    // Appends the element. The message owns it from here on unless it is static; a static element must outlive the
    // message's use of it.
    void addElement(MsgElement* element);
    // Appends an owned element with a copy of the data.
    void addElement(unsigned char type, unsigned short length, const void* data);

    // Rewinds the stream and reads one message, replacing category and elements. Elements are read until they reach the
    // total length; the last is read whole where the stream holds it. A total length below 4 or above what the stream
    // holds, and an element that runs past the stream's limit, are refused: a level-2 text, an empty message, false.
    // The category is readable all the same; it is 0 when the stream holds less than a header.
    bool decode(MemoryStream& stream);

  private:
    struct Release {
        bool owned = true;
        void operator()(MsgElement* element) const;
    };
    using Element = std::unique_ptr<MsgElement, Release>;
    friend MemoryStream& operator<<(MemoryStream& stream, const Msg& message);

    const char* decodeElements(MemoryStream& stream, unsigned short totalLength);

    std::vector<Element> m_elements;
    unsigned char m_category;
};

// The element as on the wire. The stream must have room for getSize() bytes.
MemoryStream& operator<<(MemoryStream& stream, const MsgElement& element);
// MsgElement::decode; a truncated element is logged at level 2.
MemoryStream& operator>>(MemoryStream& stream, MsgElement& element);
// Rewinds the stream and writes header and elements. No end marker is added: a message meant for the wire has a TLV_END
// as its last element.
MemoryStream& operator<<(MemoryStream& stream, const Msg& message);
// Msg::decode.
MemoryStream& operator>>(MemoryStream& stream, Msg& message);
