// TransferSlot: one file transfer at a time in the whole daemon. Who starts a transfer takes the slot; it is free again
// when the transfer ends or its client goes. Command thread only.
#pragma once

#include <cstdint>

class FileSender;

class TransferSlot {
  public:
    // Whether a transfer may start. A refusal is logged.
    bool IsFileTransferSlotAvailable() const;
    bool IsTaken() const { return m_fileTransferSlots != 0; }

    // Takes the slot; the caller has seen that it is free.
    void Take() { ++m_fileTransferSlots; }
    uint32_t SlotsInUse() const { return m_fileTransferSlots; }
    // Frees the slot. False, with a line in the log, when no transfer holds it.
    bool ReleaseFileTransferSlot();
    static void LogNoneTaken();

    // Starts the transfer of settings.json.gz to a client; its packets leave on the ticks. False, with a line in the
    // log, when another transfer runs or this one cannot be started.
    bool StartSettingsJSONFileTransfer(FileSender& sender);

  private:
    uint32_t m_fileTransferSlots = 0;  // in use, 0 or 1
};
