#pragma once

// GObjectRef owns one reference to a GObject (libatspi hands out accessibles, state sets and
// interface proxies as GObjects with a reference the caller must drop). Move-only; the reference
// is dropped with g_object_unref on destruction, on the thread that destroys it, so keep these
// on the thread that uses the library that made them.

#include <glib-object.h>

#include <utility>

namespace kelvo::platform {

template <typename T>
class GObjectRef {
  public:
    GObjectRef() = default;
    // Takes over a reference the caller already holds (a "transfer full" result); null is fine.
    explicit GObjectRef(T* object) noexcept : object_(object) {}

    GObjectRef(const GObjectRef&) = delete;
    GObjectRef& operator=(const GObjectRef&) = delete;
    GObjectRef(GObjectRef&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    GObjectRef& operator=(GObjectRef&& other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~GObjectRef() {
        if (object_ != nullptr) {
            g_object_unref(object_);
        }
    }

    // Adds a reference of its own to an object the caller only borrows.
    static GObjectRef share(T* object) noexcept {
        return GObjectRef(object != nullptr ? static_cast<T*>(g_object_ref(object)) : nullptr);
    }

    T* get() const noexcept { return object_; }
    T* release() noexcept { return std::exchange(object_, nullptr); }
    explicit operator bool() const noexcept { return object_ != nullptr; }

  private:
    T* object_ = nullptr;
};

}  // namespace kelvo::platform
