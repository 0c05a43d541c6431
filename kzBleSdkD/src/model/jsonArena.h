// JsonArena: memory for JSON trees. Their many small nodes are laid out one behind the other and go all at once, which
// is faster than the heap and leaves no holes in it.
#pragma once

#include <cstddef>
#include <vector>

// Owns the memory of one tree at a time. Not copied, not shared between threads.
class JsonArena {
  public:
    // While a Use lives, all of cJSON allocates from its arena and freeing is left to its end, when everything that
    // cJSON made meanwhile is gone. One at a time, and no other thread may use cJSON meanwhile.
    class Use {
      public:
        explicit Use(JsonArena& arena);
        ~Use();
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
    };

    JsonArena() = default;
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
    void Rewind();  // keeps the first block for the next tree
    void ReleaseBlocksBehind(size_t count);

    static JsonArena* s_current;
    std::vector<Block> m_blocks;
    size_t m_used = 0;  // bytes of the last block
};
