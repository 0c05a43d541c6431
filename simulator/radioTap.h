// Records what devices and radio say to each other, when a recording is asked for.
#pragma once

#include <optional>
#include <string>

#include "radioCapture.h"
#include "skylark/radioWire.h"

namespace kzsim {

class RadioTap {
  public:
    // An empty path: no recording. Throws kzcapture::CaptureError.
    explicit RadioTap(const std::string& path);

    // Records of any kind; those for debugging are left out.
    void fromDevice(uint32_t connectionId, const kzradio::Record& record);
    void toDevice(uint32_t connectionId, const kzradio::Record& record);
    void ended(uint32_t connectionId);

  private:
    std::optional<kzcapture::RadioRecorder> m_recorder;
};

}  // namespace kzsim
