// What every function of the C interface shares: the handle shells, the
// failure texts, the guard that keeps C++ exceptions inside the library,
// and the checks of what a caller hands in.
#ifndef TOVRIN_AI_CAPI_C_HANDLE_HPP_
#define TOVRIN_AI_CAPI_C_HANDLE_HPP_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <initializer_list>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tovrin/ai_c.h"

namespace tovrin::ai::detail {

// A shell's magic while it holds an object of that kind; 0 once destroyed.
enum class HandleKind : std::uint32_t {
  kService = 0x7a1c5e01,
  kSubmission = 0x7a1c5e02,
  kModelServer = 0x7a1c5e03,
};

// What the caller's handle points to. Shells are pooled, never freed, so
// that reading the magic of a destroyed handle reads the library's own
// memory, not freed memory.
struct Shell {
  std::atomic<std::uint32_t> magic{0};
  void* object = nullptr;
  std::string error;  // the last failing call's text on this handle
};

// A failure with the status the caller gets for it.
class CFailure : public std::runtime_error {
 public:
  CFailure(tovrin_ai_status status, const std::string& text)
      : std::runtime_error(text), status_(status) {}
  tovrin_ai_status status() const { return status_; }

 private:
  tovrin_ai_status status_;
};

// A pooled shell holding object under kind's magic.
Shell* acquireShell(HandleKind kind, void* object);
// Clears the magic and gives the shell back to the pool.
void releaseShell(Shell* shell);
// Throw the failures of the checks below; out of line, off the fast path.
[[noreturn]] void throwNull(const char* what);
[[noreturn]] void throwBadHandle(const char* what);

// CFailure(TOVRIN_AI_ERR_NULL) when pointer is NULL.
inline void requirePointer(const void* pointer, const char* what) {
  if (pointer == nullptr) throwNull(what);
}

// The shell behind handle; CFailure for NULL, a destroyed handle or one of
// another kind. what names the argument in the failure's text.
inline Shell* liveShell(const void* handle, HandleKind kind, const char* what) {
  requirePointer(handle, what);
  Shell* shell = static_cast<Shell*>(const_cast<void*>(handle));
  if (shell->magic.load(std::memory_order_acquire) !=
      static_cast<std::uint32_t>(kind)) {
    throwBadHandle(what);
  }
  return shell;
}

// Records text on shell (when set) and on the calling thread; returns
// status. Never throws: without memory for the text the old one stays.
tovrin_ai_status recordFailure(Shell* shell, tovrin_ai_status status,
                               const char* text) noexcept;

// Runs body(where) and turns every exception into a status and a recorded
// text. body sets where to the handle it acts on once that handle is known
// to be live, so that its failures are kept on that handle too.
template <typename Body>
tovrin_ai_status guarded(Body&& body) noexcept {
  Shell* where = nullptr;
  try {
    return body(where);
  } catch (const CFailure& e) {
    return recordFailure(where, e.status(), e.what());
  } catch (const std::invalid_argument& e) {
    return recordFailure(where, TOVRIN_AI_ERR_INVALID_ARGUMENT, e.what());
  } catch (const std::bad_alloc&) {
    return recordFailure(where, TOVRIN_AI_ERR_NO_MEMORY, "out of memory");
  } catch (const std::exception& e) {
    return recordFailure(where, TOVRIN_AI_ERR_FAILED, e.what());
  } catch (...) {
    return recordFailure(where, TOVRIN_AI_ERR_FAILED, "unknown failure");
  }
}

// The object of a live handle of kind, recorded as where.
template <typename T>
T& objectOf(const void* handle, HandleKind kind, const char* what,
            Shell*& where) {
  where = liveShell(handle, kind, what);
  return *static_cast<T*>(where->object);
}

// A new handle for object; the handle owns it from here on.
template <typename Handle, typename T>
Handle* newHandle(std::unique_ptr<T> object, HandleKind kind) {
  Shell* shell = acquireShell(kind, object.get());
  object.release();
  return reinterpret_cast<Handle*>(shell);
}

// Destroys a handle of kind holding a T; NULL does nothing.
template <typename T>
tovrin_ai_status destroyHandle(const void* handle, HandleKind kind,
                               const char* what) noexcept {
  return guarded([&](Shell*&) {
    if (handle == nullptr) return TOVRIN_AI_OK;
    Shell* shell = liveShell(handle, kind, what);
    T* object = static_cast<T*>(shell->object);
    shell->magic.store(0);  // refused from here on, also while deleting
    delete object;
    releaseShell(shell);
    return TOVRIN_AI_OK;
  });
}

// The bytes of a text handed in, still the caller's: CFailure for NULL
// data with a size, or bytes that are not UTF-8 (the text names what and
// the first bad byte).
std::string_view checkedText(const char* data, std::size_t size,
                             const char* what);

// The same, copied.
inline std::string textIn(const char* data, std::size_t size,
                          const char* what) {
  return std::string(checkedText(data, size, what));
}

// Hands text out: its bytes stay valid while text lives unchanged.
void textOut(const std::string& text, const char** data, std::size_t* size);

// CFailure(TOVRIN_AI_ERR_BAD_SIZE) unless size is one of known.
void checkStructSize(std::uint32_t size,
                     std::initializer_list<std::size_t> known,
                     const char* what);

// Writes the first out->struct_size bytes of full into out, whose size was
// checked; struct_size keeps the caller's value.
template <typename T>
void fillSized(T* out, const T& full) {
  const std::uint32_t size = out->struct_size;
  std::memcpy(static_cast<void*>(out), &full, size);
  out->struct_size = size;
}

}  // namespace tovrin::ai::detail

#endif  // TOVRIN_AI_CAPI_C_HANDLE_HPP_
