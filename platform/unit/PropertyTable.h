#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <span>
#include <type_traits>
#include <utility>

#include "component/Status.h"

namespace tqplatform {

class Unit;

/// Where a property is asked for.
struct PropertyKey {
    AudioUnitPropertyID id;
    AudioUnitScope scope;
    AudioUnitElement element;
};

struct PropertyInfo {
    UInt32 size;  ///< bytes
    bool writable;
};

enum class PropertyAccess { read, write, readWrite };

/// One property of a kind of unit. Functions are called under the unit's lock; get, set and remove
/// only where `where` says noErr.
struct PropertyRow {
    AudioUnitPropertyID id;
    UInt32 size;  ///< bytes of the value, unless `adjust` says otherwise
    PropertyAccess access;
    /// noErr, or what is wrong with the scope, or else with the element.
    OSStatus (*where)(Unit&, PropertyKey);
    /// Writes the whole value to memory of any alignment.
    OSStatus (*get)(Unit&, PropertyKey, void* data) = nullptr;
    OSStatus (*set)(Unit&, PropertyKey, const void* data, UInt32 size) = nullptr;
    /// Takes the value away; null where there always is one.
    OSStatus (*remove)(Unit&, PropertyKey) = nullptr;
    /// What differs from place to place.
    void (*adjust)(Unit&, PropertyKey, PropertyInfo&) = nullptr;
    /// set() looks at the size and at what is writable by itself: a change to what is there already
    /// is no change.
    bool checksItself = false;
};

/// The properties of a kind of unit: its own and those of what it is derived from.
struct PropertyTable {
    std::span<const PropertyRow> rows;
    const PropertyTable* base;

    [[nodiscard]] const PropertyRow* find(AudioUnitPropertyID id) const noexcept {
        for (const PropertyTable* table = this; table != nullptr; table = table->base) {
            const auto row = std::find_if(table->rows.begin(), table->rows.end(),
                                          [&](const PropertyRow& each) { return each.id == id; });
            if (row != table->rows.end()) {
                return &*row;
            }
        }
        return nullptr;
    }
};

// Rows are made of member functions of a kind of unit, `Value get(PropertyKey)` and
// `OSStatus set(PropertyKey, Value)`; the size is the value's.

namespace property {

template <class Kind, class Member>
Kind* kindOf(Member Kind::*);
template <auto Function>
using KindOf = std::remove_pointer_t<decltype(kindOf(Function))>;

template <auto Get>
using Got = decltype((std::declval<KindOf<Get>&>().*Get)(std::declval<PropertyKey>()));

template <class Kind, class Value>
std::decay_t<Value>* takenBy(OSStatus (Kind::*)(PropertyKey, Value));
template <auto Set>
using Taken = std::remove_pointer_t<decltype(takenBy(Set))>;

template <auto Get>
OSStatus get(Unit& unit, PropertyKey key, void* data) {
    const Got<Get> value = (static_cast<KindOf<Get>&>(unit).*Get)(key);
    std::memcpy(data, &value, sizeof value);
    return noErr;
}

template <auto Set>
OSStatus set(Unit& unit, PropertyKey key, const void* data, UInt32 /*size*/) {
    Taken<Set> value;
    std::memcpy(&value, data, sizeof value);
    return (static_cast<KindOf<Set>&>(unit).*Set)(key, value);
}

template <auto Remove>
OSStatus remove(Unit& unit, PropertyKey key) {
    return (static_cast<KindOf<Remove>&>(unit).*Remove)(key);
}

using Where = OSStatus (*)(Unit&, PropertyKey);

template <auto Get>
constexpr PropertyRow readOnly(AudioUnitPropertyID id, Where where) {
    return {.id = id,
            .size = sizeof(Got<Get>),
            .access = PropertyAccess::read,
            .where = where,
            .get = &get<Get>};
}

template <auto Get, auto Set>
constexpr PropertyRow readWrite(AudioUnitPropertyID id, Where where) {
    static_assert(std::is_same_v<Got<Get>, Taken<Set>>);
    return {.id = id,
            .size = sizeof(Got<Get>),
            .access = PropertyAccess::readWrite,
            .where = where,
            .get = &get<Get>,
            .set = &set<Set>};
}

/// Set and taken away, never read.
template <auto Set, auto Remove>
constexpr PropertyRow writeOnly(AudioUnitPropertyID id, Where where) {
    return {.id = id,
            .size = sizeof(Taken<Set>),
            .access = PropertyAccess::write,
            .where = where,
            .set = &set<Set>,
            .remove = &remove<Remove>};
}

inline OSStatus anywhere(Unit& /*unit*/, PropertyKey /*key*/) {
    return noErr;
}

/// Global scope, element 0.
inline OSStatus global(Unit& /*unit*/, PropertyKey key) {
    if (key.scope != kAudioUnitScope_Global) {
        return kAudioUnitErr_InvalidScope;
    }
    return okOr(key.element == 0, kAudioUnitErr_InvalidElement);
}

}  // namespace property

}  // namespace tqplatform
