#include "bridges/pulse/PulseStreams.h"

#include <algorithm>

namespace tq::bridges {

PulseStreams& PulseStreams::shared() {
    static auto* const instance = new PulseStreams;
    return *instance;
}

void PulseStreams::contextMade(const void* context, std::string name) {
    const std::scoped_lock guard(lock_);
    contexts_[context] = {std::move(name)};
}

void PulseStreams::contextHeld(const void* context) {
    const std::scoped_lock guard(lock_);
    if (const auto found = contexts_.find(context); found != contexts_.end()) {
        ++found->second.references;
    }
}

bool PulseStreams::contextReleased(const void* context) {
    const std::scoped_lock guard(lock_);
    const auto found = contexts_.find(context);
    if (found == contexts_.end() || --found->second.references > 0) {
        return false;
    }
    contexts_.erase(found);
    return true;
}

std::string PulseStreams::nameOf(const void* context) {
    const std::scoped_lock guard(lock_);
    const auto found = contexts_.find(context);
    return found == contexts_.end() ? std::string() : found->second.name;
}

void PulseStreams::contextEnded(const void* context) {
    std::vector<PulseStream*> ending;
    {
        const std::scoped_lock guard(lock_);
        for (const auto& stream : records_) {
            if (stream->key != nullptr && stream->context == context) {
                ending.push_back(stream.get());
            }
        }
    }
    for (PulseStream* const stream : ending) {
        ended(*stream);
        if (stream->references <= 0) {
            forget(*stream);
        }
    }
}

PulseStream& PulseStreams::unused() {
    const auto found = std::find_if(records_.begin(), records_.end(),
                                    [](const auto& stream) { return stream->key == nullptr; });
    if (found != records_.end()) {
        **found = PulseStream();
        return **found;
    }
    records_.push_back(std::make_unique<PulseStream>());
    return *records_.back();
}

void PulseStreams::made(const void* stream, const void* context, const std::string& sound) {
    const std::scoped_lock guard(lock_);
    // The address of one that the library has freed by itself.
    if (PulseStream* const old = table_.find(stream)) {
        forgetLocked(*old);
    }
    PulseStream& record = unused();
    const auto program = contexts_.find(context);
    record.name = program == contexts_.end() ? std::string() : program->second.name;
    if (!sound.empty() && sound != record.name) {
        record.name += (record.name.empty() ? "" : ": ") + sound;
    }
    record.context = context;
    if (table_.add(stream, record)) {
        record.key = stream;
    }
}

void PulseStreams::released(PulseStream& stream, bool isConnected) {
    if (--stream.references > 0 || isConnected) {
        return;
    }
    ended(stream);
    forget(stream);
}

void PulseStreams::forget(PulseStream& stream) {
    const std::scoped_lock guard(lock_);
    forgetLocked(stream);
}

void PulseStreams::forgetLocked(PulseStream& stream) {
    table_.remove(stream.key);
    stream.key = nullptr;
}

void PulseStreams::ended(PulseStream& stream) {
    if (stream.isSettled) {
        if (const NativeStream::Use use(stream.key); use) {
            stream.ended(*use.operator->());
        }
        NativeStream::close(stream.key);
    }
    stream.isSettled = false;
    stream.block = {};
    stream.kind = PulseStream::Kind::kUnconnected;
}

}  // namespace tq::bridges
