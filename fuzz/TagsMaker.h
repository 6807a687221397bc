#pragma once

#include "BoxWriter.h"
#include "Choices.h"

#include <cstdint>
#include <iterator>
#include <string_view>
#include <vector>

/// Makes the tags of movies and tracks as the fuzzer chooses, and knows whether they say what a
/// film or a song is, and how long they are.
class TagsMaker : protected BoxWriter {
public:
    using BoxWriter::Bytes;

    explicit TagsMaker(Choices& choices)
        : _choices(choices)
    {
    }

    /// How many bytes may tell of the camera.
    std::uint64_t cameraBytes() const { return _cameraBytes; }
    bool isDescribed() const { return _isDescribed; }

protected:
    unsigned below(unsigned limit) { return _choices.next<std::uint8_t>() % limit; }

    template <class List> auto const& oneOf(List const& list)
    {
        return list[below(static_cast<unsigned>(std::size(list)))];
    }

    /// Ends a box that goes with the camera's data.
    void endCameraData(std::size_t box)
    {
        end(box);
        _cameraBytes += _file.size() - box;
    }

    /// ISO/IEC 14496-12, 8.4.3.
    void handlerBox(std::string_view type)
    {
        std::size_t const box = begin("hdlr");
        zeros(8);
        text(type);
        zeros(13);
        end(box);
    }

    // Of the user data.

    /// `describes` tells whether its tags do; its other texts do anywhere.
    void userData(bool describes)
    {
        constexpr std::string_view ofQuickTime[] { "\xA9nam", "\xA9mak", "\xA9xyz", "\xA9prd" };
        constexpr std::string_view ofAssets[] { "titl", "loci", "albm", "yrrc" };
        std::size_t const box = begin("udta");
        for (unsigned left = below(4); left; --left) {
            switch (below(5)) {
            case 0: {
                auto const type = oneOf(ofQuickTime);
                userDataText(type, type == "\xA9nam" || type == "\xA9prd");
                break;
            }
            case 1: {
                auto const type = oneOf(ofAssets);
                assetText(type, type == "titl" || type == "albm");
                break;
            }
            case 2:
                chapterList();
                break;
            case 3:
                tags(describes);
                break;
            default:
                leaf("free", below(16));
            }
        }
        if (below(4) == 3)
            number(0, 4); // QuickTime ends the list so.
        endCameraData(box);
    }

    /// A text, which describes unless it is empty, blank or not looked at.
    std::string_view anyText(bool describes)
    {
        constexpr std::string_view texts[] { "Holiday", "", "  ", "ReplayKitRecording",
            "\xC3\xA9" };
        auto const chosen = oneOf(texts);
        _isDescribed = _isDescribed
            || (describes && (chosen.starts_with('H') || chosen.starts_with('\xC3')));
        return chosen;
    }

    void userDataText(std::string_view type, bool describes)
    {
        std::size_t const box = begin(type);
        for (unsigned left = 1 + below(2); left; --left) {
            auto const content = anyText(describes);
            number(content.size(), 2);
            number(0, 2);
            text(content);
        }
        end(box);
    }

    /// 3GPP TS 26.244, 8.
    void assetText(std::string_view type, bool describes)
    {
        std::size_t const box = begin(type);
        zeros(6);
        text(anyText(describes));
        number(0, 1);
        end(box);
    }

    void chapterList()
    {
        std::size_t const box = begin("chpl");
        unsigned const version = below(2), count = below(3);
        number(version, 1);
        zeros(version ? 7 : 3);
        number(count, 1);
        zeros(count * 9); // The time, and no name.
        end(box);
        _isDescribed = _isDescribed || count;
    }

    // Of the metadata.

    /// That of a track does not describe the movie.
    void metadata(bool describes)
    {
        std::size_t const box = _file.size();
        tags(describes);
        _cameraBytes += _file.size() - box;
    }

    /// The tags of iTunes, or those of QuickTime, whose types are the numbers of keys.
    void tags(bool describe)
    {
        bool const haveKeys = below(2), isOfQuickTime = below(2), hasHandler = below(4);
        std::size_t const box = begin("meta");
        if (!isOfQuickTime)
            number(0, 4);
        if (hasHandler)
            handlerBox(haveKeys ? "mdta" : "mdir");
        if (haveKeys && hasHandler)
            keyedTags(describe);
        else if (below(4))
            plainTags(describe);
        end(box);
    }

    void plainTags(bool describe)
    {
        // The last one in octal digits: letters would go on a number in hexadecimal ones.
        constexpr std::string_view types[] { "\xA9nam", "\xA9too", "gnre", "desc", "\251day" };
        std::size_t const list = begin("ilst");
        for (unsigned left = below(4); left; --left) {
            auto const type = oneOf(types);
            bool const isNumber = type == "gnre";
            std::size_t const tag = begin(type), value = begin("data");
            number(isNumber ? 0 : 1, 4); // QuickTime File Format, "Well-known types".
            number(0, 4);
            if (isNumber)
                genre(describe);
            else
                text(anyText(describe && (type == "\xA9nam" || type == "desc")));
            end(value);
            end(tag);
        }
        end(list);
    }

    void genre(bool describes)
    {
        unsigned const value = below(2);
        number(value, 2);
        _isDescribed = _isDescribed || (describes && value);
    }

    void keyedTags(bool describe)
    {
        constexpr std::string_view names[] { "com.apple.quicktime.title",
            "com.apple.quicktime.make", "Artist",
            "a name that is longer than any that counts, so that nobody reads it" };
        std::vector<bool> areDescriptive;
        std::size_t const keys = begin("keys");
        unsigned const count = 1 + below(3);
        number(0, 4);
        number(count, 4);
        for (unsigned left = count; left; --left) {
            auto const index = below(4);
            std::size_t const key = begin("mdta");
            text(names[index]);
            end(key);
            areDescriptive.push_back(index % 2 == 0);
        }
        end(keys);
        std::size_t const list = begin("ilst");
        for (unsigned left = below(3); left; --left) {
            unsigned const key = below(count + 1); // No key has the number 0.
            std::size_t const tag = _file.size();
            number(0, 4);
            number(key, 4);
            std::size_t const value = begin("data");
            number(1, 4);
            number(0, 4);
            text(anyText(describe && key && areDescriptive[key - 1]));
            end(value);
            end(tag);
        }
        end(list);
    }

private:
    Choices& _choices;
    std::uint64_t _cameraBytes { 0 };
    bool _isDescribed { false };
};
