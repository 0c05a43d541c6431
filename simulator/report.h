// What the simulator tells its user: one line an event on standard error, only with --verbose; warnings always.
#pragma once

namespace kzsim {

void setVerbose(bool verbose);

// `role` is the part of the camera that speaks: "radio", "control", "network", "metadata", "camera", "console".
void report(const char* role, const char* format, ...) __attribute__((format(printf, 2, 3)));
void warn(const char* role, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace kzsim
