// Memory that tail loads hand back and take again: the read buffer, the
// loader's working arrays and the blocks that hold the parsed lines' texts.
//
// A load on memory fresh from the system pays a page fault for every 4 KiB it
// touches, which costs more than the parsing itself once the allocator has
// returned freed memory to the system (as it does after the log window drops
// a load's lines). An arena keeps up to a fixed number of bytes of released
// blocks resident and hands them to the next load.
//
// Blocks are shared pointers; the last holder's release returns a block to
// the arena, or frees it when the arena is full or gone. Thread-safe: loads
// on several threads may share one arena.
#ifndef ZEV_CORE_LOG_LOAD_ARENA_H_
#define ZEV_CORE_LOG_LOAD_ARENA_H_

#include <cstddef>
#include <memory>

namespace zev {

class LogLoadArena {
 public:
  // Keeps at most `keepBytes` of released blocks.
  explicit LogLoadArena(size_t keepBytes = size_t{4} << 20);
  ~LogLoadArena();
  LogLoadArena(const LogLoadArena&) = delete;
  LogLoadArena& operator=(const LogLoadArena&) = delete;

  // A block of at least `size` bytes (contents unspecified). Sizes are
  // rounded up to a power of two of at least 32 KiB so that blocks fit
  // the next load's requests.
  std::shared_ptr<char[]> block(size_t size);

  // Bytes of released blocks waiting for reuse.
  size_t keptBytes() const;

  struct State;  // shared with the blocks' release

 private:
  std::shared_ptr<State> m_state;
};

}  // namespace zev

#endif  // ZEV_CORE_LOG_LOAD_ARENA_H_
