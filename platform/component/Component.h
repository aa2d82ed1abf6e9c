#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <memory>

namespace tqplatform {

class Unit;

/// A kind of unit. Known for the life of the process.
struct Component {
    AudioComponentDescription description;
    const char* name;
    UInt32 version;
    std::unique_ptr<Unit> (*make)(const Component& component);
};

/// The component behind a handle, null for anything else.
[[nodiscard]] const Component* findComponent(AudioComponent handle) noexcept;
[[nodiscard]] AudioComponent handleOf(const Component& component) noexcept;
/// The first match behind `after` (null: of all), null at the end.
[[nodiscard]] const Component* nextComponent(const Component* after,
                                             const AudioComponentDescription& wanted) noexcept;
/// A new unit in the table of units; on failure `unit` is null.
OSStatus makeUnit(const Component& component, AudioUnit& unit);

}  // namespace tqplatform
