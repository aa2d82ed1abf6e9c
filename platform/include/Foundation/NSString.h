#pragma once

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "NSObjCRuntime.h"

/// Owning reference to a reference-counted object that has retain() and release().
template <class T>
class NSRef {
  public:
    NSRef() = default;
    /// Takes a reference of its own.
    explicit NSRef(T* object) : object_(object) {
        if (object_ != nullptr) {
            object_->retain();
        }
    }
    NSRef(const NSRef& other) : NSRef(other.object_) {}
    NSRef(NSRef&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    NSRef& operator=(NSRef other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~NSRef() {
        if (object_ != nullptr) {
            object_->release();
        }
    }
    /// Takes over the reference that the caller holds.
    [[nodiscard]] static NSRef adopt(T* object) {
        NSRef reference;
        reference.object_ = object;
        return reference;
    }
    [[nodiscard]] T* get() const { return object_; }
    T* operator->() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }

  private:
    T* object_ = nullptr;
};

/// Immutable reference-counted text in UTF-8. Threads may share one instance.
class TQ_PLATFORM_EXPORT NSString {
  public:
    /// [host thread] A copy of `text`; the caller owns the one reference.
    [[nodiscard]] static NSRef<NSString> create(std::string_view text);
    NSString(const NSString&) = delete;
    NSString& operator=(const NSString&) = delete;

    /// [any thread] [real-time safe]
    void retain() noexcept;
    /// [any thread] Frees the text with the last reference.
    void release() noexcept;
    /// [any thread] [real-time safe] Terminated text, valid while a reference is held.
    [[nodiscard]] const char* UTF8String() const noexcept;
    /// [any thread] [real-time safe] Length in bytes.
    [[nodiscard]] std::size_t length() const noexcept;

  private:
    explicit NSString(std::string_view text);
    ~NSString();

    std::atomic<long> references_{1};
    std::string text_;
};

/// [any thread] printf-style text with the platform's own rules: %p prints a null pointer as 0x0,
/// and %@ takes a const NSString* ("(null)" for null). Everything else is the C library's, except
/// that unknown conversions are copied, %n writes nothing, and no field is padded beyond a million.
/// Allocates.
[[nodiscard]] TQ_PLATFORM_EXPORT std::string NSFormatWithArguments(const char* format,
                                                                   std::va_list arguments);
[[nodiscard]] TQ_PLATFORM_EXPORT std::string NSFormat(const char* format, ...);
