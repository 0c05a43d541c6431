#include "liveStream.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <string_view>

#include "cameraCalls.h"
#include "cameraStatus.h"
#include "kzControlCommands/kzControl_presets.pb.h"
#include "posixHandle.h"
#include "protobufAnswer.h"
#include "utils.h"
#include "wsdkCommands/WSDK_RequestSetLiveStreamMode.pb.h"

using wsdk_commands::WSDK_RequestSetLiveStreamMode;

namespace {

constexpr const char* kLogTag = "bleCommandMessage.cpp";

constexpr const char* kCertificatePath = "/tmp/tmp_certs.crt";

// Setting ids of the control daemon.
constexpr uint32_t kSettingLens = 43;
constexpr uint32_t kSettingWindowSize = 64;

constexpr int kDefaultWindowSize = wsdk_commands::WSDK_WINDOW_SIZE_480;

struct BitrateRow {
    int windowSize;
    StreamBitrates bitrates;
};
constexpr BitrateRow kBitrates[] = {
    {wsdk_commands::WSDK_WINDOW_SIZE_480, {800, 1500, 2500}},
    {wsdk_commands::WSDK_WINDOW_SIZE_720, {800, 2500, 3500}},
    {wsdk_commands::WSDK_WINDOW_SIZE_1080, {2500, 3500, 4500}},
};
constexpr StreamBitrates kOtherBitrates{800, 2500, 10000};

// The high half of a preset's id says what kind of preset it is; two kinds are made for streaming.
bool IsStreamPreset(uint32_t presetId) {
    const uint32_t kind = presetId >> 16;
    return kind == 6 || kind == 7;
}

// Remembers the active preset unless it is a streaming one. Returns whether it is one.
bool SaveActivePreset(CameraStatus& camera) {
    uint32_t presetId = 0;
    const int error = CallControl(KZCONTROL_PRESET_GET_ACTIVE_PRESET, nullptr, 0, &presetId, sizeof(presetId));
    if (IsStreamPreset(presetId)) {
        return true;
    }
    if (error == KZ_OK) {
        camera.SetPresetBeforeStream(presetId);
    }
    return false;
}

// ---------------------------------------------------------------- certificate

bool WriteAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

// Nothing is added to a certificate file of this size, which is far above what any chain of certificates takes: the
// folder lies in memory, and no client may fill it.
constexpr off_t kMaxCertificateFile = 1024 * 1024;

// Whether the open file is the daemon's own and has room. One with another owner or a second name was put there by
// somebody who means to read the certificates, or to have another file written.
bool IsOwnCertificateFile(const struct stat& status) {
    return S_ISREG(status.st_mode) && status.st_nlink == 1 && status.st_uid == geteuid() &&
           status.st_size < kMaxCertificateFile;
}

// Appends one certificate and a newline, or nothing. The folder is open to everybody: a link there is not followed, and
// a pipe that nobody reads does not hold up the caller.
bool AppendCertificate(const std::string& certificate) {
    const FileDescriptor file(
        open(kCertificatePath, O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0600));
    struct stat before = {};
    if (!file.IsOpen() || fstat(file, &before) != 0 || !IsOwnCertificateFile(before)) {
        return false;
    }
    if (WriteAll(file, certificate) && WriteAll(file, "\n")) {
        return true;
    }
    // Take a half-written certificate back: it would make the file unreadable from there on. If this fails as well,
    // nothing is left to try.
    static_cast<void>(!ftruncate(file, before.st_size));
    return false;
}

// ---------------------------------------------------------------- the steps of a request

// One request while it is carried out. Certificate and url are left out when the service does not take the request for
// a stream; no other failure stops a later step.
class LiveStreamRequest {
  public:
    LiveStreamRequest(const WSDK_RequestSetLiveStreamMode& request, bool inStreamPreset, uint32_t presetBefore)
        : m_request(request), m_inStreamPreset(inStreamPreset), m_presetBefore(presetBefore) {}

    EnumResultGeneric Run() {
        if (SetCsi(CSI_WMS_REQUEST, uint32_t{WMS_REQUEST_LIVE_STREAM}) == CSI_OK) {
            KeepCertificate();
            SetUrl();
        }
        SetWindowSize();
        SetLens();
        SetEncode();
        SetBitrates();
        LoadPreset();
        return m_result;
    }

  private:
    void KeepCertificate() {
        if (!m_request.has_cert()) {
            return;
        }
        LOG_INFO("Live Stream - Has Cert");
        if (!AppendCertificate(m_request.cert())) {
            LOG_ERROR("ERROR creating /tmp/tmp_certs.crt");
            m_result = RESULT_UNKNOWN;
        }
    }

    void SetUrl() {
        if (!m_request.has_url()) {
            return;
        }
        std::string url = m_request.url();
        LOG_INFO("WSDK_RequestSetAuthCode url = %s", url.c_str());
        if (url.size() > kMaxCsiText) {
            LOG_ERROR("Live Stream URL exceeds limit");
            url.resize(kMaxCsiText);
            m_result = RESULT_UNKNOWN;
        }
        if (SetCsiText(CSI_BROADCAST_PRIVATE, url) != CSI_OK) {
            LOG_ERROR("Error setting CSI_BROADCAST_PRIVATE");
            m_result = RESULT_UNKNOWN;
        }
        if (url.empty()) {
            unlink(kCertificatePath);
            LOG_INFO("url empty remote cert");
            m_presetToLoad = m_presetBefore;
        }
    }

    void SetWindowSize() {
        if (!m_request.has_window_size()) {
            return;
        }
        m_windowSize = m_request.window_size();
        SendSetting(kSettingWindowSize, static_cast<uint32_t>(m_windowSize));
    }

    void SetLens() const {
        const uint32_t lens = m_request.has_lens() ? static_cast<uint32_t>(m_request.lens()) : 0;
        if (m_request.has_lens() && m_inStreamPreset) {
            SendSetting(kSettingLens, lens);
        }
        SetCsi(CSI_LIVE_STREAM_LENS, lens);
    }

    // Switches encoding off first, so that the service sees a change whatever the state was.
    void SetEncode() const {
        if (!m_request.has_encode()) {
            return;
        }
        SetCsi(CSI_LIVE_STREAM_ENCODE, uint32_t{0});
        SetCsi(CSI_LIVE_STREAM_ENCODE, uint32_t{m_request.encode()});
    }

    void SetBitrates() const {
        const StreamBitrates usual = BitratesOfWindowSize(m_windowSize);
        const auto choose = [](bool given, int32_t wanted, uint32_t otherwise) {
            return given ? static_cast<uint32_t>(wanted) : otherwise;
        };
        SetCsi(CSI_LIVE_STREAM_MIN_BITRATE,
               choose(m_request.has_minimum_bitrate(), m_request.minimum_bitrate(), usual.minimum));
        SetCsi(CSI_LIVE_STREAM_MAX_BITRATE,
               choose(m_request.has_maximum_bitrate(), m_request.maximum_bitrate(), usual.maximum));
        SetCsi(CSI_LIVE_STREAM_START_BITRATE,
               choose(m_request.has_starting_bitrate(), m_request.starting_bitrate(), usual.starting));
    }

    void LoadPreset() {
        if (!m_presetToLoad) {
            return;
        }
        LOG_INFO("Setting broadcast preset %d", static_cast<int>(*m_presetToLoad));
        kzcontrol::presets::KZC_Preset_Load_Req load;
        load.set_preset_id(*m_presetToLoad);
        std::string bytes;
        if (!Encode(load, &bytes)) {
            LOG_ERROR("Error setting streaming preset");
            m_result = RESULT_UNKNOWN;
            return;
        }
        const int error = CallControlEx(KZCONTROL_PRESET_LOAD, bytes.data(), static_cast<uint32_t>(bytes.size()),
                                        nullptr, 0, nullptr);
        if (error != KZ_OK) {
            LOG_ERROR("Error setting streaming preset %d", error);
            m_result = RESULT_UNKNOWN;
        }
    }

    const WSDK_RequestSetLiveStreamMode& m_request;
    bool m_inStreamPreset;
    uint32_t m_presetBefore;  // active before streaming
    int m_windowSize = kDefaultWindowSize;
    std::optional<uint32_t> m_presetToLoad;
    EnumResultGeneric m_result = RESULT_SUCCESS;
};

}  // namespace

StreamBitrates BitratesOfWindowSize(int windowSize) {
    for (const BitrateRow& row : kBitrates) {
        if (row.windowSize == windowSize) {
            return row.bitrates;
        }
    }
    return kOtherBitrates;
}

EnumResultGeneric SetLiveStream(const std::vector<uint8_t>& payload, CameraStatus& camera) {
    const bool inStreamPreset = SaveActivePreset(camera);
    const auto request = ParseRequest<WSDK_RequestSetLiveStreamMode>(payload);
    return LiveStreamRequest(request, inStreamPreset, camera.GetPresetBeforeStream()).Run();
}
