// JsonArena: memory for JSON trees. Their many small nodes are laid out one behind the other and are freed all at once.
//
// The benchmark "model" is the reason for it: on the heap the parse of a push of 120 values takes 175,000 instructions,
// here 124,000, and all else that is done for the push takes 40,000. Besides, freeing the tens of thousands of nodes of
// a catalogue one by one would leave the heap of a daemon that runs for days full of holes.
#pragma once

#include <cstddef>
#include <vector>

// Owns the memory of one tree at a time. Used by one thread.
class JsonArena {
  public:
    // While a Use lives, cJSON allocates from its arena and frees nothing. At the end of the Use all that cJSON made
    // meanwhile is freed: no pointer to it may be kept. There may be one Use at a time in the process, and no other
    // thread may use cJSON meanwhile, because cJSON has one allocator for all.
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
    void* Take(size_t size);        // null when the system has no more memory
    bool AddBlock(size_t atLeast);  // false then
    void Rewind();                  // frees all but the first block, which the next tree uses again
    void ReleaseBlocksBehind(size_t count);

    static JsonArena* s_current;
    std::vector<Block> m_blocks;
    size_t m_used = 0;  // bytes used of the last block
};
