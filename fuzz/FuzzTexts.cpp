// Texts in every encoding, texts for a terminal, paths, the names of codecs and what a render
// server says of media, of any bytes.

#include "Choices.h"
#include "FuzzTarget.h"

#include "kxmd/base/KXPath.h"
#include "kxmd/base/KXPrintableText.h"
#include "kxmd/base/KXTextPrivate.h"
#include "kxmd/core/KXMDCodecInfo.h"
#include "kxmd/platform/linux/render/KXMediaProbeTextPrivate.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes bytesOf(std::string_view text) { return Bytes(text.begin(), text.end()); }

/// As UTF-16, the first byte of a unit being the high one unless `isLittle`.
Bytes wide(Bytes const& bytes, bool isLittle)
{
    Bytes units = isLittle ? Bytes { 0xFF, 0xFE } : Bytes { 0xFE, 0xFF };
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        units.push_back(bytes[i + isLittle]);
        units.push_back(bytes[i + !isLittle]);
    }
    return units;
}

void checkEncodings(Bytes const& bytes)
{
    auto const latin1 = textFromBytes(bytes, KXStringEncodingLatin1);
    auto const ascii = textFromBytes(bytes, KXStringEncodingASCII);
    auto const utf8 = textFromBytes(bytes, KXStringEncodingUTF8);
    KXMD_REQUIRE(latin1 && textFromBytes(bytesOf(*latin1), KXStringEncodingUTF8) == latin1);
    KXMD_REQUIRE(!ascii || (ascii == latin1 && ascii == utf8));
    KXMD_REQUIRE(!utf8 || bytesOf(*utf8) == bytes);
    // The same units in either order are the same text, which UTF-8 can hold.
    auto const big = textFromBytes(wide(bytes, false), KXStringEncodingUnicode);
    KXMD_REQUIRE(big == textFromBytes(wide(bytes, true), KXStringEncodingUnicode));
    KXMD_REQUIRE(!big || textFromBytes(bytesOf(*big), KXStringEncodingUTF8) == big);
    if (bytes.size() % 2)
        KXMD_REQUIRE(!textFromBytes(bytes, KXStringEncodingUnicode));
}

void checkPrintable(std::string_view text)
{
    std::string const shown = KXTextWithoutControlCharacters(text);
    KXMD_REQUIRE(shown.size() <= text.size());
    KXMD_REQUIRE(textFromBytes(bytesOf(shown), KXStringEncodingUTF8) == shown);
    KXMD_REQUIRE(KXTextWithoutControlCharacters(shown) == shown);
    KXMD_REQUIRE(std::ranges::none_of(
        shown, [](char byte) { return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F; }));
    std::size_t replaced = 0;
    auto const marked = KXTextReplacingControlCharactersWith(text, [&](char32_t) {
        ++replaced;
        return "?";
    });
    KXMD_REQUIRE(marked == shown && (replaced || shown == text));
}

void checkPath(std::string const& path)
{
    auto const components = KXPathComponents(path);
    for (std::string_view const component : components)
        KXMD_REQUIRE(!component.empty() && component != "."
            && component.find('/') == std::string_view::npos);
    std::string_view const last = KXLastPathComponent(path);
    std::string_view const extension = KXPathExtension(path);
    KXMD_REQUIRE(last.find('/') == std::string_view::npos && last.ends_with(extension));
    KXMD_REQUIRE(components.empty() || last == "." || last == components.back());
    auto const folder = std::string(KXPathByDeletingLastPathComponent(path));
    KXMD_REQUIRE(path.starts_with(folder) && folder.size() <= path.size());
    auto const inFolder = KXPathComponents(folder);
    KXMD_REQUIRE(inFolder.size() + 1 >= components.size());
    KXMD_REQUIRE(std::equal(inFolder.begin(), inFolder.end(), components.begin()));
}

void checkRelativePath(std::string const& root, std::string const& below)
{
    KXMD_REQUIRE(KXRelativePathForRootFolder(root, root).empty());
    std::string const relative = KXRelativePathForRootFolder(below, root);
    KXMD_REQUIRE(!relative.starts_with('/') && !relative.ends_with('/'));
    if (relative.empty())
        return;
    auto const components = KXPathComponents(relative);
    KXMD_REQUIRE(std::ranges::find(components, "..") == components.end());
    std::string const whole = root.empty() ? relative : root + '/' + relative;
    KXMD_REQUIRE(KXRelativePathForRootFolder(whole, root) == relative);
}

/// What a render server may send for a probe: read and written anew, it is the same.
void checkMediaProbe(std::string_view text)
{
    auto const probe = mediaProbeOfText(text);
    if (!probe)
        return;
    std::string const written = textOfMediaProbe(*probe);
    if (written.size() <= longestMediaProbeText) // Latin-1 grows, and so do values left out.
        KXMD_REQUIRE(mediaProbeOfText(written) == probe);
}

void checkCodec(Bytes const& bytes)
{
    Choices choices(bytes.data(), bytes.size());
    KXMDCodecInfo info;
    info.setCodec(static_cast<KXMDCodec>(choices.next<std::uint8_t>() % 16));
    info.setProfile(choices.next<std::uint8_t>());
    auto const level = choices.next<std::int32_t>();
    info.setProfileLevel(level);
    KXMD_REQUIRE(info.description().starts_with("Codec: "));
    KXMD_REQUIRE(info.description().ends_with(" Level:" + std::to_string(level)));
}

}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t length)
{
    Bytes const all(bytes, bytes + length);
    std::string const text(all.begin(), all.end());
    checkEncodings(all);
    checkPrintable(text);
    checkPath(text);
    checkMediaProbe(text);
    // A zero ends the folder.
    std::size_t const zero = text.find('\0');
    if (zero != std::string::npos) {
        std::string const root = text.substr(0, zero), rest = text.substr(zero + 1);
        checkRelativePath(root, rest);
        checkRelativePath(root, root + '/' + rest);
    }
    checkCodec(all);
    return 0;
}
