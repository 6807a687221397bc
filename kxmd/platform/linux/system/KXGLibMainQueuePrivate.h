#pragma once

#include "kxmd/base/KXQueue.h"

/// The main loop of GTK programs, and of Qt ones over GLib: the default main context.
class KXGLibMainQueue final : public KXQueue {
public:
    void async(Work work) override;
};
