#include "kxmd/host/KXDCFileProxy.h"

#include <utility>

KXDCFileProxy::~KXDCFileProxy() = default;

KXDCSimpleFileProxy::KXDCSimpleFileProxy(KXDCFile::Ref file, std::string targetPath, List members)
    : _file(std::move(file))
    , _targetPath(std::move(targetPath))
    , _members(std::move(members))
{
}
