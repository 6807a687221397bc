#pragma once

#include "kxmd/mp4/atoms/KXMP4Atom.h"

/// A video sample entry (ISO/IEC 14496-12, 12.1.3; QuickTime's video sample description).
class KX_EXPORT KXMP4AtomVideoSD final : public KXMP4Atom {
public:
    /// `width` Width in pixels; 0 unless width and height are both known.
    [[nodiscard]] double width() const { return _width; }
    /// `setWidth:` Sets the width.
    void setWidth(double width) { _width = width; }

    /// `height` Height in pixels; 0 unless width and height are both known.
    [[nodiscard]] double height() const { return _height; }
    /// `setHeight:` Sets the height.
    void setHeight(double height) { _height = height; }

    /// `codecName` All 32 characters of the compressor name: its length, the name, zeros; absent
    /// when they could not be read.
    [[nodiscard]] std::optional<std::string> const& codecName() const { return _codecName; }
    /// `setCodecName:` Replaces the compressor name.
    void setCodecName(std::optional<std::string> codecName) { _codecName = std::move(codecName); }

    [[nodiscard]] std::string description() const override;
    void parseAtomSpecificData(KXAbstractData& data) override;
    [[nodiscard]] std::optional<KXMDCodecInfo> codecInfo() override;

private:
    double _width { 0 };
    double _height { 0 };
    std::optional<std::string> _codecName;
};
