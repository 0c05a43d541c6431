#include "transferSlot.h"

#include "fileSender.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

}  // namespace

bool TransferSlot::IsFileTransferSlotAvailable() const {
    if (IsTaken()) {
        LOG_ERROR("No slots available current count = %d", m_fileTransferSlots);
        return false;
    }
    return true;
}

bool TransferSlot::ReleaseFileTransferSlot() {
    if (!IsTaken()) {
        LogNoneTaken();
        return false;
    }
    --m_fileTransferSlots;
    return true;
}

void TransferSlot::LogNoneTaken() {
    LOG_ERROR("Attempt to Release file slot when none taken");
}

bool TransferSlot::StartSettingsJSONFileTransfer(FileSender& sender) {
    if (IsTaken()) {
        LOG_ERROR("ERROR File limit StartJSONFileTransfer");
        return false;
    }
    if (!sender.SetTransferringSettingsJSON(true)) {
        LOG_ERROR("Unable to start a settings file transfer");
        return false;
    }
    Take();
    LOG_INFO("Consuming a file transfer slot, count = %d", m_fileTransferSlots);
    return true;
}
