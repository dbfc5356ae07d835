#include "core/logs/log_load_arena.h"

#include <bit>
#include <mutex>
#include <vector>

namespace zev {

struct LogLoadArena::State {
  explicit State(size_t keep) : keepBytes(keep) {}
  ~State() {
    for (const Free& f : free) delete[] f.bytes;
  }
  struct Free {
    size_t size;
    char* bytes;
  };
  const size_t keepBytes;
  mutable std::mutex mutex;
  std::vector<Free> free;
  size_t freeBytes = 0;
};

namespace {

constexpr size_t kSmallestBlock = size_t{32} << 10;

// Returns a block to its arena when the last holder lets it go.
struct Release {
  std::weak_ptr<LogLoadArena::State> state;
  size_t size;
  void operator()(char* bytes) const;
};

}  // namespace

void Release::operator()(char* bytes) const {
  if (const std::shared_ptr<LogLoadArena::State> s = state.lock()) {
    const std::lock_guard lock(s->mutex);
    if (s->freeBytes + size <= s->keepBytes) {
      s->free.push_back({size, bytes});
      s->freeBytes += size;
      return;
    }
  }
  delete[] bytes;
}

LogLoadArena::LogLoadArena(size_t keepBytes) : m_state(std::make_shared<State>(keepBytes)) {}

LogLoadArena::~LogLoadArena() = default;

std::shared_ptr<char[]> LogLoadArena::block(size_t size) {
  const size_t rounded = std::bit_ceil(size < kSmallestBlock ? kSmallestBlock : size);
  char* bytes = nullptr;
  {
    const std::lock_guard lock(m_state->mutex);
    for (size_t i = m_state->free.size(); i-- > 0;) {
      if (m_state->free[i].size == rounded) {
        bytes = m_state->free[i].bytes;
        m_state->free[i] = m_state->free.back();
        m_state->free.pop_back();
        m_state->freeBytes -= rounded;
        break;
      }
    }
  }
  if (bytes == nullptr) bytes = new char[rounded];
  return std::shared_ptr<char[]>(bytes, Release{m_state, rounded});
}

size_t LogLoadArena::keptBytes() const {
  const std::lock_guard lock(m_state->mutex);
  return m_state->freeBytes;
}

}  // namespace zev
