#include "kxmd/platform/linux/render/KXMediaProbeTextPrivate.h"

#include "kxmd/base/KXTextPrivate.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <span>
#include <system_error>

namespace {

template <class Owner, class Value> struct Field {
    std::string_view name;
    Value Owner::*member;
};

constexpr Field<KXMediaStream, std::string> streamTexts[] {
    { "codec", &KXMediaStream::codec },
    { "profile", &KXMediaStream::profile },
    { "language", &KXMediaStream::language },
};
constexpr Field<KXMediaStream, std::uint32_t> streamNumbers[] {
    { "sampleRate", &KXMediaStream::sampleRate },
    { "channels", &KXMediaStream::channels },
    { "bits", &KXMediaStream::bits },
    { "width", &KXMediaStream::width },
    { "height", &KXMediaStream::height },
    { "rotation", &KXMediaStream::rotation },
};
constexpr Field<KXMediaPicture, std::string> pictureTexts[] {
    { "type", &KXMediaPicture::type },
};
constexpr Field<KXMediaPicture, std::uint32_t> pictureNumbers[] {
    { "width", &KXMediaPicture::width },
    { "height", &KXMediaPicture::height },
};

constexpr std::string_view kindNames[] { "video", "audio", "subtitle", "other" };
constexpr std::string_view tagPrefix = "tag ";

// Writing.

void add(std::string& text, std::string_view name, std::string_view value)
{
    text += name;
    text += '\0';
    text += value.substr(0, value.find('\0'));
    text += '\0';
}

template <class Number>
requires std::is_arithmetic_v<Number>
void add(std::string& text, std::string_view name, Number number)
{
    std::array<char, 32> digits;
    auto const end = std::to_chars(digits.begin(), digits.end(), number).ptr;
    add(text, name, std::string_view(digits.begin(), end));
}

template <class Owner, class Value, std::size_t count>
void addFields(std::string& text, Owner const& owner, Field<Owner, Value> const (&fields)[count])
{
    for (auto const& field : fields)
        add(text, field.name, owner.*field.member);
}

// Reading.

/// Texts of files are what their writers took for UTF-8.
std::string textOfValue(std::string_view value)
{
    std::span const bytes(reinterpret_cast<std::uint8_t const*>(value.data()), value.size());
    auto text = textFromBytes(bytes, KXStringEncodingUTF8);
    return text ? std::move(*text) : textFromBytes(bytes, KXStringEncodingLatin1).value_or("");
}

/// The number that `value` is, all of it; 0 for anything else.
template <class Number> Number numberOfValue(std::string_view value)
{
    Number number {};
    auto const [end, error] = std::from_chars(value.begin(), value.end(), number);
    return error == std::errc() && end == value.end() ? number : Number {};
}

/// Seconds, or frames a second.
double amountOfValue(std::string_view value)
{
    auto const amount = numberOfValue<double>(value);
    return std::isfinite(amount) ? std::max(amount, 0.0) : 0;
}

void read(std::string_view value, std::string& text) { text = textOfValue(value); }

void read(std::string_view value, std::uint32_t& number)
{
    number = numberOfValue<std::uint32_t>(value);
}

template <class Owner, class Value, std::size_t count>
void takeField(Owner& owner, Field<Owner, Value> const (&fields)[count], std::string_view name,
    std::string_view value)
{
    auto const* const field = std::ranges::find(fields, name, &Field<Owner, Value>::name);
    if (field != std::end(fields))
        read(value, owner.*field->member);
}

void takeOfStream(KXMediaStream& stream, std::string_view name, std::string_view value)
{
    takeField(stream, streamTexts, name, value);
    takeField(stream, streamNumbers, name, value);
    if (name == "bitRate")
        stream.bitRate = numberOfValue<std::uint64_t>(value);
    else if (name == "frameRate")
        stream.frameRate = amountOfValue(value);
}

void takeOfPicture(KXMediaPicture& picture, std::string_view name, std::string_view value)
{
    takeField(picture, pictureTexts, name, value);
    takeField(picture, pictureNumbers, name, value);
    if (name == "bytes")
        picture.bytes = numberOfValue<std::uint64_t>(value);
}

/// Takes names and values, which belong to what was begun last.
class Reading {
public:
    KXMediaProbe probe;

    void take(std::string_view name, std::string_view value)
    {
        if (name == "stream") {
            auto const* const kind = std::ranges::find(kindNames, value);
            probe.streams.emplace_back().kind = kind == std::end(kindNames)
                ? KXMediaStream::Kind::other
                : static_cast<KXMediaStream::Kind>(kind - kindNames);
            _begun = Begun::stream;
        } else if (name == "picture") {
            probe.pictures.emplace_back().kind = textOfValue(value);
            _begun = Begun::picture;
        } else if (_begun == Begun::stream) {
            takeOfStream(probe.streams.back(), name, value);
        } else if (_begun == Begun::picture) {
            takeOfPicture(probe.pictures.back(), name, value);
        } else if (name == "container") {
            probe.container = textOfValue(value);
        } else if (name == "duration") {
            probe.duration = amountOfValue(value);
        } else if (name.starts_with(tagPrefix)) {
            std::string_view const tag = name.substr(tagPrefix.size());
            if (std::ranges::find(mediaProbeTags, tag) != std::end(mediaProbeTags))
                probe.tags[std::string(tag)] = textOfValue(value);
        }
    }

    bool isTooLong() const
    {
        return probe.streams.size() > mostMediaProbeStreams
            || probe.pictures.size() > mostMediaProbeStreams;
    }

private:
    enum class Begun : std::uint8_t { file, stream, picture };

    Begun _begun { Begun::file };
};

/// The text up to the next zero, after which `text` starts then; absent when there is none.
std::optional<std::string_view> nextText(std::string_view& text)
{
    std::size_t const length = text.find('\0');
    if (length == std::string_view::npos)
        return std::nullopt;
    std::string_view const next = text.substr(0, length);
    text.remove_prefix(length + 1);
    return next;
}

}

std::string textOfMediaProbe(KXMediaProbe const& probe)
{
    std::string text;
    add(text, "container", probe.container);
    add(text, "duration", probe.duration);
    for (auto const& [name, value] : probe.tags)
        add(text, std::string(tagPrefix) + name, value);
    for (KXMediaStream const& stream : probe.streams) {
        add(text, "stream", kindNames[static_cast<std::size_t>(stream.kind)]);
        addFields(text, stream, streamTexts);
        addFields(text, stream, streamNumbers);
        add(text, "bitRate", stream.bitRate);
        add(text, "frameRate", stream.frameRate);
    }
    for (KXMediaPicture const& picture : probe.pictures) {
        add(text, "picture", picture.kind);
        addFields(text, picture, pictureTexts);
        addFields(text, picture, pictureNumbers);
        add(text, "bytes", picture.bytes);
    }
    return text;
}

std::optional<KXMediaProbe> mediaProbeOfText(std::string_view text)
{
    Reading reading;
    if (text.empty() || text.size() > longestMediaProbeText)
        return std::nullopt;
    while (!text.empty()) {
        auto const name = nextText(text);
        auto const value = nextText(text);
        if (!name || !value)
            return std::nullopt;
        reading.take(*name, *value);
        if (reading.isTooLong())
            return std::nullopt;
    }
    return std::move(reading.probe);
}
