#include "kxmd/host/KXDCFileProcessor.h"

KXDCFileProcessor::~KXDCFileProcessor() = default;
