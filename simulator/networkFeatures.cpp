#include "networkFeatures.h"

#include "cameraIds.h"
#include "csi/csiKeys.h"
#include "report.h"

namespace kzsim {
namespace {

constexpr auto kStep = std::chrono::milliseconds(200);
constexpr uint32_t kPercentStep = 20;
constexpr uint32_t kUploadFiles = 3;

// Values of CSI_OTA_STATE.
enum : uint32_t {
    kUpdateIdle = 0,
    kUpdateDownloading = 1,
    kUpdateVerifying = 2,
    kUpdateReady = 5,
};

}  // namespace

NetworkFeatures::~NetworkFeatures() {
    m_loop.cancel(m_upload);
    m_loop.cancel(m_update);
}

void NetworkFeatures::later(EventLoop::TimerId& timer, std::function<void()> step) {
    m_loop.cancel(timer);
    timer = m_loop.callAfter(kStep, std::move(step));
}

void NetworkFeatures::csiWritten(uint8_t key) {
    if (key == CSI_BROADCAST_PRIVATE) {
        urlWritten();
        return;
    }
    if (key != CSI_WMS_REQUEST) {
        return;
    }
    const uint32_t request = m_camera.csiNumber(key);
    const bool forUpload = m_camera.csi(key).value_or(Bytes()).size() == 1;
    report("network", "feature request %u (%s)", request, forUpload ? "upload" : "update or stream");
    if (forUpload) {
        if (request == WMS_REQUEST_UPLOAD_START) {
            startUpload();
        } else if (request == WMS_REQUEST_UX_CANCEL) {
            cancelUpload();
            // It also ends configure mode, but not a stream that runs.
            if (m_camera.csiNumber(CSI_WMS_STATE) == WMS_STATE_CONFIG) {
                m_camera.setCsiNumber(CSI_WMS_STATE, WMS_STATE_IDLE);
            }
        }
    } else if (request == WMS_REQUEST_LIVE_STREAM) {
        m_camera.setCsiNumber(CSI_WMS_STATE, WMS_STATE_CONFIG);
    } else if (request == WMS_REQUEST_UPDATE_START || request == WMS_REQUEST_UPDATE_START_FORCED) {
        startUpdate();
    } else if (request == WMS_REQUEST_UX_CANCEL) {
        cancelUpdate();
    }
}

// ---------------------------------------------------------------- cloud upload

void NetworkFeatures::startUpload() {
    m_camera.setCsiNumber(CSI_CAH_ACTIVE, 1);
    m_camera.setCsiNumber(CSI_WOM_STATE, kWomUploading);
    uploadStep(1, 0);
}

void NetworkFeatures::uploadStep(uint32_t file, uint32_t percent) {
    if (file > kUploadFiles) {
        cancelUpload();
        return;
    }
    m_camera.setCsi(CSI_CAH_UPLOAD_PROGRESS, bytesOfText(std::to_string(file) + ':' + std::to_string(kUploadFiles) +
                                                         ':' + std::to_string(percent)));
    const bool done = percent >= 100;
    later(m_upload,
          [this, file, percent, done] { uploadStep(done ? file + 1 : file, done ? 0 : percent + kPercentStep); });
}

void NetworkFeatures::cancelUpload() {
    m_loop.cancel(m_upload);
    m_camera.setCsiNumber(CSI_CAH_ACTIVE, 0);
    m_camera.setCsiNumber(CSI_WOM_STATE, kWomNotTriggered);
}

// ---------------------------------------------------------------- software update

void NetworkFeatures::startUpdate() {
    m_camera.setCsiNumber(CSI_OTA_ERROR, 0);
    m_camera.setCsiNumber(CSI_OTA_STATE, kUpdateDownloading);
    updateStep(0);
}

void NetworkFeatures::updateStep(uint32_t percent) {
    m_camera.setCsiNumber(CSI_OTA_PERCENTAGE, percent);
    if (percent < 100) {
        later(m_update, [this, percent] { updateStep(percent + kPercentStep); });
        return;
    }
    m_camera.setCsiNumber(CSI_OTA_STATE, kUpdateVerifying);
    later(m_update, [this] { m_camera.setCsiNumber(CSI_OTA_STATE, kUpdateReady); });
}

void NetworkFeatures::cancelUpdate() {
    m_loop.cancel(m_update);
    m_camera.setCsiNumber(CSI_OTA_PERCENTAGE, 0);
    m_camera.setCsiNumber(CSI_OTA_STATE, kUpdateIdle);
}

// ---------------------------------------------------------------- live stream

void NetworkFeatures::urlWritten() {
    const bool ends = m_camera.csi(CSI_BROADCAST_PRIVATE).value_or(Bytes()).empty();
    if (ends) {
        m_camera.setCsiNumber(CSI_WMS_STATE, WMS_STATE_IDLE);
    } else if (m_camera.csiNumber(CSI_WMS_STATE) == WMS_STATE_CONFIG) {
        m_camera.setCsiNumber(CSI_WMS_STATE, WMS_STATE_READY);
    }
}

}  // namespace kzsim
