#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <memory>
#include <string_view>
#include <utility>

// What stands behind the reference-counted handles of the C headers. One list knows the live
// objects and their counts, so a handle is looked up before it is touched and a wrong one is
// found out without reading its memory.

namespace tqplatform {

enum class CFKind { string, formatDescription, blockBuffer, sampleBuffer };

class CFObject {
  public:
    virtual ~CFObject() = default;
    CFObject(const CFObject&) = delete;
    CFObject& operator=(const CFObject&) = delete;

    [[nodiscard]] CFKind kind() const noexcept { return kind_; }

  protected:
    explicit CFObject(CFKind kind) noexcept : kind_(kind) {}

  private:
    const CFKind kind_;
};

/// Enters an object into the list with one reference, which is the caller's to drop by
/// CFRelease(). May throw std::bad_alloc; the object is gone then.
[[nodiscard]] CFTypeRef handOut(std::unique_ptr<CFObject> object);

/// The live object of that kind behind a handle, else null. It lives while there is a
/// reference, which the caller makes sure of.
[[nodiscard]] CFObject* findObject(CFTypeRef handle, CFKind kind) noexcept;

/// The same for a class that says its kind in `kKind`.
template <class Object>
[[nodiscard]] Object* findObject(CFTypeRef handle) noexcept {
    return static_cast<Object*>(findObject(handle, Object::kKind));
}

/// A handle in the type of its header.
template <class Reference>
[[nodiscard]] Reference handleAs(CFTypeRef handle) noexcept {
    return static_cast<Reference>(const_cast<void*>(handle));
}

/// A reference held by C++ code. Not copied: each has one owner.
class CFReference {
  public:
    CFReference() = default;
    /// Takes a reference of its own; holds nothing when `handle` is no live object.
    explicit CFReference(CFTypeRef handle) noexcept : handle_(CFRetain(handle)) {}
    CFReference(CFReference&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    CFReference& operator=(CFReference&& other) noexcept {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~CFReference() { CFRelease(handle_); }

    /// Takes over the reference that the caller holds.
    [[nodiscard]] static CFReference adopt(CFTypeRef handle) noexcept {
        CFReference reference;
        reference.handle_ = handle;
        return reference;
    }
    [[nodiscard]] CFTypeRef get() const noexcept { return handle_; }
    /// Hands the reference to the caller.
    [[nodiscard]] CFTypeRef release() noexcept { return std::exchange(handle_, nullptr); }

  private:
    CFTypeRef handle_ = nullptr;
};

/// A new string for the caller to release; null when the text is not well-formed UTF-8 or there
/// is no memory.
[[nodiscard]] CFStringRef makeCFString(std::string_view utf8) noexcept;

}  // namespace tqplatform
