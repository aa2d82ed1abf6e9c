#pragma once

#include <RZUnitFacts.h>

#include <memory>

#include "tq_capture.h"

namespace tqcapi {

class BlockListener;

/// One listener of the interface and what it is registered with. Its functions are called on the
/// threads where things happen; after stop() on none.
class Listening {
  public:
    explicit Listening(const tq_listener& wanted);
    ~Listening();
    Listening(const Listening&) = delete;
    Listening& operator=(const Listening&) = delete;

    // [host thread], each once.
    void start();
    /// After a start that threw as well. Ends the callbacks also where memory has run out.
    void stop() noexcept;

    [[nodiscard]] const tq_listener& wanted() const { return wanted_; }

  private:
    const tq_listener wanted_;
    std::shared_ptr<BlockListener> mix_;
    std::shared_ptr<BlockListener> tracks_;
    RZUnitFacts::ObserverId observer_ = 0;
};

}  // namespace tqcapi
