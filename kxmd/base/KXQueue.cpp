#include "kxmd/base/KXQueue.h"

KXQueue::~KXQueue() = default;
