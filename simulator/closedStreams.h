// Standard streams that the caller closed.
#pragma once

namespace kzsim {

// Occupies their descriptors with files that can neither be read nor written, so that the next socket or file does not
// become one of them. To be called before anything is opened.
void occupyClosedStreams();

}  // namespace kzsim
