#include "jsonArena.h"

#include <cjson/cJSON.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdint>

namespace {

constexpr size_t kFirstBlockSize = size_t{16} * 1024;  // holds the tree of a usual push
constexpr size_t kMaxBlockSize = size_t{512} * 1024;
constexpr size_t kAlignment = 8;  // a node holds pointers, doubles and integers, none of which needs more

constexpr size_t RoundUp(size_t size) {
    return (size + kAlignment - 1) & ~(kAlignment - 1);
}

}  // namespace

JsonArena* JsonArena::s_current = nullptr;

JsonArena::Use::Use(JsonArena& arena) {
    s_current = &arena;
    cJSON_Hooks hooks{Allocate, Free};
    cJSON_InitHooks(&hooks);
}

JsonArena::Use::~Use() {
    cJSON_InitHooks(nullptr);
    s_current->Rewind();
    s_current = nullptr;
}

JsonArena::~JsonArena() {
    ReleaseBlocksBehind(0);
}

void JsonArena::Rewind() {
    ReleaseBlocksBehind(1);
    m_used = 0;
}

void JsonArena::ReleaseBlocksBehind(size_t count) {
    while (m_blocks.size() > count) {
        munmap(m_blocks.back().begin, m_blocks.back().size);
        m_blocks.pop_back();
    }
}

void* JsonArena::Allocate(size_t size) {
    return s_current->Take(size);
}

void JsonArena::Free(void*) {}

void* JsonArena::Take(size_t size) {
    if (size > PTRDIFF_MAX - kAlignment) {
        return nullptr;
    }
    const size_t taken = RoundUp(size);
    if ((m_blocks.empty() || m_blocks.back().size - m_used < taken) && !AddBlock(taken)) {
        return nullptr;
    }
    void* memory = static_cast<char*>(m_blocks.back().begin) + m_used;
    m_used += taken;
    return memory;
}

// The pages of a block are mapped at once (MAP_POPULATE), which costs less than a page fault for each of them.
bool JsonArena::AddBlock(size_t atLeast) {
    const size_t next = m_blocks.empty() ? kFirstBlockSize : std::min(m_blocks.back().size * 2, kMaxBlockSize);
    const size_t size = std::max(atLeast, next);
    void* begin = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    if (begin == MAP_FAILED) {
        return false;
    }
    m_blocks.push_back({begin, size});
    m_used = 0;
    return true;
}
