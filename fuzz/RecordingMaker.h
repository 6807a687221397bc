#pragma once

#include "TagsMaker.h"

#include "kxmd/mp4/KXMP4MovieKind.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

/// Makes songs, films, recordings and pictures as the fuzzer chooses, all of them as the standards
/// want them, and knows what it made: the kind of work, and how many bytes tell of the camera.
///
/// The same choices give the same file with sizes of 64 bits as with such of 32.
class RecordingMaker : private TagsMaker {
public:
    using TagsMaker::Bytes;
    using TagsMaker::cameraBytes;

    enum class Sizes { small, large };

    RecordingMaker(Choices& choices, Sizes sizes)
        : TagsMaker(choices)
        , _areLarge(sizes == Sizes::large)
    {
    }

    Bytes file()
    {
        fileType();
        bool const isMediaFirst = below(2);
        if (isMediaFirst)
            media();
        movie();
        for (unsigned left = below(3); left; --left)
            extendedType(_areLarge);
        if (!isMediaFirst)
            media();
        for (std::size_t const field : _references)
            store(_media, 4, field);
        return std::move(_file);
    }

    /// Absent for a picture.
    std::optional<KXMP4MovieKind> kind() const
    {
        if (_isPicture)
            return std::nullopt;
        KXMP4MovieKind kind;
        kind.isProtected = _isProtected;
        kind.isDescribed = isDescribed() || !_chapters.empty();
        for (Track const& track : _tracks)
            kind.hasMovingPictures
                |= track.hasPictures && std::ranges::find(_chapters, track.id) == _chapters.end();
        kind.isMusic = _hasSound && (!kind.hasMovingPictures || _isAudioFile);
        return kind;
    }

private:
    struct Track {
        std::uint32_t id;
        bool hasPictures; // That move.
    };
    struct Entry {
        std::string_view type;
        bool isVideo;
        bool isStill;
        bool isProtected;
    };

    // Of the file.

    void fileType()
    {
        constexpr std::string_view brands[] { "isom", "qt  ", "M4A ", "M4B ", "mp42", "heic", "",
            "crx " };
        auto const brand = oneOf(brands);
        if (brand.empty())
            return leaf("wide", 0); // As QuickTime did before there were brands.
        _isPicture = brand == "heic" || brand == "crx ";
        _isAudioFile = brand.starts_with("M4");
        std::size_t const box = begin("ftyp");
        text(brand);
        number(0, 4);
        end(box);
    }

    void media()
    {
        std::size_t const box = begin("mdat", _areLarge);
        _media = _file.size();
        for (unsigned left = 8 + below(64); left; --left)
            number(_file.size() * 0x9E3779B1 >> 11, 1);
        end(box);
    }

    void movie()
    {
        std::size_t const box = begin("moov", _areLarge);
        leaf("mvhd", 100);
        for (std::uint32_t id = 1, count = below(4); id <= count; ++id)
            track(id);
        for (unsigned left = below(4); left; --left) {
            switch (below(3)) {
            case 0:
                userData(true);
                break;
            case 1:
                metadata(true);
                break;
            default:
                extendedType(false);
            }
        }
        end(box);
    }

    /// ISO/IEC 14496-12, 11.1: for all purposes, told apart by 16 bytes.
    void extendedType(bool isLarge)
    {
        constexpr std::string_view xmp
            = "\xBE\x7A\xCF\xCB\x97\xA9\x42\xE8\x9C\x71\x99\x94\x91\xE3\xAF\xAC";
        constexpr std::string_view types[] { xmp, "sixteen letters.", "too short" };
        auto const type = oneOf(types);
        std::size_t const box = begin("uuid", isLarge);
        text(type);
        zeros(below(32));
        if (type == xmp)
            endCameraData(box);
        else
            end(box);
    }

    // Of a track.

    void track(std::uint32_t id)
    {
        constexpr std::string_view handlers[] { "vide", "soun", "text", "vide" };
        constexpr Entry videoEntries[] { { "avc1", true, false, false },
            { "jpeg", true, true, false }, { "encv", true, false, true },
            { "mp4v", true, false, false }, { "png ", true, true, false } };
        constexpr Entry soundEntries[] { { "mp4a", false, false, false },
            { "enca", false, false, true }, { "drms", false, false, true },
            { "alac", false, false, false } };
        constexpr Entry textEntry { "tx3g", false, false, false };
        auto const handler = oneOf(handlers);
        auto const& entry = handler == "vide" ? oneOf(videoEntries)
            : handler == "soun"               ? oneOf(soundEntries)
                                              : textEntry;
        std::size_t const box = begin("trak");
        trackHeader(id);
        if (below(4) == 0)
            chapterReference();
        std::size_t const media = begin("mdia");
        leaf("mdhd", 24);
        handlerBox(handler);
        bool const isStill = mediaInformation(entry);
        end(media);
        for (unsigned left = below(3); left; --left)
            below(2) ? userData(false) : metadata(false);
        if (below(4) == 3)
            extendedType(false);
        end(box);
        _tracks.push_back({ id, handler == "vide" && !isStill });
        _hasSound = _hasSound || handler == "soun";
        _isProtected = _isProtected || entry.isProtected;
    }

    /// ISO/IEC 14496-12, 8.3.2.
    void trackHeader(std::uint32_t id)
    {
        unsigned const version = below(2);
        std::size_t const box = begin("tkhd");
        number(version, 1);
        number(7, 3);
        zeros(version ? 16 : 8);
        number(id, 4);
        zeros(version ? 72 : 68);
        end(box);
    }

    void chapterReference()
    {
        std::size_t const box = begin("tref");
        leaf("hint", 4);
        std::size_t const reference = begin("chap");
        for (unsigned left = below(3); left; --left) {
            auto const id = below(5);
            number(id, 4);
            if (id)
                _chapters.push_back(id);
        }
        end(reference);
        end(box);
    }

    /// Whether it is a still picture.
    bool mediaInformation(Entry const& entry)
    {
        constexpr std::uint8_t objectTypes[] { 0x20, 0x6C, 0x6D };
        auto const objectType = oneOf(objectTypes);
        bool const isMPEG4 = entry.type == "mp4v", isSingle = below(2);
        std::size_t const information = begin("minf"), tables = begin("stbl");
        std::size_t const descriptions = begin("stsd");
        number(0, 4);
        number(1, 4);
        std::size_t const description = begin(entry.type);
        number(1, 8); // Data reference.
        zeros(entry.isVideo ? 70 : 20); // ISO/IEC 14496-12, 12.1.3 and 12.2.3.
        if (isMPEG4)
            elementaryStream(objectType);
        end(description);
        end(descriptions);
        sampleSizes(isSingle ? 1 : below(3) * 2);
        std::size_t const offsets = begin("stco");
        number(0, 4);
        number(1, 4);
        _references.push_back(_file.size());
        number(0, 4);
        end(offsets);
        end(tables);
        end(information);
        return isSingle && (entry.isStill || (isMPEG4 && objectType != 0x20));
    }

    /// ISO/IEC 14496-1, 7.2.6.5 and 7.2.6.6.
    void elementaryStream(std::uint8_t objectType)
    {
        constexpr std::uint8_t stream = 3, decoderConfiguration = 4;
        std::size_t const box = begin("esds");
        number(0, 4);
        number(stream, 1);
        number(18, 1); // Bytes that follow.
        number(0, 3);
        number(decoderConfiguration, 1);
        number(13, 1); // Bytes that follow.
        number(objectType, 1);
        zeros(12);
        end(box);
    }

    /// ISO/IEC 14496-12, 8.7.3: 4-bit sizes, or one size for all.
    void sampleSizes(unsigned count)
    {
        bool const areCompact = below(2);
        std::size_t const box = begin(areCompact ? "stz2" : "stsz");
        number(0, 4);
        number(areCompact ? 4 : 1, 4);
        number(count, 4);
        if (areCompact)
            zeros((count + 1) / 2);
        end(box);
    }

    bool const _areLarge;
    std::vector<std::size_t> _references; // The fields that lead to the media.
    std::uint64_t _media { 0 };
    std::vector<Track> _tracks;
    std::vector<std::uint32_t> _chapters;
    bool _isPicture { false };
    bool _isAudioFile { false };
    bool _hasSound { false };
    bool _isProtected { false };
};
