// What `--record` writes: all connections of one run of kzble in one capture.
#pragma once

#include <memory>
#include <string>

#include "radioCapture.h"
#include "radioLink.h"

namespace kzble {

class Recording {
  public:
    // Records what passes over `link` from now on, and its end. The file is made at the first call; an empty path
    // records nothing. Throws kzcapture::CaptureError when the file cannot be made.
    void add(kzclient::RadioLink& link, const kzclient::RadioLink::Peer& peer, const std::string& path);

  private:
    std::shared_ptr<kzcapture::RadioRecorder> m_recorder;
};

}  // namespace kzble
