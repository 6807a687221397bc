#pragma once

#include "kxmd/base/KXQueue.h"

#include <memory>
#include <string>

/// A queue with one thread of its own, which starts with the first submission.
///
/// When the system has no thread to give, work runs where it is submitted, still one piece at a
/// time and in order; the next submission tries again. Letting go of the queue does not wait: what
/// was already submitted still runs, then the thread ends. The last owner may therefore be work of
/// the queue itself.
class KX_EXPORT KXSerialQueue final : public KXQueue {
public:
    /// `initWithLabel:` A queue named by a reverse-DNS label; its thread bears the last component.
    explicit KXSerialQueue(std::string label);
    ~KXSerialQueue() override;

    /// `label` The name that the queue was made with.
    [[nodiscard]] std::string const& label() const { return _label; }

    void async(Work work) override;

private:
    struct State;

    [[nodiscard]] bool startThread() const;

    std::string const _label;
    std::shared_ptr<State> const _state; // Shared with the thread, which may outlive the queue.
};
