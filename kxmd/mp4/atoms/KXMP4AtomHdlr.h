#pragma once

#include "kxmd/mp4/atoms/KXMP4Atom.h"

/// The handler reference: tells what its track holds (ISO/IEC 14496-12, 8.4.3).
class KX_EXPORT KXMP4AtomHdlr final : public KXMP4Atom {
public:
    /// `mediaHandlerType` Four characters such as "vide" or "soun"; absent when it could not be
    /// read.
    [[nodiscard]] std::optional<std::string> const& mediaHandlerType() const
    {
        return _mediaHandlerType;
    }
    /// `setMediaHandlerType:` Replaces the handler type.
    void setMediaHandlerType(std::optional<std::string> type)
    {
        _mediaHandlerType = std::move(type);
    }

    /// `trackTypeOfHandler` What a track with this handler holds.
    [[nodiscard]] KXMP4TrackType trackTypeOfHandler() const;

    [[nodiscard]] std::string description() const override;
    void parseAtomSpecificData(KXAbstractData& data) override;

private:
    std::optional<std::string> _mediaHandlerType;
};
