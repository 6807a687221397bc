#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/host/KXDCFile.h"

#include <memory>
#include <string>
#include <vector>

/// Stands for one file in a transfer to a phone. A host implements it over its own objects, or uses
/// `KXDCSimpleFileProxy`.
class KX_EXPORT KXDCFileProxy {
public:
    /// A shared proxy; null where there is none.
    using Ref = std::shared_ptr<KXDCFileProxy>;
    /// Proxies in the order of a collection.
    using List = std::vector<Ref>;

    virtual ~KXDCFileProxy();

    /// `file` The file that is transferred; null for one that is not there.
    [[nodiscard]] virtual KXDCFile::Ref file() const = 0;

    /// `targetPath` The path that the file will have on the phone.
    [[nodiscard]] virtual std::string targetPath() const = 0;

    /// `collectionFileProxies` The members of a collection such as a playlist, in its order.
    [[nodiscard]] virtual List collectionFileProxies() const = 0;
};

/// A file proxy that holds plain values. Not changed once shared.
class KX_EXPORT KXDCSimpleFileProxy final : public KXDCFileProxy {
public:
    /// `initWithFile:targetPath:members:` Just these values; `members` are those of a collection.
    KXDCSimpleFileProxy(KXDCFile::Ref file, std::string targetPath, List members = {});

    [[nodiscard]] KXDCFile::Ref file() const override { return _file; }
    [[nodiscard]] std::string targetPath() const override { return _targetPath; }
    [[nodiscard]] List collectionFileProxies() const override { return _members; }

private:
    KXDCFile::Ref const _file;
    std::string const _targetPath;
    List const _members;
};
