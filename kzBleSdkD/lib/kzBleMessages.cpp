// Msg and MsgElement: decoding, encoding and dumps of TLV messages.
#include "kzBleMessages.h"

#include <algorithm>

#include "kzTlv.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleMessages.cpp";
constexpr const char* kPath = "kzBleSdkD/lib/kzBleMessages";

// Lengths are big-endian on the wire; the stream's own operators are little-endian.
void writeBigEndian(MemoryStream& stream, unsigned short value) {
    stream << static_cast<unsigned char>(value >> 8) << static_cast<unsigned char>(value);
}

unsigned short readBigEndian(MemoryStream& stream) {
    unsigned char high = 0;
    unsigned char low = 0;
    stream >> high >> low;
    return static_cast<unsigned short>(high << 8 | low);
}

}  // namespace

// ---------------------------------------------------------------- MsgElement

MsgElement::MsgElement() : MsgElement(TLV_VOID, false) {}

MsgElement::MsgElement(unsigned char type, bool isStatic) : m_type(type), m_isStatic(isStatic) {}

MsgElement::MsgElement(unsigned char type, unsigned short length, const void* data, bool isStatic)
    : MsgElement(type, isStatic) {
    MsgElement::setData(data, length);
}

unsigned int MsgElement::getSize() const {
    return m_length + TLV_ELEM_HDR_SIZE;
}
unsigned char MsgElement::getType() const {
    return m_type;
}
unsigned char* MsgElement::getData() const {
    return m_data.get();
}
unsigned short MsgElement::getDataLength() const {
    return m_length;
}

void MsgElement::setData(const void* data, unsigned short length) {
    std::unique_ptr<unsigned char[]> copy;
    if (length != 0) {
        copy = std::make_unique<unsigned char[]>(length);
        std::memcpy(copy.get(), data, length);
    }
    m_data = std::move(copy);  // not earlier: `data` may point into the old data
    m_length = length;
}

// The assertions name getDataAs, which is what the caller called.
template <typename T>
void MsgElement::readDataAs(T& data) const {
    if (getData() == nullptr) {
        kzAssertFailedTraced(kPath, "getDataAs", __LINE__, "getData() != NULL");
    }
    if (getDataLength() != sizeof(data)) {
        kzAssertFailedTraced(kPath, "getDataAs", __LINE__, "getDataLength() == sizeof(data)");
    }
    MemoryStream stream(m_data.get(), m_length);
    stream >> data;
}

void MsgElement::getDataAs(unsigned char& data) const {
    readDataAs(data);
}
void MsgElement::getDataAs(unsigned short& data) const {
    readDataAs(data);
}
void MsgElement::getDataAs(unsigned int& data) const {
    readDataAs(data);
}

void MsgElement::dump() const {
    LOG_TRACE("Message Element->Category:%s length:%d\n", tlv_type_name(m_type), m_length);
    MemoryStream::dumpArray(m_data.get(), m_length);
}

bool MsgElement::decode(MemoryStream& stream) {
    const unsigned short start = stream.m_index;
    if (stream.getRemainder() < TLV_ELEM_HDR_SIZE) {
        return false;
    }
    unsigned char reserved = 0;
    unsigned char type = 0;
    stream >> reserved;
    const unsigned short length = readBigEndian(stream);
    stream >> type;
    if (length > stream.getRemainder()) {
        stream.m_index = start;
        return false;
    }
    setData(stream.getBuffer() + stream.m_index, length);
    stream.m_index = static_cast<unsigned short>(stream.m_index + length);
    m_type = type;
    return true;
}

MemoryStream& operator<<(MemoryStream& stream, const MsgElement& element) {
    stream << static_cast<unsigned char>(0);
    writeBigEndian(stream, element.getDataLength());
    stream << element.getType();
    stream.writeArray(element.getData(), element.getDataLength());
    return stream;
}

MemoryStream& operator>>(MemoryStream& stream, MsgElement& element) {
    if (!element.decode(stream)) {
        LOG_ERROR("TLV element is cut: %d bytes left", stream.getRemainder());
    }
    return stream;
}

// ---------------------------------------------------------------- Msg

void Msg::Release::operator()(MsgElement* element) const {
    if (owned) {
        delete element;
    }
}

Msg::Msg(unsigned char category) : m_category(category) {}

void Msg::clear() {
    m_elements.clear();
}

unsigned short Msg::getSize() const {
    unsigned int size = kTlvMessageHeaderSize;
    for (const Element& element : m_elements) {
        size += element->getSize();
    }
    return static_cast<unsigned short>(size);
}

unsigned char Msg::getCategory() const {
    return m_category;
}

MsgElement* Msg::findElement(unsigned char type) const {
    const auto found = std::find_if(m_elements.begin(), m_elements.end(),
                                    [type](const Element& element) { return element->getType() == type; });
    return found != m_elements.end() ? found->get() : nullptr;
}

void Msg::dump(const char* label) const {
    if (kzUtilGetLogLevel() < KZ_LOG_TRACE) {
        return;
    }
    LOG_TRACE("-------- %s ---------\n", label);
    LOG_TRACE("Category: %d Length:%d num_elements:%d\n", m_category, getSize(), static_cast<int>(m_elements.size()));
    for (const Element& element : m_elements) {
        element->dump();
    }
}

void Msg::addElement(MsgElement* element) {
    m_elements.push_back(Element(element, Release{!element->isStatic()}));
}

void Msg::addElement(unsigned char type, unsigned short length, const void* data) {
    m_elements.push_back(Element(new MsgElement(type, length, data, false)));
}

bool Msg::decode(MemoryStream& stream) {
    stream.reset();
    clear();
    m_category = 0;
    if (stream.getSourceLength() < kTlvMessageHeaderSize) {
        LOG_ERROR("TLV message of %d bytes is shorter than its header", stream.getSourceLength());
        return false;
    }
    const unsigned short totalLength = readBigEndian(stream);
    unsigned char reserved = 0;
    stream >> reserved >> m_category;
    if (const char* refusal = decodeElements(stream, totalLength); refusal != nullptr) {
        LOG_ERROR("TLV message of category %d is refused: %s (length %d, %d bytes arrived)", m_category, refusal,
                  totalLength, stream.getSourceLength());
        clear();
        return false;
    }
    return true;
}

// Reads the elements of a message whose header was read. Returns why they are refused, or null.
const char* Msg::decodeElements(MemoryStream& stream, unsigned short totalLength) {
    if (totalLength < kTlvMessageHeaderSize) {
        return "its length is below its header's";
    }
    if (totalLength > stream.getSourceLength()) {
        return "it is cut";
    }
    while (stream.getLength() < totalLength) {
        auto element = std::make_unique<MsgElement>();
        if (!element->decode(stream)) {
            return "an element is cut";
        }
        m_elements.push_back(Element(element.release()));
    }
    return nullptr;
}

MemoryStream& operator<<(MemoryStream& stream, const Msg& message) {
    stream.reset();
    writeBigEndian(stream, message.getSize());
    stream << static_cast<unsigned char>(0) << message.getCategory();
    for (const Msg::Element& element : message.m_elements) {
        stream << *element;
    }
    return stream;
}

MemoryStream& operator>>(MemoryStream& stream, Msg& message) {
    message.decode(stream);
    return stream;
}
