#include "bridges/pipewire/PipeWireFilters.h"

#include <cstddef>
#include <cstring>
#include <utility>

#include "bridges/core/LibraryOf.h"
#include "bridges/core/WithoutThrowing.h"

namespace tq::bridges {

PipeWireFilterLibrary::PipeWireFilterLibrary(const void* known)
    : properties(
          functionBeside<decltype(pw_filter_get_properties)>(known, "pw_filter_get_properties")),
      name(functionBeside<decltype(pw_filter_get_name)>(known, "pw_filter_get_name")),
      property(functionBeside<decltype(pw_properties_get)>(known, "pw_properties_get")) {
}

const PipeWireFilterLibrary& PipeWireFilterLibrary::of(const void* known) {
    static const PipeWireFilterLibrary library(known);
    return library;
}

// ---- events -------------------------------------------------------------------------------------

template <auto... kEvents>
void PipeWireFilter::Events::passOn() noexcept {
    ((ours_.*kEvents = program_.*kEvents == nullptr ? nullptr : &Passed<kEvents>::call), ...);
}

PipeWireFilter::Events::Events(PipeWireFilter& filter, const pw_filter_events& program, void* data)
    : filter_(filter), data_(data) {
    using Table = pw_filter_events;
    // The first version of the table ends before `command`.
    const bool hasCommand = program.version >= 1;
    std::memcpy(&program_, &program, hasCommand ? sizeof(Table) : offsetof(Table, command));
    ours_.version = program.version;
    passOn<&Table::destroy, &Table::param_changed, &Table::add_buffer, &Table::remove_buffer,
           &Table::drained, &Table::command>();
    ours_.io_changed = &ioChanged;
    ours_.state_changed = &stateChanged;
    ours_.process = program.process == nullptr ? nullptr : &process;
}

void PipeWireFilter::Events::ioChanged(void* self, void* port, std::uint32_t id, void* area,
                                       std::uint32_t size) {
    const auto& own = *static_cast<Events*>(self);
    if (port == nullptr && id == SPA_IO_Position) {
        own.filter_.position_ =
            size < sizeof(spa_io_position) ? nullptr : static_cast<const spa_io_position*>(area);
    }
    if (own.program_.io_changed != nullptr) {
        own.program_.io_changed(own.data_, port, id, area, size);
    }
}

void PipeWireFilter::Events::stateChanged(void* self, pw_filter_state before, pw_filter_state state,
                                          const char* error) {
    const auto& own = *static_cast<Events*>(self);
    withoutThrowing([&] { own.filter_.stateChanged(state); });
    if (own.program_.state_changed != nullptr) {
        own.program_.state_changed(own.data_, before, state, error);
    }
}

void PipeWireFilter::Events::process(void* self, spa_io_position* position) {
    const auto& own = *static_cast<Events*>(self);
    PipeWireFilter& filter = own.filter_;
    const std::size_t frames = position == nullptr ? 0 : position->clock.duration;
    filter.cycleFrames_.store(frames, std::memory_order_relaxed);
    own.program_.process(own.data_, position);
    // A port that it has not asked for plays nothing in this cycle.
    filter.group_.played(frames, nullptr);
}

// ---- a filter -----------------------------------------------------------------------------------

PipeWireFilter::Events& PipeWireFilter::addEvents(const pw_filter_events& program, void* data) {
    events_.push_back(std::make_unique<Events>(*this, program, data));
    return *events_.back();
}

PipeWireFilter::Port& PipeWireFilter::addPort(const void* handle, tq_speaker speaker) {
    Port& port = ports_.try_emplace(handle, Port{this, nullptr}).first->second;
    port.output = &group_.add(handle, speaker);
    return port;
}

void PipeWireFilter::removePort(const void* handle) {
    if (const auto found = ports_.find(handle); found != ports_.end()) {
        group_.remove(*found->second.output);
        ports_.erase(found);
    }
}

void PipeWireFilter::Port::filled(void* memory, std::size_t frames) const noexcept {
    if (frames >= filter->cycleFrames_.load(std::memory_order_relaxed)) {
        output->fetched.store(static_cast<float*>(memory), std::memory_order_release);
    }
}

void PipeWireFilter::stateChanged(pw_filter_state state) {
    if (state != PW_FILTER_STATE_STREAMING) {
        group_.stop();
        return;
    }
    // The first cycle comes behind this event.
    if (position_ != nullptr && position_->clock.rate.num != 0) {
        group_.start(static_cast<double>(position_->clock.rate.denom) / position_->clock.rate.num,
                     name());
    }
}

std::string PipeWireFilter::name() const {
    const pw_properties* const properties = library_.properties(handle_, nullptr);
    const char* node =
        properties == nullptr ? nullptr : library_.property(properties, PW_KEY_NODE_NAME);
    if (node == nullptr) {
        node = library_.name(handle_);
    }
    return node == nullptr ? "" : node;
}

// ---- all of them --------------------------------------------------------------------------------

PipeWireFilters& PipeWireFilters::shared() {
    static auto* const instance = new PipeWireFilters;
    return *instance;
}

PipeWireFilter* PipeWireFilters::filter(pw_filter* handle, const PipeWireFilterLibrary& library) {
    if (!library.isComplete()) {
        return nullptr;
    }
    const std::scoped_lock guard(lock_);
    auto& known = filters_[handle];
    if (known == nullptr) {
        known = std::make_unique<PipeWireFilter>(library);
        known->setHandle(handle);
    }
    return known.get();
}

void PipeWireFilters::add(pw_filter* handle, std::unique_ptr<PipeWireFilter> filter) {
    const std::scoped_lock guard(lock_);
    filter->setHandle(handle);
    filters_[handle] = std::move(filter);
}

void PipeWireFilters::addPort(PipeWireFilter& filter, const void* port, tq_speaker speaker) {
    const std::scoped_lock guard(lock_);
    ports_.remove(port);
    ports_.add(port, filter.addPort(port, speaker));
}

void PipeWireFilters::removePort(const void* port) {
    const std::scoped_lock guard(lock_);
    if (const PipeWireFilter::Port* const known = ports_.find(port)) {
        ports_.remove(port);
        known->filter->removePort(port);
    }
}

void PipeWireFilters::stop(pw_filter* handle) {
    const std::scoped_lock guard(lock_);
    if (const auto found = filters_.find(handle); found != filters_.end()) {
        found->second->stop();
    }
}

std::unique_ptr<PipeWireFilter> PipeWireFilters::take(pw_filter* handle) {
    const std::scoped_lock guard(lock_);
    const auto found = filters_.find(handle);
    if (found == filters_.end()) {
        return nullptr;
    }
    std::unique_ptr<PipeWireFilter> taken = std::move(found->second);
    taken->visitPorts([this](const void* port) { ports_.remove(port); });
    filters_.erase(found);
    return taken;
}

}  // namespace tq::bridges
