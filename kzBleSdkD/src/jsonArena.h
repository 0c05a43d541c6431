// JsonArena: memory for one large JSON tree. Its many small nodes are laid out one behind the other and go all at once,
// which is faster than the heap and leaves no holes in it.
#pragma once

#include <cstddef>
#include <vector>

// While an arena lives, all of cJSON allocates from it, freeing is left to its end, and nothing that cJSON made may
// outlive it. One at a time, and no other thread may use cJSON meanwhile.
class JsonArena {
  public:
    JsonArena();
    ~JsonArena();
    JsonArena(const JsonArena&) = delete;
    JsonArena& operator=(const JsonArena&) = delete;

  private:
    struct Block {
        void* begin;
        size_t size;
    };

    static void* Allocate(size_t size);
    static void Free(void* memory);
    void* Take(size_t size);  // null when memory is short
    bool AddBlock(size_t atLeast);

    static JsonArena* s_current;
    std::vector<Block> m_blocks;
    size_t m_used = 0;  // bytes of the last block
};
