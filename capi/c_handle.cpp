// Handle shells, failure texts and text checks, and the functions that
// need no handle: the version, status names and the thread's last error.
#include "capi/c_handle.hpp"

#include <algorithm>
#include <bit>
#include <cstring>
#include <mutex>
#include <vector>

namespace tovrin::ai::detail {

namespace {

// Process-wide on purpose: a destroyed handle is only recognisable while
// its memory stays with the library. Touched by creates and destroys only.
struct ShellPool {
  std::mutex mutex;
  std::vector<Shell*> spare;  // capacity for every shell made
  std::size_t made = 0;
};

ShellPool& shellPool() {
  // Never destroyed, so that spare shells stay reachable to the very end.
  static ShellPool* const pool = new ShellPool;
  return *pool;
}

// The failures of calls without a usable handle have only this home.
thread_local std::string threadError;

constexpr const char* kStatusNames[] = {
    "TOVRIN_AI_OK",
    "TOVRIN_AI_ERR_NULL",
    "TOVRIN_AI_ERR_BAD_HANDLE",
    "TOVRIN_AI_ERR_BAD_SIZE",
    "TOVRIN_AI_ERR_INVALID_UTF8",
    "TOVRIN_AI_ERR_INVALID_ARGUMENT",
    "TOVRIN_AI_ERR_NO_MEMORY",
    "TOVRIN_AI_ERR_FAILED",
};

bool continuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

// The offset of the first byte at or after i that is not ASCII; size when
// there is none. Eight bytes at a time: most of a Czech text is ASCII.
std::size_t skipAscii(const unsigned char* text, std::size_t i,
                      std::size_t size) {
  constexpr std::uint64_t kHighBits = 0x8080808080808080u;
  const auto highBits = [text](std::size_t at) {
    std::uint64_t word;
    std::memcpy(&word, text + at, 8);
    return word & kHighBits;
  };
  while (size - i >= 8) {
    const std::uint64_t high = highBits(i);
    if (high != 0) {
      if constexpr (std::endian::native == std::endian::little) {
        i += static_cast<std::size_t>(std::countr_zero(high)) / 8;
      }
      break;
    }
    i += 8;
  }
  // A short ASCII tail: the last eight bytes, read again, tell at once.
  if (i < size && size >= 8 && size - i < 8 && highBits(size - 8) == 0) {
    return size;
  }
  while (i < size && text[i] < 0x80) ++i;
  return i;
}

// The length of the well-formed sequence that starts at text (a byte of
// 0x80 or more; no overlong forms, no surrogates, nothing above U+10FFFF),
// or 0 when there is none.
std::size_t sequenceLength(const unsigned char* text, std::size_t left) {
  const unsigned char lead = text[0];
  // Two bytes first: every Czech letter is one.
  if (lead >= 0xC2 && lead <= 0xDF) {
    return left >= 2 && continuation(text[1]) ? 2 : 0;
  }
  std::size_t length = 0;
  unsigned char low = 0x80, high = 0xBF;  // range of the second byte
  if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (left < length || text[1] < low || text[1] > high) return 0;
  for (std::size_t k = 2; k < length; ++k) {
    if (!continuation(text[k])) return 0;
  }
  return length;
}

// The offset of the first byte that does not belong to well-formed UTF-8;
// size when there is none.
std::size_t firstInvalidUtf8(const unsigned char* text, std::size_t size) {
  std::size_t i = skipAscii(text, 0, size);
  while (i < size) {
    const std::size_t length = sequenceLength(text + i, size - i);
    if (length == 0) return i;
    i = skipAscii(text, i + length, size);
  }
  return size;
}

}  // namespace

Shell* acquireShell(HandleKind kind, void* object) {
  ShellPool& pool = shellPool();
  Shell* shell = nullptr;
  {
    const std::lock_guard<std::mutex> lock(pool.mutex);
    if (pool.spare.empty()) {
      // Room first, so that giving a shell back never allocates.
      if (pool.spare.capacity() <= pool.made) pool.spare.reserve(2 * pool.made + 8);
      shell = new Shell;
      ++pool.made;
    } else {
      shell = pool.spare.back();
      pool.spare.pop_back();
    }
  }
  shell->object = object;
  shell->error.clear();
  shell->magic.store(static_cast<std::uint32_t>(kind));
  return shell;
}

void releaseShell(Shell* shell) {
  shell->magic.store(0);
  shell->object = nullptr;
  shell->error.clear();
  ShellPool& pool = shellPool();
  const std::lock_guard<std::mutex> lock(pool.mutex);
  pool.spare.push_back(shell);  // within the capacity reserved
}

void throwNull(const char* what) {
  throw CFailure(TOVRIN_AI_ERR_NULL, std::string(what) + " is NULL");
}

void throwBadHandle(const char* what) {
  throw CFailure(TOVRIN_AI_ERR_BAD_HANDLE,
                 std::string(what) + " is not a live handle of its kind "
                                     "(destroyed, or another kind)");
}

tovrin_ai_status recordFailure(Shell* shell, tovrin_ai_status status,
                               const char* text) noexcept {
  try {
    threadError = text;
    if (shell != nullptr) shell->error = text;
  } catch (...) {
    // No memory for the text: the status still tells the caller.
  }
  return status;
}

std::string_view checkedText(const char* data, std::size_t size,
                             const char* what) {
  if (size == 0) return {};
  requirePointer(data, what);
  const auto* bytes = reinterpret_cast<const unsigned char*>(data);
  const std::size_t bad = firstInvalidUtf8(bytes, size);
  if (bad != size) {
    throw CFailure(TOVRIN_AI_ERR_INVALID_UTF8,
                   std::string(what) + " is not UTF-8 (byte " +
                       std::to_string(bad) + " of " + std::to_string(size) +
                       ")");
  }
  return std::string_view(data, size);
}

void textOut(const std::string& text, const char** data, std::size_t* size) {
  *data = text.c_str();
  *size = text.size();
}

void checkStructSize(std::uint32_t size,
                     std::initializer_list<std::size_t> known,
                     const char* what) {
  if (std::find(known.begin(), known.end(), size) == known.end()) {
    throw CFailure(TOVRIN_AI_ERR_BAD_SIZE,
                   std::string(what) + "->struct_size " +
                       std::to_string(size) +
                       " is not a size this library knows");
  }
}

}  // namespace tovrin::ai::detail

using tovrin::ai::detail::Shell;

uint32_t tovrin_ai_c_version(void) { return TOVRIN_AI_C_VERSION; }

const char* tovrin_ai_status_name(int32_t status) {
  const auto count = static_cast<int32_t>(std::size(
      tovrin::ai::detail::kStatusNames));
  return status >= 0 && status < count
             ? tovrin::ai::detail::kStatusNames[status]
             : "unknown status";
}

tovrin_ai_status tovrin_ai_last_error(const char** text, size_t* size) {
  return tovrin::ai::detail::guarded([&](Shell*&) {
    tovrin::ai::detail::requirePointer(text, "text");
    tovrin::ai::detail::requirePointer(size, "size");
    tovrin::ai::detail::textOut(tovrin::ai::detail::threadError, text, size);
    return TOVRIN_AI_OK;
  });
}
