// FileSender: the file that one client is receiving, cut into packets. At most one file at a time; when packets leave
// is the server's decision.
//
// settings.json.gz travels as one message of the command interface: header, command id, result, then the file. Firmware
// images travel as raw bytes from behind the image header.
#pragma once

#include <time.h>

#include <cstdint>

#include "fileHandle.h"
#include "messageCutter.h"

class Answers;
class StoredResponse;
struct Identity;

class FileSender {
  public:
    static constexpr uint16_t kDefaultBlockSize = 500;

    // Both must outlive it: the device type decides how an image is cut, and the command gate whether settings.json may
    // be sent.
    FileSender(const Identity& identity, const Answers& answers) : m_identity(identity), m_answers(answers) {}
    FileSender(const FileSender&) = delete;
    FileSender& operator=(const FileSender&) = delete;
    // A file that is still open is closed, with a line in the log.
    ~FileSender();

    bool IsTransferringSettingsJSON() const { return m_transferringSettingsJSON; }
    bool IsTransferringLarch() const { return m_transferringLarch; }

    // Starts (on) or ends the transfer of settings.json.gz. False when it could not be started, and for ending one that
    // does not run. A start that fails leaves no file open. While the command gate is closed, a start is refused, and
    // an end ends the transfer but returns false too.
    bool SetTransferringSettingsJSON(bool on);
    // Starts the transfer of a firmware image that was checked through this very file; `modified` is its last change
    // before the check. False, with no file open, when it cannot be read.
    bool StartImage(FileHandle file, const timespec& modified);
    // Ends the transfer of an image. False when none runs.
    bool EndImage();
    // Ends whatever runs.
    void Reset();

    // Whether the file is still the one the transfer began with; if not, it is logged, and the transfer is to be ended.
    // It is asked before every run of packets. Returns true when no file is open.
    bool FileIsUnchanged() const;
    // Cut the next packet, at most 20 bytes, into `out`; true when more follow. An empty packet means that there is
    // nothing left: the transfer is to be ended.
    bool GetSettingsJSONResponse(StoredResponse& out);
    bool GetLarchResponse(StoredResponse& out);
    // Progress of a firmware transfer, 0 to 100.
    uint8_t GetPercentDone() const;

    // An accessory that fetches its image block by block: the bytes of a block, and those of the current one that are
    // still to be sent.
    uint16_t m_blockSize = kDefaultBlockSize;
    uint16_t m_bytesRemaining = 0;

  private:
    bool OpenSettingsJSON();
    void HoldFile(FileHandle file, uint32_t size);
    void CloseFile();
    bool PrepareFilePacket(StoredResponse& out) const;

    const Identity& m_identity;
    const Answers& m_answers;
    uint32_t m_fileIndex = 0;   // file bytes sent; firmware: counted from the end of the image header
    MessageCutter m_cutter{0};  // of the settings.json message
    bool m_transferringSettingsJSON = false;
    bool m_transferringLarch = false;
    FileHandle m_file;              // of the running transfer
    uint32_t m_fileSize = 0;        // bytes of the whole file, header included
    struct timespec m_fileTime {};  // last change of the file when the transfer began
};
