#include "parseProblems.h"

namespace {

constexpr const char* kLogTag = "settingsStatusMapping.cpp";

}  // namespace

ParseProblems* ParseProblems::s_current = nullptr;

ParseProblems::ParseProblems() {
    s_current = this;
}

ParseProblems::~ParseProblems() {
    s_current = nullptr;
    if (m_count > kMaxLines) {
        LOG_ERROR("The file has %d more problems", m_count - kMaxLines);
    }
}

bool ParseProblems::MayLog() {
    return s_current == nullptr || ++s_current->m_count <= kMaxLines;
}
