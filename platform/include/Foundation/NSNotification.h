#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <variant>

#include "NSObjCRuntime.h"

/// A value in a notification's user info: an integer or a text.
using NSUserInfoValue = std::variant<long, std::string>;
using NSUserInfo = std::map<std::string, NSUserInfoValue, std::less<>>;

struct NSNotification {
    std::string name;
    const void* object = nullptr;  ///< who it is about; identity only, never dereferenced
    NSUserInfo userInfo;

    /// The text under `key`, empty when it is missing or no text.
    [[nodiscard]] TQ_PLATFORM_EXPORT std::string textForKey(std::string_view key) const;
    /// The integer under `key`, `fallback` when it is missing or no integer.
    [[nodiscard]] TQ_PLATFORM_EXPORT long integerForKey(std::string_view key, long fallback) const;
};

/// [host thread] Delivers notifications synchronously on the posting thread, in order of
/// registration, with no lock held: handlers may add, remove and post. A handler that throws is
/// skipped.
class TQ_PLATFORM_EXPORT NSNotificationCenter {
  public:
    using Handler = std::function<void(const NSNotification&)>;

    /// The one centre of the process, never destroyed.
    static NSNotificationCenter& defaultCenter();

    NSNotificationCenter();
    ~NSNotificationCenter();
    NSNotificationCenter(const NSNotificationCenter&) = delete;
    NSNotificationCenter& operator=(const NSNotificationCenter&) = delete;

    /// Calls `handler` for each notification of that name; a null `object` means whatever
    /// it is about.
    /// `observer` is the identity that removeObserver() takes.
    void addObserver(const void* observer, Handler handler, std::string name, const void* object);
    /// Forgets every handler of that observer. A delivery under way may still finish.
    void removeObserver(const void* observer);
    void postNotificationName(std::string name, const void* object = nullptr,
                              NSUserInfo userInfo = {});

  private:
    struct State;
    const std::unique_ptr<State> state_;
};
