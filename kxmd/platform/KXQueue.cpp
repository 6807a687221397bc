#include "kxmd/platform/KXQueue.h"

KXQueue::~KXQueue() = default;
