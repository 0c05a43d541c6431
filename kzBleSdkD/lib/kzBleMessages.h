// The object view of a TLV message between the camera's daemons: a Msg holds MsgElements. The wire format and the
// functions that work on its bytes in place are in kzTlv.h.
//
// Lengths and categories are as on the wire; nothing here validates (tlv_validate does). Decoding accepts any bytes:
// what does not hold together is refused with a level-2 text. Not thread-safe.
#pragma once

#include <memory>
#include <vector>

#include "MemStream.h"

// One element: a type and a copy of its data.
class MsgElement {
  public:
    // An element of type TLV_VOID without data, not static.
    MsgElement();
    // A static element is not freed by the Msg it is added to.
    MsgElement(unsigned char type, bool isStatic);
    MsgElement(unsigned char type, unsigned short length, const void* data, bool isStatic);
    MsgElement(const MsgElement&) = delete;
    MsgElement& operator=(const MsgElement&) = delete;
    virtual ~MsgElement() = default;

    // How many bytes the element takes on the wire: data length + 4.
    virtual unsigned int getSize() const;
    virtual unsigned char getType() const;
    // Replaces the data with a copy; a length of 0 leaves no data.
    virtual void setData(const void* data, unsigned short length);
    // Owned by the element, not terminated; null when the length is 0.
    virtual unsigned char* getData() const;
    virtual unsigned short getDataLength() const;
    // Reads the data as one little-endian value. An element that does not hold exactly sizeof(data) bytes is a calling
    // error and aborts, so callers check the length of a received element first.
    virtual void getDataAs(unsigned char& data) const;
    virtual void getDataAs(unsigned short& data) const;
    virtual void getDataAs(unsigned int& data) const;
    // Logs type name, length and data at level 6.
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

// One message: a category and its elements in their order.
class Msg {
  public:
    explicit Msg(unsigned char category);
    Msg(const Msg&) = delete;
    Msg& operator=(const Msg&) = delete;
    virtual ~Msg() = default;

    // Frees every non-static element and empties the list; the category stays.
    virtual void clear();
    // How many bytes the message takes on the wire, modulo 65536.
    virtual unsigned short getSize() const;
    virtual unsigned char getCategory() const;
    // The first element of that type, owned by the message; null when there is none.
    virtual MsgElement* findElement(unsigned char type) const;
    // Logs the whole message at level 6, under the label.
    virtual void dump(const char* label) const;

    // Appends the element. The message owns it from here on unless it is static; a static element must outlive the
    // message's use of it.
    void addElement(MsgElement* element);
    // Appends an owned element with a copy of the data.
    void addElement(unsigned char type, unsigned short length, const void* data);

    // Rewinds the stream and reads one message, which replaces category and elements. Elements are read until the total
    // length is reached; the last one may pass it. Returns false, with a level-2 text and without elements, for a total
    // length below 4 or above what the stream holds, and for an element that passes the stream's limit. The category is
    // set all the same, to 0 if the stream holds less than a header.
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

// Writes the element. The stream must have room for getSize() bytes.
MemoryStream& operator<<(MemoryStream& stream, const MsgElement& element);
// Reads an element as MsgElement::decode does; one that is cut is logged at level 2.
MemoryStream& operator>>(MemoryStream& stream, MsgElement& element);
// Rewinds the stream and writes header and elements. No end marker is added: whoever sends the message adds a TLV_END
// as its last element.
MemoryStream& operator<<(MemoryStream& stream, const Msg& message);
// Reads a message as Msg::decode does.
MemoryStream& operator>>(MemoryStream& stream, Msg& message);
