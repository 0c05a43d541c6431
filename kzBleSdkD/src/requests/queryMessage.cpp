#include "queryMessage.h"

#include <algorithm>

#include "bleResponses.h"
#include "bleSDK.h"
#include "plainQueries.h"
#include "queryKinds.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "bleQueryMessage.cpp";

constexpr unsigned kHeaderSize = 2;  // of every answer

bool IsKnownId(const SettingsStatusMapping& model, uint32_t category, int id) {
    const auto number = static_cast<unsigned>(id);
    switch (category) {
        case kCategorySettings:
            return model.IsValidSettingsId(number);
        case kCategoryStatus:
            return model.IsValidStatusId(number);
        default:
            return false;
    }
}

int MaxIds(const SettingsStatusMapping& model, uint32_t category) {
    return category == kCategorySettings ? model.GetMaxSettingsId() : model.GetMaxStatusId();
}

}  // namespace

// ---------------------------------------------------------------- parsing

void BleQueryMessage::Reset(int length) {
    m_category = 0;
    m_type = 0;
    m_ids.clear();
    m_idsGiven = false;
    m_actionId = 0;
    m_payload.clear();
    SetLength(length);
}

int BleQueryMessage::Deserialize() {
    if (m_stream.getRemainder() == 0) {
        LOG_ERROR("Query message without a first byte");
        return 1;
    }
    unsigned char first = 0;
    m_stream >> first;
    if (first == kQueryFeatureId) {
        m_category = first;
        LOG_INFO("Query Feature ID=%d", first);
        return DeserializeProtobuf();
    }
    m_category = first & 0x0F;
    m_type = first >> 4;
    LOG_INFO("Query first byte = %d", first);
    LOG_INFO("Parsed category:%d type:%d", m_category, m_type);
    return DeserializeIds();
}

int BleQueryMessage::DeserializeProtobuf() {
    if (m_stream.getRemainder() == 0) {
        LOG_ERROR("Protobuf query without an action id");
        return 1;
    }
    m_stream >> m_actionId;
    const unsigned short size = m_stream.getRemainder();
    LOG_INFO("Query Protobuf ID=%d size=%d", m_actionId, size);
    m_payload.resize(size);
    m_stream.readArray(m_payload.data(), size);
    const auto byte = [this](size_t index) { return index < m_payload.size() ? m_payload[index] : 0; };
    LOG_INFO("pb={%02x %02x %02x %02x %02x}", byte(0), byte(1), byte(2), byte(3), byte(4));
    return 0;
}

int BleQueryMessage::DeserializeIds() {
    const SettingsStatusMapping* model = BleSDK::LoadedMapping();
    while (m_stream.getRemainder() > 0) {
        unsigned char id = 0;
        m_stream >> id;
        m_idsGiven = true;
        if (model == nullptr || !IsKnownId(*model, m_category, id)) {
            LOG_ERROR("Skipping invalid id:%d passed by user", id);
            continue;
        }
        const int limit = MaxIds(*model, m_category);
        if (m_ids.size() >= static_cast<size_t>(limit)) {
            LOG_ERROR("Max %d ids already parsed from this message.", limit);
            return 1;
        }
        m_ids.push_back(id);
    }
    return 0;
}

// ---------------------------------------------------------------- execution

int BleQueryMessage::Execute(Peer* client, uint8_t* response, uint16_t* responseLength) {
    // No answer is longer than what the radio queue takes when it is empty: a longer one could never be sent, and would
    // hold up what is stored behind it.
    MemoryStream stream(response, std::min(*responseLength, services().longestResponse));
    const int error = m_category == kQueryFeatureId ? ExecuteProtobuf(*client, stream) : ExecutePlain(*client, stream);
    *responseLength = error == KZ_OK ? stream.getLength() : uint16_t{0};
    return error;
}

int BleQueryMessage::ExecutePlain(Peer& client, MemoryStream& stream) {
    LOG_INFO("Executing Query Category:%d type:%d", m_category, m_type);
    if (m_category != kCategorySettings && m_category != kCategoryStatus) {
        LOG_ERROR("Unsupported query category:%d", m_category);
        return KZ_ERR_INVALID_PARAM;
    }
    const PlainQuery* row = FindPlainQuery(m_category, m_type);
    if (row == nullptr) {
        LOG_ERROR("Invalid category:%d and type:%d", m_category, m_type);
        return KZ_ERR_INVALID_PARAM;
    }
    if (stream.getRemainder() < kHeaderSize) {
        LOG_ERROR("No room for an answer in %d bytes", stream.getRemainder());
        return KZ_ERR;
    }
    row->logName(static_cast<int>(m_ids.size()));
    SettingsStatusMapping* model = BleSDK::LoadedMapping();
    if (model == nullptr) {
        LOG_ERROR("Query without a settings model");
        return KZ_ERR;
    }
    ChangeInterest(client.m_interests, *row, *this);
    row->read({*this, *model, stream});
    return KZ_OK;
}

int BleQueryMessage::HandleError(int error, uint8_t* response, uint16_t* responseLength) {
    MemoryStream stream(response, *responseLength);
    if (stream.getRemainder() < kHeaderSize) {
        *responseLength = 0;
        return 0;
    }
    stream << BleQueryResponse(m_category, m_type, static_cast<uint32_t>(BleSDK::SetKZErrNo(error)));
    *responseLength = stream.getLength();
    return 0;
}

void BleQueryMessage::Dump() const {
    LOG_TRACE("Category:%u", m_category);
    LOG_TRACE("Type:%u", m_type);
    LOG_TRACE("Protobuf ID:%u size:%d", m_actionId, static_cast<int>(m_payload.size()));
    for (int id : m_ids) {
        LOG_TRACE("Id:%d", id);
    }
}
